// The bounded inbox of a module thread: any thread pushes, the owner's run loop alone pops.
// First in, first out; a full queue refuses the new record and keeps the old ones. A task that can
// leave its work undone for a while is told when there is room again, so that it need not be refused.
#pragma once

#include <list>

#include "daemon/common/module_msg.h"
#include "framework/cond.h"
#include "framework/mutex.h"
#include "framework/thread_annotations.h"

class CTask;

class CMsgQueue {
 public:
  static constexpr UInt32 kCapacity = 57;

  // Copies i_pMsg to the end. 1 = queued; 0 = null record, or full (with an ERROR line). What the
  // record carries by address is not looked at. Any thread.
  UInt32 Push(const T_ModuleMsg* i_pMsg);

  // Moves the oldest record into o_pMsg, waiting once for at most i_s32TimeoutMs when there is
  // none (as CCond rounds it; it may be woken early). 1 = a record; 0 = null pointer, or still none
  // after the wait (o_pMsg is then unchanged). The owner's thread, or whoever comes after its end.
  UInt32 Pop(SInt32 i_s32TimeoutMs, T_ModuleMsg* o_pMsg);

  // false: enough records wait, and i_pTask gets kReadEvent, once, when the owner has taken about
  // half of them. true also when the owner has taken none for kStuckMs: until it takes one, whoever
  // pushes is refused aloud instead of waiting for ever. One task at a time. Any thread.
  Bool HasRoomFor(CTask* i_pTask);
  static constexpr SInt64 kStuckMs = 1500;

  // How many waited at a time, at most. Any thread.
  size_t Longest();

  // The owner takes no more: there is no room any more, and nobody is told. Once the owner's thread
  // has ended, the task may go. Any thread.
  void Close();

 private:
  // Full enough to wait, and empty enough to go on. Others who push without asking find some room
  // above the first; the way between the two is what one wake-up is good for.
  static constexpr size_t kHighMark = 48;
  static constexpr size_t kLowMark = 24;

  Bool TryPush(const T_ModuleMsg& i_msg);
  Bool TryPop(SInt32 i_s32TimeoutMs, T_ModuleMsg* o_pMsg, CTask** o_ppWoken);
  CTask* NoteTaken() REQUIRES(m_objLock);

  CMutex m_objLock;
  CCond m_objNotEmpty;
  // Nodes go back and forth between the two lists, so memory is taken only when the queue grows
  // longer than it ever was.
  std::list<T_ModuleMsg> m_lstQueued GUARDED_BY(m_objLock);
  std::list<T_ModuleMsg> m_lstFree GUARDED_BY(m_objLock);
  CTask* m_pWaiter GUARDED_BY(m_objLock) = nullptr;
  SInt64 m_s64WaitsSince GUARDED_BY(m_objLock) = 0;  // ms, or the time of the last pop since then
  Bool m_bStuck GUARDED_BY(m_objLock) = false;
  size_t m_longest GUARDED_BY(m_objLock) = 0;
  Bool m_bClosed GUARDED_BY(m_objLock) = false;
};
