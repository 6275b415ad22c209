#include "endpoint/osdcommands.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <string_view>

#include "common/osd/commands.h"
#include "common/osd/disp_record.h"
#include "daemon/common/bus.h"
#include "endpoint/resolution_file.h"
#include "framework/log.h"
#include "platform/platform.h"
#include "protocol/element.h"
#include "protocol/peers.h"

namespace {

constexpr UInt32 kLoopback = 0x7F000001;
constexpr const char* kResolutionFile = "/tmpfile/resolution.cfg";

T_Asker AskerOf(const T_MsgBody& i_request) {
  return {i_request.m_u32Entry, i_request.m_stHeader.m_u32Seq, i_request.m_u16RemotePort};
}

// That is the end of i_request.
void Refused(const T_MsgBody& i_request, const std::string& i_strWhy) {
  g_objLedger.Close(AskerOf(i_request), ERequest::kRefused, i_strWhy.c_str());
}

// What i_request leads to. Whether the bus has accepted it.
template <class T>
Bool Send(const T& i_command, const T_MsgBody& i_request, UInt32 i_u32Src = kModuleEndpoint) {
  T_ModuleMsg msg = MakeMessage(kAsyncMsg, i_u32Src, kModuleOsd, i_command);
  PutAsker(AskerOf(i_request), msg);
  const Bool bAccepted = SendSyncAndAsyncMsg(&msg, 0) != 0;
  if (!bAccepted) Refused(i_request, "the renderer did not take it: too much waits for it");
  return bAccepted;
}

// What i_command carries by address, io_pOwned, is the renderer's once the bus has accepted it.
template <class T, class Owned>
void SendOwned(const T& i_command, const T_MsgBody& i_request, std::unique_ptr<Owned>&& io_pOwned) {
  if (Send(i_command, i_request)) static_cast<void>(io_pOwned.release());
}

T_LayerRequest LayerOf(const T_MsgOsdScreenInfo& i_request) {
  return {i_request.m_s32VoDev, i_request.m_s32VideoLayer, i_request.m_s32X,
          i_request.m_s32Y,     i_request.m_u32W,          i_request.m_u32H};
}

void CopyText(const T_MsgOsdStringShow& i_request, T_DispRecord* o_pRecord) {
  const size_t length = std::min<size_t>(i_request.m_u16StrLen, T_DispRecord::kLineChars);
  char* const pLine = o_pRecord->m_aText[0];
  if (length > 0) std::memcpy(pLine, i_request.m_pStr.get(), length);
  std::replace(pLine, pLine + length, '\0', ' ');
  o_pRecord->m_u16Line = 1;
}

// Some senders count a terminator in.
std::string_view PathOf(const char* i_pPath, UInt32 i_u32Length) {
  std::string_view path(i_pPath, i_u32Length);
  while (path.ends_with('\0')) path.remove_suffix(1);
  return path;
}

// No path is ever cut; one that cannot be told whole is refused.
Bool IsWhole(std::string_view i_path, const T_MsgBody& i_request) {
  if (i_path.size() <= T_DispRecord::kMaxPath && i_path.find('\0') == i_path.npos) return true;
  LOG_ERROR("picture <%s> is not shown: its path has %zu bytes; at most %u and no NUL among them",
            Printable(i_path.substr(0, T_DispRecord::kMaxPath)).c_str(), i_path.size(),
            T_DispRecord::kMaxPath);
  Refused(i_request, "the picture's path is too long, or has a NUL in it");
  return false;
}

void InitFromResolutionFile(const T_MsgBody& i_request) {
  const T_Resolution size = ReadResolutionFile(SystemPath(kResolutionFile));
  if (!size) {
    LOG_ERROR("can not open resolution.cfg: <%s>!!!", size.m_strReason.c_str());
    return Refused(i_request, "resolution.cfg: " + size.m_strReason);
  }
  LOG_INFO("get resolution.cfg [%u x %u]", size.m_u32Width, size.m_u32Height);
  Send(T_OsdInit{{0, 0, 0, 0, size.m_u32Width, size.m_u32Height}}, i_request);
}

void ForwardHide(const T_MsgOsdElemHide& i_request, UInt16 i_u16VoutSeq, COutgoing& io_outgoing) {
  auto pForward = std::make_unique<T_MsgOsdElemHide>(i_request);
  pForward->m_u32RemoteAddr = kLoopback;
  pForward->m_u16RemotePort = kMppPort;
  pForward->m_u16VoutSeq = i_u16VoutSeq;
  io_outgoing.Queue(std::move(pForward));
}

}  // namespace

