#include "endpoint/outgoing.h"

#include "daemon/common/counters.h"
#include "framework/log.h"

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

Bool COutgoing::TryAppend(T_MsgParams&& i_params, UInt32* o_pu32Seq) {
  CMutexLocker locker(&m_objLock);
  if (m_objMsgQueue.size() >= kCapacity) return false;
  *o_pu32Seq = m_u32Seq++;
  m_objMsgQueue.push_back(std::move(i_params));
  return true;
}

void COutgoing::Append(T_MsgParams&& i_params, UInt32* o_pu32Seq) {
  if (TryAppend(std::move(i_params), o_pu32Seq)) {
    m_pTask->Signal(CTask::kWriteEvent);
  } else {
    Count(g_stCounters.m_repliesLost);
    LOG_WARN("too many replies wait to be sent, current size<%u>", kCapacity);
  }
}
