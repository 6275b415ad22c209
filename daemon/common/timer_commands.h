// What the timer service, module 3 of the bus, is asked for, and what it answers with: the bodies of
// these messages. Words in native byte order. Sending one copies it, so nothing is owned by it.
#pragma once

#include <cstddef>

#include "daemon/common/module_msg.h"

// As a request without a body: scan now. Also the number under which an expiry comes.
inline constexpr UInt32 kMsgTimer = 3;

// Starts a timer for the sender. One that is added twice is two timers.
struct T_TimerAdd {
  static constexpr UInt32 kMsgNo = 0x400;

  UInt32 m_u32Type;      // the sender's; 0 = once, any other value = periodically
  UInt32 m_u32Id;        // the sender's
  UInt32 m_u32Interval;  // ms: the first delay, and the period
  UInt32 m_aOwn[254];    // the sender's; not looked at, and all but the last one are sent back
};
static_assert(offsetof(T_TimerAdd, m_u32Id) == 4 && offsetof(T_TimerAdd, m_u32Interval) == 8 &&
              offsetof(T_TimerAdd, m_aOwn) == 12 &&
              sizeof(T_TimerAdd) == T_ModuleMsg::kPayloadSize);

// Ends all timers of the sender that have this type and id; that there are none is no failure.
struct T_TimerCancel {
  static constexpr UInt32 kMsgNo = 0x401;

  UInt32 m_u32Type;
  UInt32 m_u32Id;
};
static_assert(offsetof(T_TimerCancel, m_u32Id) == 4);

// Comes from the service to the module that added the timer, in the way (synchronously or not) in
// which it was added: the first 1024 bytes of what the timer was added with.
struct T_TimerExpiry {
  static constexpr UInt32 kMsgNo = kMsgTimer;

  UInt32 m_u32Type;
  UInt32 m_u32Id;
  UInt32 m_u32Interval;
  UInt32 m_aOwn[253];
};
static_assert(offsetof(T_TimerExpiry, m_u32Id) == 4 && offsetof(T_TimerExpiry, m_aOwn) == 12 &&
              sizeof(T_TimerExpiry) == 1024);
