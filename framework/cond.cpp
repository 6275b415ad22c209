#include "framework/cond.h"

#include "framework/assert.h"
#include "framework/clock.h"

namespace {

// The rest of a timeout below one second, cut to tens of milliseconds less 2; 5 when it is short.
SInt32 RestInMilliseconds(SInt32 i_s32TimeoutInMilSecs) {
  const SInt32 s32Rest = i_s32TimeoutInMilSecs % 1000;
  return s32Rest > 10 ? s32Rest / 10 * 10 - 2 : 5;
}

}  // namespace

CCond::CCond() {
  pthread_condattr_t stAttr;
  pthread_condattr_init(&stAttr);
  const SInt32 ret = pthread_cond_init(&m_stCond, &stAttr);
  OSD_ASSERT(ret == 0, "ret == 0", "cond", 16);
  pthread_condattr_destroy(&stAttr);
}

CCond::~CCond() { pthread_cond_destroy(&m_stCond); }

void CCond::TimedWait(CMutex* i_pMutex, SInt32 i_s32TimeoutInMilSecs) {
  i_pMutex->GiveUpForWait();
  if (i_s32TimeoutInMilSecs == 0) {
    pthread_cond_wait(&m_stCond, &i_pMutex->m_stMutex);
  } else {
    const SInt64 s64Now = CTime::Microseconds();
    OSD_ASSERT(RestInMilliseconds(i_s32TimeoutInMilSecs) < 1000, "i_s32TimeoutInMilSecs < 1000",
               "cond", 57);
    // Without a clock every wait would end at once, and its caller spin.
    OSD_ASSERT(s64Now >= 0, "stTimeValue.tv_usec < 1000000", "cond", 59);
    const timespec stDeadline = Deadline(s64Now, i_s32TimeoutInMilSecs);
    pthread_cond_clockwait(&m_stCond, &i_pMutex->m_stMutex, CLOCK_MONOTONIC, &stDeadline);
  }
  i_pMutex->TakeBackAfterWait();
}

void CCond::Signal() { pthread_cond_signal(&m_stCond); }

void CCond::Broadcast() { pthread_cond_broadcast(&m_stCond); }

timespec CCond::Deadline(SInt64 i_s64Now, SInt32 i_s32TimeoutInMilSecs) {
  const SInt64 s64Wait =
      SInt64{i_s32TimeoutInMilSecs / 1000} * 1000 + RestInMilliseconds(i_s32TimeoutInMilSecs);
  const SInt64 s64Deadline = i_s64Now + s64Wait * 1000;
  return {static_cast<time_t>(s64Deadline / 1000000),
          static_cast<long>(s64Deadline % 1000000 * 1000)};
}
