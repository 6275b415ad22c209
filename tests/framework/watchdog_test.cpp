#include "framework/watchdog.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <csignal>

#include "framework/clock.h"

namespace {

// The first run ends with i_s32Fate: an exit code, or a signal's negative. The second one ends
// cleanly, or fatally when it comes within the second.
void Supervise(SInt32 i_s32Fate) {
  auto* const pFirstEnd = static_cast<SInt64*>(
      mmap(nullptr, sizeof(SInt64), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  std::fflush(stdout);
  dup2(STDERR_FILENO, STDOUT_FILENO);
  std::printf("before\n");
  std::signal(SIGCHLD, SIG_IGN);  // as a launcher may hand it down
  if (CreateWatchdog("watched") != 0) std::exit(255);
  const SInt64 s64Now = CTime::Milliseconds();
  if (*pFirstEnd != 0) std::exit(s64Now < *pFirstEnd + 1000 ? 255 : 0);
  *pFirstEnd = s64Now;
  if (i_s32Fate >= 0) std::exit(i_s32Fate);
  prctl(PR_SET_DUMPABLE, 0);
  std::signal(-i_s32Fate, SIG_DFL);
  std::raise(-i_s32Fate);
}

TEST(Watchdog, RestartsAfterACrashOrABadExitAndElseEnds) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const std::string wait = "Child Process [0-9]+ wait exited with s32PID=[0-9]+ s32Status=";
  const std::string end = wait + "0 exit s32Status=0\nchild exited cleanly so parent is exiting";
  // Fate, the supervisor's exit code, what it prints after the first words.
  const std::tuple<SInt32, SInt32, std::string> aSupervisions[] = {
      {3, 0, "768 exit s32Status=3\nchild exited with s32Status=3\n" + end},
      {255, 1,
       "65280 exit s32Status=-1\nchild exited with s32Status=-1\n"
       "child exited with -1 fatal error so parent is exiting too.\n"},
      {-SIGSEGV, 0, "11 exit s32Status=0\nchild was signalled, 11.\n" + end},
      {-SIGABRT, 0, "6 exit s32Status=0\nchild was signalled, 6.\n" + end},
      {-SIGKILL, 1, "9 exit s32Status=0\n"},
      {-SIGTERM, 1, "15 exit s32Status=0\n"}};
  for (const auto& [fate, exitCode, printed] : aSupervisions)
    EXPECT_EXIT(Supervise(fate), testing::ExitedWithCode(exitCode),
                "^before\n" + wait + printed + "$");
}

TEST(Watchdog, OtherCrashesRestartAndFailedWaitsAreRepeated) {
  for (const SInt32 s32Status : {7, 8, 0x80 | 11})  // the last one dumped core
    EXPECT_EQ(JudgeWait(5, 5, s32Status).m_eStep, T_WatchdogVerdict::kRestart);
  EXPECT_EQ(JudgeWait(5, -1, 0).m_eStep, T_WatchdogVerdict::kWaitAgain);
}

}  // namespace
