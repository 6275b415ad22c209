#include "framework/cond.h"

#include "framework/assert.h"

namespace {

constexpr long kNanosecondsPerSecond = 1000000000;

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
    timeval stTimeValue{};
    gettimeofday(&stTimeValue, nullptr);
    OSD_ASSERT(RestInMilliseconds(i_s32TimeoutInMilSecs) < 1000, "i_s32TimeoutInMilSecs < 1000",
               "cond", 57);
    OSD_ASSERT(stTimeValue.tv_usec < 1000000, "stTimeValue.tv_usec < 1000000", "cond", 59);
    const timespec stDeadline = Deadline(stTimeValue, i_s32TimeoutInMilSecs);
    pthread_cond_timedwait(&m_stCond, &i_pMutex->m_stMutex, &stDeadline);
  }
  i_pMutex->TakeBackAfterWait();
}

void CCond::Signal() { pthread_cond_signal(&m_stCond); }

void CCond::Broadcast() { pthread_cond_broadcast(&m_stCond); }

timespec CCond::Deadline(const timeval& i_stNow, SInt32 i_s32TimeoutInMilSecs) {
  timespec stDeadline{};
  stDeadline.tv_sec = i_stNow.tv_sec + i_s32TimeoutInMilSecs / 1000;
  const long lRest = RestInMilliseconds(i_s32TimeoutInMilSecs);
  stDeadline.tv_nsec = (lRest * 1000 + i_stNow.tv_usec) * 1000;
  if (stDeadline.tv_nsec >= kNanosecondsPerSecond) {
    ++stDeadline.tv_sec;
    stDeadline.tv_nsec -= kNanosecondsPerSecond;
  }
  return stDeadline;
}
