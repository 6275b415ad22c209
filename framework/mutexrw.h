// A lock for many readers or one writer, built of a mutex and two conditions. Waiting writers go
// before new readers. Not recursive. Any thread.
#pragma once

#include "framework/cond.h"
#include "framework/mutex.h"
#include "framework/types.h"

class CMutexRW {
 public:
  // Blocks while a writer holds the lock or waits for it.
  void LockRead();

  // Blocks while readers hold the lock. A writer that holds it is not waited for, deliberately.
  void LockWrite();

  // Gives back what LockRead or LockWrite took.
  void Unlock();

 private:
  void UnlockWrite();
  void UnlockRead();

  CMutex m_objInternal;
  CCond m_objReaders;
  CCond m_objWriters;
  // Guarded by m_objInternal.
  SInt32 m_s32State = 0;  // -1 a writer, 0 free, n readers
  SInt32 m_s32WriteWaiters = 0;
  SInt32 m_s32ReadWaiters = 0;
  SInt32 m_s32ActiveReaders = 0;  // the state after the latest operation, for the debugger
};
