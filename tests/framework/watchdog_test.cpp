#include "framework/watchdog.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ostream>
#include <string>
#include <vector>

#include "framework/clock.h"

namespace {

struct T_Supervision {
  const char* m_pName;
  std::vector<SInt32> m_vecFates;  // of each run in turn: an exit code, or a signal's negative
  SInt32 m_s32ExitCode;            // the supervisor's own
  std::string m_strPrinted;        // a pattern for all that it prints
};

void PrintTo(const T_Supervision& i_refParam, std::ostream* o_pOut) {
  *o_pOut << i_refParam.m_pName;
}

std::string Wait(SInt32 i_s32Status, SInt32 i_s32ExitCode) {
  return "Child Process [0-9]+ wait exited with s32PID=[0-9]+ s32Status=" +
         std::to_string(i_s32Status) + " exit s32Status=" + std::to_string(i_s32ExitCode) + "\n";
}

const std::string kClean = Wait(0, 0) + "child exited cleanly so parent is exiting";
const std::string kFatal = "child exited with -1 fatal error so parent is exiting too.\n";

const T_Supervision kSupervisions[] = {
    {"CleanExit", {0}, 0, kClean},
    {"Exit3", {3, 0}, 0, Wait(768, 3) + "child exited with s32Status=3\n" + kClean},
    {"Exit255", {255}, 1, Wait(65280, -1) + "child exited with s32Status=-1\n" + kFatal},
    {"Segv", {-SIGSEGV, 0}, 0, Wait(11, 0) + "child was signalled, 11.\n" + kClean},
    {"Abort", {-SIGABRT, 0}, 0, Wait(6, 0) + "child was signalled, 6.\n" + kClean},
    {"Kill", {-SIGKILL}, 1, Wait(9, 0)},
    {"Term", {-SIGTERM}, 1, Wait(15, 0)}};

struct T_Runs {
  UInt32 m_u32Count;
  SInt64 m_s64LastEnd;
};

// A run that comes back within the second ends as a fatal one.
void Supervise(const std::vector<SInt32>& i_refFates) {
  auto* const pRuns = static_cast<T_Runs*>(
      mmap(nullptr, sizeof(T_Runs), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  std::fflush(stdout);
  dup2(STDERR_FILENO, STDOUT_FILENO);
  std::printf("before ");
  const SInt32 s32Result = CreateWatchdog("watched");
  const SInt32 s32Fate = s32Result == 0 ? i_refFates.at(pRuns->m_u32Count++) : 255;
  if (CTime::Milliseconds() < pRuns->m_s64LastEnd + 1000) std::exit(255);
  pRuns->m_s64LastEnd = CTime::Milliseconds();
  if (s32Fate >= 0) std::exit(s32Fate);
  prctl(PR_SET_DUMPABLE, 0);
  std::signal(-s32Fate, SIG_DFL);
  std::raise(-s32Fate);
}

class Watchdog : public testing::TestWithParam<T_Supervision> {};

TEST_P(Watchdog, RestartsOrEnds) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(Supervise(GetParam().m_vecFates), testing::ExitedWithCode(GetParam().m_s32ExitCode),
              "^before " + GetParam().m_strPrinted + "$");
}

INSTANTIATE_TEST_SUITE_P(After, Watchdog, testing::ValuesIn(kSupervisions));

TEST(WatchdogVerdict, OtherCrashesRestartAndFailedWaitsAreRepeated) {
  constexpr SInt32 kCoreDumped = 0x80;
  for (const SInt32 s32Status : {7, 8, 11 | kCoreDumped})
    EXPECT_EQ(JudgeWait(5, 5, s32Status).m_eStep, T_WatchdogVerdict::kRestart);
  testing::internal::CaptureStdout();
  EXPECT_EQ(JudgeWait(5, -1, 0).m_eStep, T_WatchdogVerdict::kWaitAgain);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "Child Process 5 wait exited with s32PID=-1 s32Status=0 exit s32Status=0\n"
            "handled signal continue waiting");
  EXPECT_EQ(JudgeWait(5, -1, 3 << 8).m_eStep, T_WatchdogVerdict::kExit);
}

}  // namespace
