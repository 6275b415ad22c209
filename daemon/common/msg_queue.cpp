#include "daemon/common/msg_queue.h"

#include "framework/log.h"

Bool CMsgQueue::TryPush(const T_ModuleMsg& i_msg) {
  CMutexLocker locker(&m_objLock);
  if (m_lstQueued.size() >= kCapacity) return false;
  if (m_lstFree.empty()) m_lstFree.emplace_back();
  m_lstFree.front() = i_msg;
  m_lstQueued.splice(m_lstQueued.end(), m_lstFree, m_lstFree.begin());
  return true;
}

UInt32 CMsgQueue::Push(const T_ModuleMsg* i_pMsg) {
  if (i_pMsg == nullptr) return 0;
  if (TryPush(*i_pMsg)) {
    m_objNotEmpty.Signal();
    return 1;
  }
  // "msgtype" is the message number; field reports are searched for the label as it stands.
  LOG_ERROR("buf<%d> overflow, msg<src:%d,dst:%d,msgtype:0x%x> discard", kCapacity,
            i_pMsg->m_u32Src, i_pMsg->m_u32Dst, i_pMsg->m_u32MsgNo);
  return 0;
}

UInt32 CMsgQueue::Pop(SInt32 i_s32TimeoutMs, T_ModuleMsg* o_pMsg) {
  if (o_pMsg == nullptr) return 0;
  CMutexLocker locker(&m_objLock);
  if (m_lstQueued.empty()) m_objNotEmpty.TimedWait(&m_objLock, i_s32TimeoutMs);
  if (m_lstQueued.empty()) return 0;
  *o_pMsg = m_lstQueued.front();
  m_lstFree.splice(m_lstFree.begin(), m_lstQueued, m_lstQueued.begin());
  return 1;
}
