#include "framework/queue.h"

#include "framework/thread.h"

CQueue::CQueue() {
  m_objSentinel.m_pNext = &m_objSentinel;
  m_objSentinel.m_pPrev = &m_objSentinel;
}

void CQueue::EnQueue(CQueueElem* i_pElem) {
  OSD_ASSERT(i_pElem != nullptr, "i_pElem != NULL", "queue", 14);
  if (i_pElem->m_pQueue == this) return;
  OSD_ASSERT(i_pElem->m_pQueue == nullptr, "i_pElem->m_pQueue == NULL", "queue", 19);
  i_pElem->m_pNext = m_objSentinel.m_pNext;
  i_pElem->m_pPrev = &m_objSentinel;
  m_objSentinel.m_pNext->m_pPrev = i_pElem;
  m_objSentinel.m_pNext = i_pElem;
  i_pElem->m_pQueue = this;
  ++m_u32Length;
}

CQueueElem* CQueue::DeQueue() {
  if (m_u32Length == 0) return nullptr;
  CQueueElem* const pElem = m_objSentinel.m_pPrev;
  OSD_ASSERT(pElem != &m_objSentinel, "m_objSentinel.m_pPrev != &m_objSentinel", "queue", 33);
  Unlink(pElem);
  return pElem;
}

void CQueue::Remove(CQueueElem* i_pElem) {
  OSD_ASSERT(i_pElem != nullptr, "i_pElem != NULL", "queue", 48);
  OSD_ASSERT(i_pElem != &m_objSentinel, "i_pElem != &m_objSentinel", "queue", 49);
  if (i_pElem->m_pQueue == this) Unlink(i_pElem);
}

// The element's own neighbours stay as they were, so that an iterator standing on it can go on.
void CQueue::Unlink(CQueueElem* i_pElem) {
  i_pElem->m_pPrev->m_pNext = i_pElem->m_pNext;
  i_pElem->m_pNext->m_pPrev = i_pElem->m_pPrev;
  i_pElem->m_pQueue = nullptr;
  --m_u32Length;
}

CQueueIter::CQueueIter(const CQueue* i_pQueue) : m_pQueue(i_pQueue) {
  Step(&m_pQueue->m_objSentinel);
}

void CQueueIter::Step(const CQueueElem* i_pFrom) {
  m_pCurrent = i_pFrom->m_pPrev == &m_pQueue->m_objSentinel ? nullptr : i_pFrom->m_pPrev;
}

void CQueueBlocking::EnQueue(CQueueElem* i_pElem) {
  {
    CMutexLocker locker(&m_objMutex);
    m_objQueue.EnQueue(i_pElem);
  }
  m_objCond.Signal();
}

CQueueElem* CQueueBlocking::DeQueueBlocking(CThread* i_pCaller, SInt32 i_s32TimeoutInMilSecs) {
  CMutexLocker locker(&m_objMutex);
  const Bool bMayWait = i_pCaller == nullptr || !i_pCaller->IsStopRequested();
  if (m_objQueue.GetLength() == 0 && bMayWait)
    m_objCond.TimedWait(&m_objMutex, i_s32TimeoutInMilSecs);
  return m_objQueue.DeQueue();
}

CQueueElem* CQueueBlocking::DeQueue() {
  CMutexLocker locker(&m_objMutex);
  return m_objQueue.DeQueue();
}

void CQueueBlocking::WakeWaiters() {
  CMutexLocker locker(&m_objMutex);
  m_objCond.Broadcast();
}
