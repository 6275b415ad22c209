// Tasks with a one-shot timer. One process-wide idle-task thread keeps all armed timers and sends
// kIdleEvent to each task whose time has come. It is made by CIdleTask::Initialize and never
// destroyed. Lock order: its mutex, then the mutexes that CTask::Signal takes.
#pragma once

#include <atomic>

#include "framework/assert.h"
#include "framework/cond.h"
#include "framework/heap.h"
#include "framework/mutex.h"
#include "framework/task.h"
#include "framework/thread.h"
#include "framework/thread_annotations.h"
#include "framework/types.h"

class CIdleTask;

class CIdleTaskThread : public CThread {
 public:
  CIdleTaskThread() = default;
  // No timer may be armed: asserted.
  ~CIdleTaskThread() override {
    StopAndWake();
    OSD_ASSERT(m_objIdleHeap.CurrentHeapSize() == 0, "m_objIdleHeap.CurrentHeapSize() == 0",
               "idletask.h", __LINE__);
  }

  // Any thread. As the functions of CIdleTask of the same names.
  void SetIdleTimer(CIdleTask* i_pIdleObj, SInt64 i_s64Msec);
  void CancelTimeout(CIdleTask* i_pIdleObj);

 private:
  void Entry() override;
  void StopAndWake();

  CHeap m_objIdleHeap GUARDED_BY(m_objMutex);
  CMutex m_objMutex;
  CCond m_objCond;
};

class CIdleTask : public CTask {
 public:
  // Starts the idle-task thread, once; further calls change nothing.
  static void Initialize();

  CIdleTask();
  // Disarms the timer. Fatal before Initialize.
  ~CIdleTask() override;

  // Any thread, after Initialize. Arms the timer i_s64Msec from now; one that is armed already is
  // neither moved nor renewed.
  void SetIdleTimer(SInt64 i_s64Msec);

  // Any thread, after Initialize. Disarms the timer, if it is armed.
  void CancelTimeout();

 private:
  friend class CIdleTaskThread;

  static std::atomic<CIdleTaskThread*> s_pIdleThread;

  CHeapElem m_objIdleElem;  // guarded by the idle-task thread's mutex
};