void ProcessMsgOsdInit(const T_MsgOsdScreenInfo& i_request) {
  Send(T_OsdInit{LayerOf(i_request)}, i_request);
}

void ProcessMsgOsdDeInit(const T_MsgOsdDeinit& i_request) {
  Send(T_OsdDeInit{LayerOf(i_request)}, i_request);
}

void ProcessMsgOsdStringShow(const T_MsgOsdStringShow& i_request) {
  auto pRecord = std::make_unique<T_DispRecord>();
  const UInt32 u32Flag = i_request.m_u32Flag;
  pRecord->m_u32Source = kModuleEndpoint;
  pRecord->m_u32Mask = u32Flag;
  pRecord->m_u16VoSeq = OutputOf(i_request.m_u16VoutSeq);
  pRecord->m_u16Seq = i_request.m_u16OsdSeq;
  if (u32Flag & kMaskPosition) {
    pRecord->m_u32Position = i_request.m_u8Align;
    pRecord->m_u32X = i_request.m_u16X;
    pRecord->m_u32Y = i_request.m_u16Y;
  }
  if (u32Flag & kMaskFontSize) pRecord->m_u16FontSize = i_request.m_u8FontSize;
  if (u32Flag & kMaskTextColour) pRecord->m_u32TextColour = i_request.m_u32TextColour;
  if (u32Flag & kMaskBackground)
    pRecord->m_u32Background = i_request.m_u32Background != 0 ? i_request.m_u32Background
                                                              : T_DispRecord::kDefaultBackground;
  if (u32Flag & kMaskText) CopyText(i_request, pRecord.get());
  pRecord->m_u16Time =
      u32Flag & kMaskForever ? T_DispRecord::kForever : T_DispRecord::kTimedSeconds;
  SendOwned(T_OsdTextShow{pRecord.get()}, i_request, std::move(pRecord));
}

// "vosseq" below, like "not implement": logs are searched for the texts as they stand.
void ProcessMsgOsdDispImage(const T_MsgOsdDispImage& i_request) {
  const std::string_view path = PathOf(i_request.m_pPath.get(), i_request.m_u32StrLen);
  if (!IsWhole(path, i_request)) return;
  auto pRecord = std::make_unique<T_DispRecord>();
  pRecord->m_u32Source = kModuleEndpoint;
  pRecord->m_u32Kind = T_DispRecord::kKindIcon;
  pRecord->m_u16VoSeq = OutputOf(i_request.m_u16VoutSeq);
  pRecord->m_u16Seq = i_request.m_u16OsdSeq;
  pRecord->m_u32X = i_request.m_u16X;
  pRecord->m_u32Y = i_request.m_u16Y;
  pRecord->m_u32W = i_request.m_u16Width;
  pRecord->m_u32H = i_request.m_u16Height;
  pRecord->m_u16Opacity = i_request.m_u16Opacity;
  path.copy(pRecord->m_aText[0], path.size());
  pRecord->m_u16Line = 1;
  pRecord->m_u16Time = T_DispRecord::kForever;
  LOG_INFO("osd icon: vosseq<%#x> seq<%#x>, rect<%d,%d>, path<%.*s>,hide<%u>", pRecord->m_u16VoSeq,
           pRecord->m_u16Seq, pRecord->m_u32X, pRecord->m_u32Y, static_cast<int>(path.size()),
           path.data(), pRecord->m_u8Hide);
  SendOwned(T_OsdIconShow{pRecord.get()}, i_request, std::move(pRecord));
}

