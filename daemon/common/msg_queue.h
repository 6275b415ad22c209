// The bounded inbox of a module thread: any thread pushes, the owner's run loop alone pops.
// First in, first out; a full queue refuses the new record and keeps the old ones.
#pragma once

#include <list>

#include "daemon/common/module_msg.h"
#include "framework/cond.h"
#include "framework/mutex.h"

class CMsgQueue {
 public:
  static constexpr UInt32 kCapacity = 57;

  // Copies i_pMsg to the end. 1 = queued; 0 = null record, or full (with an ERROR line).
  UInt32 Push(const T_ModuleMsg* i_pMsg);

  // Moves the oldest record into o_pMsg, waiting once for at most i_s32TimeoutMs when there is
  // none. 1 = a record; 0 = null pointer, or still none after the wait (o_pMsg is then unchanged).
  UInt32 Pop(SInt32 i_s32TimeoutMs, T_ModuleMsg* o_pMsg);

 private:
  Bool TryPush(const T_ModuleMsg& i_msg);

  CMutex m_objLock;
  CCond m_objNotEmpty;
  // Guarded by m_objLock. Nodes go back and forth between the two lists, so memory is taken only
  // when the queue grows longer than it ever was.
  std::list<T_ModuleMsg> m_lstQueued;
  std::list<T_ModuleMsg> m_lstFree;
};
