// The monotonic clock: every deadline of the framework is a value of it. Any thread.
#pragma once

#include "framework/types.h"

class CTime {
 public:
  // The longest wait that is handed to a 32-bit wait; the waiter looks again afterwards.
  static constexpr SInt32 kLongestWait = 0x0FFFFFFF;

  // -1 when the clock cannot be read.
  static SInt64 Milliseconds();
  static SInt64 Microseconds();

  // Milliseconds, cut to kLongestWait.
  static SInt32 ClampWait(SInt64 i_s64Milliseconds);
};
