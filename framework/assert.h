// Assertions: they catch programmers' mistakes only and are never compiled out. Text, source name
// and line are an assertion's identity in field reports: each check carries them, whatever its file
// looks like today. Where it says __LINE__ no line was ever agreed on; the text tells such a check.
#pragma once

#include "framework/types.h"

// Prints "PROGRAM: SOURCE:LINE: FUNCTION: Assertion `TEXT' failed." to standard error, as the C
// library's assert does, and aborts the process. Any thread.
[[noreturn]] void AssertFailed(const char* i_pText, const char* i_pSource, UInt32 i_u32Line,
                               const char* i_pFunction);

#define OSD_ASSERT(i_bHolds, i_pText, i_pSource, i_u32Line) \
  ((i_bHolds) ? static_cast<void>(0)                        \
              : AssertFailed(i_pText, i_pSource, i_u32Line, __PRETTY_FUNCTION__))
