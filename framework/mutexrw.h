// A lock for many readers or one writer, built of a mutex and two conditions. Waiting writers go
// before new readers. Not recursive. Any thread.
#pragma once

#include "framework/cond.h"
#include "framework/mutex.h"
#include "framework/thread_annotations.h"
#include "framework/types.h"

class CAPABILITY("lock for reading or writing") CMutexRW {
 public:
  // Blocks while a writer holds the lock or waits for it.
  void LockRead() ACQUIRE_SHARED();

  // Blocks while readers hold the lock. A writer that holds it is not waited for, deliberately.
  void LockWrite() ACQUIRE();

  // Gives back what LockRead or LockWrite took.
  void Unlock() RELEASE_GENERIC();

 private:
  void UnlockWrite() REQUIRES(m_objInternal);
  void UnlockRead() REQUIRES(m_objInternal);

  CMutex m_objInternal;
  CCond m_objReaders;
  CCond m_objWriters;
  SInt32 m_s32State GUARDED_BY(m_objInternal) = 0;  // -1 a writer, 0 free, n readers
  SInt32 m_s32WriteWaiters GUARDED_BY(m_objInternal) = 0;
  SInt32 m_s32ReadWaiters GUARDED_BY(m_objInternal) = 0;
  // The state after the latest operation, for the debugger.
  SInt32 m_s32ActiveReaders GUARDED_BY(m_objInternal) = 0;
};

// These hold a lock, which outlives them, over a block, also when an exception passes.
class SCOPED_CAPABILITY CReadLocker {
 public:
  explicit CReadLocker(CMutexRW* i_pLock) ACQUIRE_SHARED(i_pLock) : m_pLock(i_pLock) {
    m_pLock->LockRead();
  }
  ~CReadLocker() RELEASE() { m_pLock->Unlock(); }
  CReadLocker(const CReadLocker&) = delete;
  CReadLocker& operator=(const CReadLocker&) = delete;

 private:
  CMutexRW* m_pLock;
};

class SCOPED_CAPABILITY CWriteLocker {
 public:
  explicit CWriteLocker(CMutexRW* i_pLock) ACQUIRE(i_pLock) : m_pLock(i_pLock) {
    m_pLock->LockWrite();
  }
  ~CWriteLocker() RELEASE() { m_pLock->Unlock(); }
  CWriteLocker(const CWriteLocker&) = delete;
  CWriteLocker& operator=(const CWriteLocker&) = delete;

 private:
  CMutexRW* m_pLock;
};
