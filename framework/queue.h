// Intrusive first-in, first-out queues. The elements are members of what they carry and know the
// queue that holds them; nothing is ever allocated. CQueue belongs to whoever guards it;
// CQueueBlocking brings its own mutex and condition and may be used from any thread.
#pragma once

#include "framework/assert.h"
#include "framework/cond.h"
#include "framework/mutex.h"
#include "framework/thread_annotations.h"
#include "framework/types.h"

class CQueue;
class CThread;

class CQueueElem {
 public:
  // i_pEnclosingObject is whom it stands for; not owned.
  explicit CQueueElem(void* i_pEnclosingObject = nullptr)
      : m_pEnclosingObject(i_pEnclosingObject) {}
  // Must be in no queue: asserted.
  virtual ~CQueueElem() { OSD_ASSERT(m_pQueue == nullptr, "m_pQueue == NULL", "queue.h", 20); }
  CQueueElem(const CQueueElem&) = delete;
  CQueueElem& operator=(const CQueueElem&) = delete;

  // As given to the constructor.
  void* GetEnclosingObject() const { return m_pEnclosingObject; }

 private:
  friend class CQueue;
  friend class CQueueIter;
  CQueueElem* m_pNext = nullptr;  // enqueued earlier
  CQueueElem* m_pPrev = nullptr;  // enqueued later
  CQueue* m_pQueue = nullptr;
  void* m_pEnclosingObject;
};

class CQueue {
 public:
  CQueue();
  CQueue(const CQueue&) = delete;
  CQueue& operator=(const CQueue&) = delete;

  // An element that is in this queue already stays where it is; one that is in another is fatal.
  void EnQueue(CQueueElem* i_pElem);

  // The element that was enqueued earliest, or null when empty.
  CQueueElem* DeQueue();

  // Takes the element out if this queue holds it, otherwise changes nothing.
  void Remove(CQueueElem* i_pElem);

  // Elements.
  UInt32 GetLength() const { return m_u32Length; }

 private:
  friend class CQueueIter;
  void Unlink(CQueueElem* i_pElem);

  CQueueElem m_objSentinel;
  UInt32 m_u32Length = 0;
};

// Walks a queue, oldest first. The current element may be removed before Next().
class CQueueIter {
 public:
  // Begins at the oldest. i_pQueue outlives it and is guarded by the caller all the while.
  explicit CQueueIter(const CQueue* i_pQueue);

  // Null at the end.
  CQueueElem* GetCurrent() const { return m_pCurrent; }
  // There is no current element any more; Next() must not be called then.
  Bool IsDone() const { return m_pCurrent == nullptr; }
  void Next() { Step(m_pCurrent); }

 private:
  void Step(const CQueueElem* i_pFrom);

  const CQueue* m_pQueue;
  CQueueElem* m_pCurrent = nullptr;
};

class CQueueBlocking {
 public:
  // Wakes one waiter. The element is not touched any more once a waiter can have it.
  void EnQueue(CQueueElem* i_pElem);

  // Waits at most once for i_s32TimeoutInMilSecs (0: without limit; CCond's rounding) when the
  // queue is empty; null when it is still empty then. i_pCaller is the calling thread's object, or
  // null; once it was asked to stop there is no waiting any more.
  CQueueElem* DeQueueBlocking(CThread* i_pCaller, SInt32 i_s32TimeoutInMilSecs);

  // Never waits; null when empty.
  CQueueElem* DeQueue();

  // Wakes all waiters. Whoever asked a thread to stop calls it afterwards; as the mutex is taken,
  // the thread either sees the request before it waits or is woken.
  void WakeWaiters();

 private:
  CCond m_objCond;
  CMutex m_objMutex;
  CQueue m_objQueue GUARDED_BY(m_objMutex);
};
