// A condition variable to be used with a CMutex. Waits are bounded in milliseconds, with a rounding
// of their own, on the monotonic clock: whoever sets the time of day does not prolong them. Any
// thread.
#pragma once

#include <pthread.h>

#include <ctime>

#include "framework/mutex.h"
#include "framework/types.h"

class CCond {
 public:
  // Lack of memory is fatal.
  CCond();
  // Nobody may be waiting.
  ~CCond();
  CCond(const CCond&) = delete;
  CCond& operator=(const CCond&) = delete;

  // Waits with i_pMutex held by the caller, and holds it again on return. Returns when signalled,
  // at the deadline, or for no reason at all; the caller tests its condition again. 0 ms waits
  // without limit; another wait needs a clock that can be read: asserted. A mutex held more than
  // once is released all the same while waiting, and nobody else may then lock it: hold it once.
  void TimedWait(CMutex* i_pMutex, SInt32 i_s32TimeoutInMilSecs) REQUIRES(i_pMutex);

  // Wake one waiter, or all. With or without the mutex held: who tests under it misses nothing.
  void Signal();
  void Broadcast();

  // When a wait of i_s32TimeoutInMilSecs that begins at i_s64Now, in microseconds, ends. Whole
  // seconds last 5 ms longer than asked; a rest above 10 ms is cut to tens of ms, less 2; a rest of
  // 1 to 10 ms becomes 5.
  static timespec Deadline(SInt64 i_s64Now, SInt32 i_s32TimeoutInMilSecs);

 private:
  pthread_cond_t m_stCond;
};
