// Supervision: the process forks, and the parent stays behind to restart the child when it crashes.
// Called by process start-up, before any thread exists.
#pragma once

#include "framework/types.h"

// What the supervisor does after a wait.
struct T_WatchdogVerdict {
  enum Step : SInt32 { kRestart, kWaitAgain, kExit };
  Step m_eStep;
  SInt32 m_s32ExitCode;  // with kExit
};

// Returns 0 in each child in turn, which goes on as the daemon. The parent never returns: it exits
// with 0 after a child that exited with 0, and with 1 after one that exited with 255 or was killed
// by a signal other than SIGABRT, SIGBUS, SIGFPE and SIGSEGV. After these four and after any other
// exit code it forks again, a second later.
SInt32 CreateWatchdog(const char* i_pName);

// Judges one wait and prints the supervisor's lines about it: the child that was forked, the wait's
// result (negative: it failed) and the raw status, 0 after a failed wait.
T_WatchdogVerdict JudgeWait(SInt32 i_s32ChildPID, SInt32 i_s32PID, SInt32 i_s32Status);
