#include "common/osd/cargo.h"

T_Cargo TakeOver(const T_ModuleMsg& i_msg) {
  if (T_OsdPictureResult::Is(i_msg))
    return std::unique_ptr<T_PictureResult>(i_msg.Read<T_OsdPictureResult>().m_pResult);
  switch (i_msg.m_u32MsgNo) {
    case T_OsdTextShow::kMsgNo:
    case T_OsdIconShow::kMsgNo:
    case T_OsdShowById::kMsgNo:
    case T_OsdCancelById::kMsgNo:
      return std::unique_ptr<T_DispRecord>(i_msg.Read<T_OsdTextShow>().m_pRecord);
    case T_OsdPicture::kMsgNo:
      return std::unique_ptr<char[]>(i_msg.Read<T_OsdPicture>().m_pPath);
    default:
      return {};
  }
}
