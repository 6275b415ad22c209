// The timer service, module 3 of the bus: other modules start and cancel timers by message and get
// their expiries by message. One process-wide instance; its resolution is 10 ms.
#pragma once

#include <atomic>
#include <list>

#include "daemon/common/module_msg.h"
#include "daemon/common/msg_queue.h"
#include "daemon/common/timer_commands.h"
#include "framework/mutex.h"
#include "framework/thread.h"
#include "framework/thread_annotations.h"

struct T_TimerInfo {
  UInt32 m_u32Src;       // module that asked for the timer
  UInt32 m_u32Type;      // caller's; 0 = one-shot, any other value = periodic
  UInt32 m_u32Id;        // caller's
  UInt32 m_u32Interval;  // ms; first delay and period
  SInt64 m_s64Deadline;  // monotonic ms of the next expiry
  T_ModuleMsg m_stRequest;
  Bool m_bFiring;  // its expiry message is under way
  Bool m_bDead;    // cancelled or done during a scan; freed when the outermost scan ends
};

class CTimer : public CThread {
 public:
  ~CTimer() override;

  // Requests and expiries are those of timer_commands.h; other requests are ignored.

  // Queues a request for the timer thread. 1 = queued; 0 = refused (with an ERROR line). Any thread.
  UInt32 PushMsg(const T_ModuleMsg* i_pMsg);

  // Handles a request on the calling thread. 1, or 0 for a null record. Waits for a request or an
  // expiry that is under way on another thread, unless the caller holds HandlerLock() already. Any
  // thread.
  UInt32 HandleSyncMsg(const T_ModuleMsg* i_pMsg, UInt32 i_u32Arg);
  CMutex& HandlerLock() RETURN_CAPABILITY(m_objHandlerLock) { return m_objHandlerLock; }

  // Ends the thread and waits for it: a matter of milliseconds. Call at most once, before exit.
  void Stop();

  void Entry() override;

 private:
  void Add(const T_ModuleMsg& i_request) REQUIRES(m_objHandlerLock);
  void Cancel(const T_ModuleMsg& i_request) REQUIRES(m_objHandlerLock);
  void Scan() REQUIRES(m_objHandlerLock);
  void Fire(T_TimerInfo& io_timer) REQUIRES(m_objHandlerLock);

  CMutex m_objHandlerLock;
  CMsgQueue m_objQueue;
  std::atomic<SInt32> m_s32Wait{10};  // ms; relaxed: a stale value costs one early or late scan

  // Their lock is held while expiry messages are sent. A synchronous expiry may come back with
  // requests of its own on the same thread, hence the marks in T_TimerInfo.
  std::list<T_TimerInfo> m_lstTimers GUARDED_BY(m_objHandlerLock);
  UInt32 m_u32ScanDepth GUARDED_BY(m_objHandlerLock) = 0;
};
