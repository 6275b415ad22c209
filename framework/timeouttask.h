// Timeout records: each watches one deadline for the object that owns it, and while that is past
// sends event flags to a task. One process-wide task, made by CTimeoutTask::Initialize and never
// destroyed, scans all records every 1 to 2 seconds. Lock order: its mutex, then the mutexes that
// CTask::Signal takes.
#pragma once

#include <atomic>

#include "framework/idletask.h"
#include "framework/mutex.h"
#include "framework/queue.h"
#include "framework/task.h"
#include "framework/thread_annotations.h"
#include "framework/types.h"

class CTimeoutTask;

class CTimeoutTaskThread : public CIdleTask {
 public:
  CTimeoutTaskThread();

  // One scan. Returns the ms to the next.
  SInt64 Run() override;

 private:
  friend class CTimeoutTask;
  void Attach(CQueueElem* i_pElem);
  void Detach(CQueueElem* i_pElem);

  CMutex m_objMutex;
  CQueue m_objQueue GUARDED_BY(m_objMutex);
  SInt64 m_s64Value = 100;  // as given to Initialize; the scan does not use it
};

class CTimeoutTask {
 public:
  // Makes and starts the scanning task, once, and notes i_s64Value. Call it after the task threads
  // were added: its start signal is only recorded otherwise.
  static void Initialize(SInt64 i_s64Value);

  // Attaches the record; Initialize must have run: asserted. i_pTask is not owned and outlives the
  // record; with null nobody is ever signalled. The timeout is as in SetTimeout.
  CTimeoutTask(CTask* i_pTask, SInt64 i_s64TimeoutInMilSecs, CTask::EventFlags i_eEvents);
  // Waits for a scan in progress; its task may be signalled until then.
  ~CTimeoutTask();
  CTimeoutTask(const CTimeoutTask&) = delete;
  CTimeoutTask& operator=(const CTimeoutTask&) = delete;

  // Moves the deadline i_s64Ms from now; 0 disables the record. A deadline that has passed signals
  // at every scan until it is moved. Owner's thread.
  void SetTimeout(SInt64 i_s64Ms);

  // ms from now, below 0 when past; meaningless when disabled. For owners that want to know; none in
  // the daemon does.
  SInt64 GetTimeToTimeout() const;

 protected:
  static std::atomic<CTimeoutTaskThread*> s_pThread;

 private:
  friend class CTimeoutTaskThread;
  Bool SignalIfExpired(SInt64 i_s64Now);
  SInt64 WaitAfter(SInt64 i_s64Now, SInt64 i_s64Wait) const;

  CTask* m_pTask;
  // Written by the owner while the scan reads them, each for itself: relaxed.
  std::atomic<SInt64> m_s64TimeoutAtThisTime{0};
  std::atomic<SInt64> m_s64TimeoutInMilSecs{0};
  CQueueElem m_objQueueElem;
  CTask::EventFlags m_eEvents;
};
