#include "daemon/common/msg_queue.h"

#include <algorithm>
#include <utility>

#include "framework/clock.h"
#include "framework/log.h"
#include "framework/task.h"

Bool CMsgQueue::TryPush(const T_ModuleMsg& i_msg) {
  CMutexLocker locker(&m_objLock);
  if (m_lstQueued.size() >= kCapacity) return false;
  if (m_lstFree.empty()) m_lstFree.emplace_back();
  m_lstFree.front() = i_msg;
  m_lstQueued.splice(m_lstQueued.end(), m_lstFree, m_lstFree.begin());
  m_longest = std::max(m_longest, m_lstQueued.size());
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

// The waiter to be woken, if any.
CTask* CMsgQueue::NoteTaken() {
  m_bStuck = false;
  if (m_pWaiter == nullptr) return nullptr;
  m_s64WaitsSince = CTime::Milliseconds();
  return m_lstQueued.size() <= kLowMark ? std::exchange(m_pWaiter, nullptr) : nullptr;
}

Bool CMsgQueue::TryPop(SInt32 i_s32TimeoutMs, T_ModuleMsg* o_pMsg, CTask** o_ppWoken) {
  CMutexLocker locker(&m_objLock);
  if (m_lstQueued.empty()) m_objNotEmpty.TimedWait(&m_objLock, i_s32TimeoutMs);
  if (m_lstQueued.empty()) return false;
  *o_pMsg = m_lstQueued.front();
  m_lstFree.splice(m_lstFree.begin(), m_lstQueued, m_lstQueued.begin());
  *o_ppWoken = NoteTaken();
  return true;
}

UInt32 CMsgQueue::Pop(SInt32 i_s32TimeoutMs, T_ModuleMsg* o_pMsg) {
  CTask* pWoken = nullptr;
  if (o_pMsg == nullptr || !TryPop(i_s32TimeoutMs, o_pMsg, &pWoken)) return 0;
  if (pWoken != nullptr) pWoken->Signal(CTask::kReadEvent);
  return 1;
}

Bool CMsgQueue::HasRoomFor(CTask* i_pTask) {
  CMutexLocker locker(&m_objLock);
  if (m_bClosed) return false;
  const Bool bFull = m_lstQueued.size() >= kHighMark;
  const SInt64 s64Now = bFull ? CTime::Milliseconds() : 0;
  if (bFull && m_pWaiter == nullptr) m_s64WaitsSince = s64Now;
  if (bFull && s64Now - m_s64WaitsSince >= kStuckMs) m_bStuck = true;
  m_pWaiter = bFull && !m_bStuck ? i_pTask : nullptr;
  return m_pWaiter == nullptr;
}

size_t CMsgQueue::Longest() {
  CMutexLocker locker(&m_objLock);
  return m_longest;
}

void CMsgQueue::Close() {
  CMutexLocker locker(&m_objLock);
  m_bClosed = true;
  m_pWaiter = nullptr;
}
