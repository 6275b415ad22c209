#include "framework/watchdog.h"

#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <iterator>

#include "framework/assert.h"

namespace {

constexpr UInt32 kRestartPauseInSecs = 1;
constexpr SInt8 kFatalExitCode = -1;
constexpr SInt32 kCrashSignals[] = {SIGABRT, SIGBUS, SIGFPE, SIGSEGV};

// After every line: what stays in the buffer would be printed again by the next child.
void Flush() { std::fflush(stdout); }

Bool IsCrash(SInt32 i_s32Status) {
  return WIFSIGNALED(i_s32Status) &&
         std::ranges::find(kCrashSignals, WTERMSIG(i_s32Status)) != std::end(kCrashSignals);
}

T_WatchdogVerdict JudgeExit(SInt8 i_s8ExitCode) {
  std::printf("child exited with s32Status=%d\n", i_s8ExitCode);
  Flush();
  if (i_s8ExitCode != kFatalExitCode) return {T_WatchdogVerdict::kRestart, 0};
  std::fprintf(stderr, "child exited with -1 fatal error so parent is exiting too.\n");
  return {T_WatchdogVerdict::kExit, EXIT_FAILURE};
}

// Waits for this child until its fate is clear.
T_WatchdogVerdict AwaitVerdict(pid_t i_childPID) {
  T_WatchdogVerdict stVerdict{};
  do {
    SInt32 s32Status = 0;
    const pid_t waitedPID = waitpid(i_childPID, &s32Status, 0);
    stVerdict = JudgeWait(i_childPID, waitedPID, s32Status);
  } while (stVerdict.m_eStep == T_WatchdogVerdict::kWaitAgain);
  return stVerdict;
}

}  // namespace

T_WatchdogVerdict JudgeWait(SInt32 i_s32ChildPID, SInt32 i_s32PID, SInt32 i_s32Status) {
  // Plain char is unsigned on ARM, so the signed byte is asked for by name.
  const SInt8 s8ExitCode = static_cast<SInt8>(WEXITSTATUS(i_s32Status));
  const Bool bWaited = i_s32PID > 0;
  std::printf("Child Process %d wait exited with s32PID=%d s32Status=%d exit s32Status=%d\n",
              i_s32ChildPID, i_s32PID, i_s32Status, s8ExitCode);
  Flush();
  if (bWaited && i_s32Status != 0 && WIFEXITED(i_s32Status)) return JudgeExit(s8ExitCode);
  if (IsCrash(i_s32Status)) {
    std::printf("child was signalled, %d.\n", WTERMSIG(i_s32Status));
    Flush();
    return {T_WatchdogVerdict::kRestart, 0};
  }
  if (i_s32Status != 0) return {T_WatchdogVerdict::kExit, EXIT_FAILURE};
  if (bWaited) {
    std::printf("child exited cleanly so parent is exiting");
    Flush();
    return {T_WatchdogVerdict::kExit, EXIT_SUCCESS};
  }
  std::printf("handled signal continue waiting");
  Flush();
  return {T_WatchdogVerdict::kWaitAgain, 0};
}

SInt32 CreateWatchdog(const char* /*i_pName*/) {
  // A launcher that ignores SIGCHLD hands that down, and then no wait ever finds a child.
  std::signal(SIGCHLD, SIG_DFL);
  while (true) {
    Flush();
    const pid_t processID = fork();
    OSD_ASSERT(processID >= 0, "processID >= 0", "watchdog", 28);
    if (processID == 0) return 0;
    const T_WatchdogVerdict stVerdict = AwaitVerdict(processID);
    if (stVerdict.m_eStep == T_WatchdogVerdict::kExit) std::exit(stVerdict.m_s32ExitCode);
    sleep(kRestartPauseInSecs);
  }
}
