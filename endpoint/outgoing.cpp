#include "endpoint/outgoing.h"

Bool COutgoing::Take(T_MsgParams* o_pParams) {
  CMutexLocker locker(&m_objLock);
  if (m_objMsgQueue.empty()) return false;
  *o_pParams = std::move(m_objMsgQueue.front());
  m_objMsgQueue.pop_front();
  return true;
}

Bool COutgoing::IsEmpty() {
  CMutexLocker locker(&m_objLock);
  return m_objMsgQueue.empty();
}

UInt32 COutgoing::NextSeq() {
  CMutexLocker locker(&m_objLock);
  return m_u32Seq++;
}

void COutgoing::FillHeader(T_MsgHeader* io_pHeader, UInt16 i_u16ParamLen) {
  io_pHeader->m_u32Magic = kMsgMagic;
  io_pHeader->m_u8Version = 0;
  io_pHeader->m_u32Seq = NextSeq();
  io_pHeader->m_u16ParamLen = i_u16ParamLen;
}

void COutgoing::Append(T_MsgParams&& i_params) {
  {
    CMutexLocker locker(&m_objLock);
    m_objMsgQueue.push_back(std::move(i_params));
  }
  m_pTask->Signal(CTask::kWriteEvent);
}
