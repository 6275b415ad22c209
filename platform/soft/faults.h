// Faults of the software screen, ordered by a test that runs in the same process. Any thread.
#pragma once

#include "framework/types.h"

// Calls that are no driver request; a request is named by its own number (platform/records.h).
enum : UInt32 { kSoftCallOpen = 1, kSoftCallAlloc = 2 };

// Lets the i_u32Nth next call (1 = the very next) of i_u32Call fail with i_s32Errno and without
// any effect; calls that are refused for another reason count as well. Each order fires once;
// several may stand at a time.
void SoftFail(UInt32 i_u32Call, UInt32 i_u32Nth, SInt32 i_s32Errno);

// Withdraws every order that has not fired.
void SoftFailNothing();

// What callers hold now, so that a test sees what was not given back.
struct T_SoftUsage {
  UInt32 m_u32OpenDevices;
  UInt32 m_u32Canvases;
};
T_SoftUsage SoftUsage();
