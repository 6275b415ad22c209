#include "daemon/common/utils.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <fstream>

#include "tests/log_capture.h"

namespace {

TEST(ShellCommand, GivesTheRawWaitStatusAndLogsIt) {
  CLogCapture log;
  EXPECT_EQ(my_system("exit 3"), 768);
  EXPECT_TRUE(log.Has("INFO my_system cmd<exit 3> status = 768"));
  EXPECT_EQ(my_system("/nonexistent/command 2>/dev/null"), 32512);
  EXPECT_EQ(my_system("kill -9 $$"), SIGKILL);
  log.Take();
  EXPECT_EQ(my_system(nullptr), 1);
  EXPECT_TRUE(log.Take().empty());
}

TEST(ShellCommand, ChildHasDefaultStopSignalsAndTheCallersMask) {
  const auto before = std::signal(SIGTERM, [](int) {});
  EXPECT_EQ(my_system("kill -TERM $$; exit 5"), SIGTERM) << "the shell kept the daemon's handler";
  std::signal(SIGTERM, before);
  for (const int ignored : {SIGPIPE, SIGXFSZ}) {
    std::signal(ignored, SIG_IGN);
    const std::string kill = "kill -" + std::to_string(ignored) + " $$; exit 5";
    EXPECT_EQ(my_system(("ulimit -c 0; " + kill).c_str()), ignored);
    std::signal(ignored, SIG_DFL);
  }
  sigset_t mask;
  sigprocmask(SIG_SETMASK, nullptr, &mask);
  EXPECT_FALSE(sigismember(&mask, SIGINT));
}

TEST(ShellCommand, ChildHasNoDescriptorOfTheCallers) {
  const int open = dup(STDERR_FILENO);  // not closed by exec itself, like the log's
  EXPECT_EQ(my_system(("test ! -e /proc/self/fd/" + std::to_string(open)).c_str()), 0);
  close(open);
}

TEST(ShellCommand, QuotedTextStaysOneWord) {
  for (const std::string hostile :
       {"a b", "'; touch /tmp/x; '", "$(id)`id`\\\"&|<>*?", "line\nbreak", "", "-n"}) {
    const std::string file = testing::TempDir() + "quoted." + std::to_string(getpid());
    ASSERT_EQ(my_system(("printf %s " + ShellQuote(hostile) + " >" + ShellQuote(file)).c_str()), 0);
    std::ifstream in(file);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), hostile);
    unlink(file.c_str());
  }
  EXPECT_EQ(ShellQuote(std::string_view("a\0b", 3)), "'a'");
}

}  // namespace