// The output keeps its 16 bits here; the renderer takes the low ones.
void ProcessMsgOsdCancelImage(const T_MsgOsdCancelImage& i_request) {
  LOG_INFO("osd image hide: vosseq<%#x> seq<%#x>", i_request.m_u16VoutSeq, i_request.m_u16OsdSeq);
  Send(T_OsdIconHide{i_request.m_u16VoutSeq, i_request.m_u16OsdSeq, 0}, i_request);
}

// Hide and delete name module 1 as their source, unlike all other requests; kept on purpose.
void ProcessMsgOsdElemHide(const T_MsgOsdElemHide& i_request, COutgoing& io_outgoing) {
  const UInt16 u16Seq = i_request.m_u16OsdSeq;
  const UInt16 u16Output = OutputOf(i_request.m_u16VoutSeq);
  const UInt32 u32Class = ElementClass(u16Seq);
  if (u16Seq != kEveryElement && u32Class > 4) {
    LOG_ERROR("ProcessMsgOsdElemHide: Unknown osd type<%#x>", u32Class);
    return Refused(i_request,
                   "elements of class " + std::to_string(u32Class) + " cannot be hidden");
  }
  Send(T_OsdTextCancel{u16Output, u16Seq}, i_request, kModuleMainCtl);
  if (u16Seq == kEveryElement) ForwardHide(i_request, i_request.m_u16VoutSeq, io_outgoing);
  if (u32Class == kImageClass) ForwardHide(i_request, u16Output, io_outgoing);
}

void ProcessMsgOsdElemDel(const T_MsgOsdElemDel& i_request) {
  const UInt16 u16Seq = i_request.m_u16OsdSeq;
  const UInt32 u32Class = ElementClass(u16Seq);
  if (u16Seq != kEveryElement && u32Class > 5) {
    LOG_ERROR("ProcessMsgOsdElemDel: Unknown osd type<%#x>", u32Class);
    return Refused(i_request,
                   "elements of class " + std::to_string(u32Class) + " cannot be deleted");
  }
  if (u32Class != kImageClass) Send(T_OsdDelete{u16Seq}, i_request, kModuleMainCtl);
  if (u16Seq == kEveryElement || u32Class == kImageClass) LOG_WARN("delete image, not implement!");
  if (u32Class == kImageClass) Refused(i_request, "pictures of class 2 are hidden, not deleted");
}

void ProcessMsgOsdGuideShow(const T_MsgOsdGuideShow& i_request) {
  if (!IsWhole(PathOf(i_request.m_pPath.get(), i_request.m_u32PathLen), i_request)) return;
  std::unique_ptr<char[]> pPath;
  if (i_request.m_u32PathLen != 0) {
    pPath = std::make_unique<char[]>(size_t{i_request.m_u32PathLen} + 1);
    std::memcpy(pPath.get(), i_request.m_pPath.get(), i_request.m_u32PathLen);
  }
  const T_MsgHeader& header = i_request.m_stHeader;
  const T_OsdPicture command{i_request.m_u32RemoteAddr,
                             i_request.m_u16RemotePort,
                             header.m_u32Magic,
                             header.m_u8Version,
                             {header.m_aType[0], header.m_aType[1], header.m_aType[2]},
                             header.m_u32Seq,
                             header.m_u32Id,
                             header.m_u16ParamLen,
                             i_request.m_u16OsdOut,
                             i_request.m_u16OsdSeq,
                             i_request.m_u32PathLen,
                             pPath.get()};
  SendOwned(command, i_request, std::move(pPath));
}

void ProcessMsgOsdTouchCalibration(const T_MsgOsdTouchCalibration& i_request) {
  switch (i_request.m_u8CalibrationMode) {
    case 0:
      return InitFromResolutionFile(i_request);
    case 1:
      return static_cast<void>(Send(T_OsdDeInit{}, i_request));
    default:
      Refused(i_request, "an unknown mode of calibration; 0 sets the layer up, 1 gives it up");
  }
}

void HideOsdGuide(UInt32 i_u32Guide) {
  if (i_u32Guide != T_OsdIconHide::kGuideAlone) {
    LOG_ERROR("HideOsdGuide: shouldn't be here");
    return;
  }
  Send(T_OsdIconHide{kEveryOutput, kEveryElement, T_OsdIconHide::kGuideAlone}, {});
}
