// A task: an object with a Run() and a set of event flags, run by the threads of a task pool. No
// task is ever run by two threads at once, and a signal that arrives while it runs makes it run
// again. A task that was signalled belongs to its pool until its Run() has returned 0.
#pragma once

#include <atomic>

#include "framework/heap.h"
#include "framework/queue.h"
#include "framework/types.h"

class CTaskThread;

class CTask {
 public:
  using EventFlags = UInt32;
  enum : EventFlags {
    kKillEvent = 0x00000001,
    kIdleEvent = 0x00000002,
    kStartEvent = 0x00000004,
    kTimeoutEvent = 0x00000008,
    kReadEvent = 0x00000010,
    kWriteEvent = 0x00000020,
    kAlive = 0x80000000  // internal: queued, running, or waiting in a thread's timer heap
  };

  // Asleep, in pool 0.
  CTask();
  // Asleep, or deleted by its thread: never while it is queued or running (asserted for the queue).
  virtual ~CTask() = default;
  CTask(const CTask&) = delete;
  CTask& operator=(const CTask&) = delete;

  // On a task thread; must not block. Takes its events with GetEvents() first. Below 0: the task is
  // deleted (so it lives on the heap). 0: it sleeps until the next signal. n above 0: it runs again
  // with kIdleEvent no sooner than n ms later, and no signal brings that forward.
  virtual SInt64 Run() = 0;

  // Any thread. Adds the flags and wakes the task if it sleeps. While its pool has no threads the
  // flags are only recorded. Ignored once the task is being deleted.
  void Signal(EventFlags i_eEvents);

  // Takes the pending flags, without kAlive; those that arrive meanwhile stay for the next call.
  EventFlags GetEvents();

  // Keeps "live_" and the first 42 characters of i_pName; null changes nothing. In constructors.
  void SetTaskName(const char* i_pName);

  // False from the moment on at which the task is to be deleted.
  Bool Valid();

 protected:
  static constexpr UInt32 kNameSize = 48;

  char m_szTaskName[kNameSize];
  // Set by task classes that pin themselves to a thread or choose a pool, before the first signal.
  CTaskThread* m_pDefaultThread = nullptr;
  // The thread for the next wake-up alone; goes before the default one, cleared before every Run().
  std::atomic<CTaskThread*> m_pUseThisThread{nullptr};
  UInt32 m_u32PoolID = 0;
  // Set by the task: the next Run() excludes the runs of all other tasks, once.
  Bool m_bWriteLock = false;

 private:
  friend class CTaskThread;
  friend class CTaskThreadPool;
  void MarkDeleted();

  // Hands a woken task to a thread; set for good with the first pools. Relaxed: it is code alone.
  static inline std::atomic<void (*)(CTask*)> s_pSchedule{nullptr};

  std::atomic<UInt32> m_u32Events{0};
  CHeapElem m_objTimerHeapElem;
  CQueueElem m_objTaskQueueElem;
};
