// A recursive mutex that knows its holder, and its scoped locker. The POSIX mutex beneath is of the
// plain kind: recursion comes from the bookkeeping alone. Any thread; a copy or a move makes no
// sense. A mutex that must outlive every thread is a function-local object that is never destroyed.
#pragma once

#include <pthread.h>

#include <atomic>

#include "framework/thread_annotations.h"
#include "framework/types.h"

// The attributes of every mutex: created with the first one, never destroyed.
extern pthread_mutexattr_t* g_pMutexAttr;
extern pthread_once_t g_stMutexAttrInit;

class CAPABILITY("mutex") CMutex {
 public:
  // Free. Lack of memory is fatal.
  CMutex();
  // Nobody may hold it: asserted.
  ~CMutex();
  CMutex(const CMutex&) = delete;
  CMutex& operator=(const CMutex&) = delete;

  // Blocks until the caller holds it. The holder may lock again, and owes one unlock for each lock.
  void RecursiveLock() ACQUIRE();

  // Only the holder may unlock: asserted.
  void RecursiveUnlock() RELEASE();

  // Never blocks. True when the caller now holds it (once more), false when another thread does.
  Bool RecursiveTryLock() TRY_ACQUIRE(true);

 private:
  // A wait on a condition gives the POSIX mutex away for a while, and the bookkeeping with it.
  friend class CCond;
  void GiveUpForWait() REQUIRES(this);
  void TakeBackAfterWait() REQUIRES(this);

  pthread_mutex_t m_stMutex;
  // 0 when free. Relaxed everywhere: a thread can only ever read its own identity here if it wrote
  // it itself, and any other value means "not mine".
  std::atomic<pthread_t> m_stHolder{0};
  UInt32 m_u32HolderCount GUARDED_BY(this) = 0;
};

// Holds a mutex over a block, also when an exception passes.
class SCOPED_CAPABILITY CMutexLocker {
 public:
  // i_pMutex outlives it.
  explicit CMutexLocker(CMutex* i_pMutex) ACQUIRE(i_pMutex) : m_pMutex(i_pMutex) {
    m_pMutex->RecursiveLock();
  }
  ~CMutexLocker() RELEASE() { m_pMutex->RecursiveUnlock(); }
  CMutexLocker(const CMutexLocker&) = delete;
  CMutexLocker& operator=(const CMutexLocker&) = delete;

 private:
  CMutex* m_pMutex;
};
