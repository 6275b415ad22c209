// An event context ties one descriptor to the task that owns it; the event thread, the only caller
// of select(), turns its readiness into task events. Contexts belong to their owner and are used
// by one thread at a time; only ProcessEvent runs on the event thread.
#pragma once

#include <atomic>

#include "framework/ev.h"
#include "framework/ref.h"
#include "framework/task.h"
#include "framework/thread.h"
#include "framework/types.h"

// Made once on the heap, after CThread::Initialize, and never deleted: it serves until the process
// exits.
class CEventThread : public CThread {
 public:
  CEventThread() = default;
  // Never returns once the thread has been started.
  ~CEventThread() override;

 protected:
  void Entry() override;

 private:
  friend class CEventContext;

  CRefTable m_objRefTable;
};

// The process's event thread; null until main (or a test) has made it. It must be there before the
// first event context.
extern CEventThread* g_pEventThread;

class CEventContext {
 public:
  static constexpr SInt32 kInvalidFileDesc = -1;

  // Takes the descriptor over (kInvalidFileDesc: it comes later).
  explicit CEventContext(SInt32 i_s32FileDesc, CEventThread* i_pEventThread = g_pEventThread);

  // A class that overrides ProcessEvent calls AutoCleanup() in its own destructor, so that no event
  // meets a half-destroyed object.
  virtual ~CEventContext();
  CEventContext(const CEventContext&) = delete;
  CEventContext& operator=(const CEventContext&) = delete;

  // Takes the descriptor over and makes it non-blocking. Failure is fatal.
  void InitNonBlocking(SInt32 i_s32FileDesc);

  // Arms the descriptor for EventBits. One event is delivered for it, then it is disarmed: ask
  // again after every event. A descriptor of 1024 or above is fatal.
  void RequestEvent(SInt32 i_s32Events);

  // Ends the watch and closes the descriptor: the event thread does, if it was ever armed. Waits
  // for a ProcessEvent in progress, so it must not be called from one. May be called again.
  void Cleanup();

  // The task that gets the read event; it outlives the context. Before the first RequestEvent.
  void SetTask(CTask* i_pTask) { m_pTask = i_pTask; }

  // Takes over the descriptor, registration and watch of another context, which is left without
  // any; what this one had is cleaned up first. Tasks stay where they are. Waits like Cleanup. For
  // programs that hand connections on; the daemon has none.
  void TakeOverContext(CEventContext& io_refFrom);

 protected:
  // Event thread. The default signals kReadEvent to the task, whatever the bits, if there is one.
  virtual void ProcessEvent(SInt32 i_s32EventBits);

  // Cleanup(), for destructors.
  void AutoCleanup();

  SInt32 m_s32FileDesc;

 private:
  friend class CEventThread;

  // The identifier given out last; the next one follows it. Up to kMaxUniqueID.
  static std::atomic<UInt32> s_u32UniqueID;
  static constexpr UInt32 kMaxUniqueID = 10000000;

  static UInt32 NextUniqueID();
  void RegisterUniqueID();
  void PointRefAtUniqueID(UInt32 i_u32UniqueID);
  void ForgetDescriptor();

  eventreq m_stEventReq{};
  CRef m_objRef;
  UInt32 m_u32UniqueID = 0;
  CPLString m_objUniqueIDStr;
  CEventThread* m_pEventThread;
  Bool m_bWatchEventCalled = false;
  Bool m_bAutoCleanup = true;
  CTask* m_pTask = nullptr;
};
