#include "framework/clock.h"

#include <algorithm>
#include <ctime>

static_assert(sizeof(time_t) == 8, "a 32-bit build wants _TIME_BITS=64");

SInt64 CTime::Milliseconds() {
  timespec stNow{};
  if (clock_gettime(CLOCK_MONOTONIC, &stNow) != 0) return -1;
  return SInt64{stNow.tv_sec} * 1000 + stNow.tv_nsec / 1000000;
}

SInt64 CTime::Microseconds() {
  timespec stNow{};
  if (clock_gettime(CLOCK_MONOTONIC, &stNow) != 0) return -1;
  return SInt64{stNow.tv_sec} * 1000000 + stNow.tv_nsec / 1000;
}

SInt32 CTime::ClampWait(SInt64 i_s64Milliseconds) {
  return static_cast<SInt32>(std::min(i_s64Milliseconds, SInt64{kLongestWait}));
}
