#include "framework/log.h"

#include <gmock/gmock.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <log4cpp/BasicLayout.hh>
#include <log4cpp/Category.hh>
#include <log4cpp/NDC.hh>
#include <log4cpp/PatternLayout.hh>
#include <log4cpp/RollingFileAppender.hh>
#include <log4cpp/SimpleLayout.hh>
#include <map>
#include <random>
#include <thread>

#include "framework/assert.h"
#include "framework/format.h"
#include "framework/log_layout.h"
#include "framework/thread.h"
#include "tests/log_capture.h"

namespace {

using Path = std::filesystem::path;

std::string ReadFile(const Path& i_path) {
  std::ifstream file(i_path);
  return {std::istreambuf_iterator<char>(file), {}};
}

// The category with one file, until the end of the test.
class CLogFolder {
 public:
  explicit CLogFolder(const std::string& i_settings =
                          "layout=PatternLayout\n"
                          "layout.ConversionPattern=%p %m%n\n")
      : m_path(testing::TempDir() + "osd-log-" + std::to_string(getpid())) {
    std::filesystem::create_directory(m_path);
    std::istringstream settings("fileName=" + (m_path / "log").string() + "\n" + i_settings);
    std::ofstream conf(m_path / "conf");
    conf
        << "log4cpp.rootCategory=INFO\nlog4cpp.category.CATEGORY=INFO, F\nlog4cpp.appender.F=RollingFileAppender\n";
    for (std::string line; std::getline(settings, line);)
      conf << "log4cpp.appender.F." << line << "\n";
    conf.close();
    CThread::Initialize(0x40000);
    EXPECT_TRUE(CLog::Configure((m_path / "conf").c_str()));
  }
  ~CLogFolder() {
    CLog::Shutdown();
    std::filesystem::remove_all(m_path);
  }
  Path Log() const { return m_path / "log"; }
  const Path& Folder() const { return m_path; }

 private:
  Path m_path;
};

__attribute__((format(printf, 2, 0))) std::string Formatted(size_t i_size, const char* i_format,
                                                            ...) {
  std::string text(i_size, '#');
  va_list arguments;
  va_start(arguments, i_format);
  text.resize(Format(text.data(), i_size, i_format, arguments));
  va_end(arguments);
  return text;
}

TEST(Log, FormatsLikePrintf) {
  std::mt19937_64 random(1);
  const auto any = [&](auto... i_choices) {
    const std::string choices[] = {i_choices...};
    return choices[random() % std::size(choices)];
  };
  const char* const aTexts[] = {"", "some text", "\xff", nullptr};
  char expected[40];
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
  for (int round = 0; round < 200000; ++round) {
    const std::string flags = any("%", "%0", "%-", "%#", "%-0", "%#0", "%+", "% ");
    const std::string width = any("", "1", "7", "19", "50") + any("", "", "", ".", ".3", ".12");
    const std::string length = any("", "l", "ll", "z");
    const char conversion = any("d", "u", "x", "X", "o", "i", "s", "c")[0];
    const UInt64 value = random() >> random() % 64;
    const std::string format = any("", "%%", "some literal text ") + flags + width +
                               (conversion == 's' || conversion == 'c' ? "" : length) + conversion +
                               any("", "|") + "%d";
    const auto check = [&](auto i_value) {
      const auto size = static_cast<size_t>(random() % sizeof(expected) + 1);
      snprintf(expected, size, format.c_str(), i_value, round);
      ASSERT_EQ(Formatted(size, format.c_str(), i_value, round), std::string(expected))
          << format << ", in " << size;
    };
    if (conversion == 's')
      check(aTexts[value % std::size(aTexts)]);
    else if (length.empty() || conversion == 'c')
      check(static_cast<int>(value));
    else if (length == "l")
      check(static_cast<long>(value));
    else if (length == "ll")
      check(static_cast<long long>(value));
    else
      check(static_cast<size_t>(value));
  }
#pragma GCC diagnostic pop
}

TEST(Log, LayoutsAreLog4cppsToTheByte) {
  log4cpp::NDC::push("context");
  log4cpp::LoggingEvent event("CATEGORY", "a message", log4cpp::NDC::get(), 0);
  const auto compare = [&](log4cpp::Layout& i_layout) {
    std::optional<CLogLayout> layout = CLogLayout::Of(i_layout);
    if (!layout) return false;
    for (const unsigned at : {0U, 951782399U, 1719835199U, 1719835199U, 1719835200U})
      for (const int priority : {300, 400, 500, 600, 700}) {
        event.timeStamp =
            log4cpp::TimeStamp(at, (at + 7654321U * static_cast<UInt32>(priority)) % 1000000);
        event.priority = priority;
        const T_LogLine line{priority,
                             {static_cast<time_t>(at), event.timeStamp.getMicroSeconds() * 1000L},
                             event.message,
                             0};
        std::string ours(layout->MostBytes(line), '#');
        ours.resize(static_cast<size_t>(layout->Write(line, ours.data()) - ours.data()));
        EXPECT_EQ(ours, i_layout.format(event));
      }
    return true;
  };
  log4cpp::BasicLayout basic;
  log4cpp::SimpleLayout simple;
  EXPECT_TRUE(compare(basic));
  EXPECT_TRUE(compare(simple));
  log4cpp::PatternLayout pattern;
  const auto compares = [&](const std::string& i_pattern) {
    pattern.setConversionPattern(i_pattern);
    return compare(pattern);
  };
  for (const char* const text :
       {"%m%n", "%d{%Y-%m-%d %H:%M:%S.%l} %p %m%n", "%d %d{ISO8601} %d{ABSOLUTE}|%d{DATE}",
        "%d{%j%% %l of %s%n} %t [%x]", "%-9p|%9p|%2.3p|%.1p|%-40m|%40m|%.4m|%-7.2c|", "%c{2}%c%R",
        "no conversion", "%d{}%d{%H}%%%n%%%m%m"})
    EXPECT_TRUE(compares(text)) << text;
  for (const char* const text : {"%r", "%u %m", "%5%%m", "%d{%%l}"})  // left to log4cpp
    EXPECT_FALSE(compares(text)) << text;
  log4cpp::NDC::clear();
}

std::map<std::string, std::string> Files(const Path& i_folder) {
  std::map<std::string, std::string> files;
  for (const auto& file : std::filesystem::directory_iterator(i_folder))
    if (file.path().filename().string().starts_with("log"))
      files[file.path().filename()] = ReadFile(file.path());
  return files;
}

TEST(Log, RollsAsLog4cppDoes) {
  for (const UInt32 backups : {0U, 1U, 3U, 12U}) {
    const CLogFolder ours("maxFileSize=300\nappend=false\nlayout=SimpleLayout\nmaxBackupIndex=" +
                          std::to_string(backups));
    CLog::Start();
    const Path folder = ours.Folder() / "theirs";
    std::filesystem::create_directory(folder);
    log4cpp::RollingFileAppender theirs("theirs", folder / "log", 300, backups, false);
    theirs.setLayout(new log4cpp::SimpleLayout);
    for (int i = 0; i < 100; ++i) {
      const std::string text(static_cast<size_t>(i) * 37 % 110, 'x');
      CLog::Write(CLog::kInfo, "file", 7, "%d %s", i, text.c_str());
      theirs.doAppend(log4cpp::LoggingEvent(
          "CATEGORY", std::to_string(i) + " " + text + " --[file:7]", "", 600));
    }
    CLog::Shutdown();
    EXPECT_EQ(Files(ours.Folder()), Files(folder));
  }
}

TEST(Log, NoTextEndsALineOrTakesItsSourceAway) {
  CLogCapture log;
  LOG_INFO("<%s>", "a\n\x1f \x7f\x80\x9f\xa0\\");
  EXPECT_TRUE(log.Has("INFO <a\\x0a\\x1f \\x7f\\x80\\x9f\xa0\\>"));
  LOG_INFO(" --[%s", std::string(9000, '\r').c_str());  // would be taken for the missing source
  const std::string last = log.Take().back();
  EXPECT_EQ(last.size(), strlen("INFO  --[") + (8191 - strlen(" --[")) * 4);
  const CLogFolder folder;
  LOG_INFO(" --[%s", std::string(9000, '\r').c_str());
  EXPECT_THAT(ReadFile(folder.Log()), testing::StartsWith(last));
}

TEST(Log, LosesNoLineWhileItsFileMovesAndTellsWhenItHasNone) {
  const CLogFolder folder;
  testing::internal::CaptureStderr();
  std::thread writer([] {
    errno = ENOSPC;  // of something else
    for (int line = 0; line < 20000; ++line) LOG_INFO("line");
    EXPECT_EQ(errno, ENOSPC);
  });
  for (int move = 0; move < 1000; ++move) {
    if (move == 500) CLog::Start();
    std::filesystem::rename(folder.Log(), folder.Folder() / "moved");
    if (move % 2 != 0) std::ofstream(folder.Log());  // as who moves it may do
    CLog::FollowFiles();
  }
  writer.join();
  CLog::FollowFiles();
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  std::filesystem::remove(folder.Log());
  ASSERT_EQ(mkfifo(folder.Log().c_str(), 0600), 0);  // whoever opens it waits for a reader
  testing::internal::CaptureStderr();
  CLog::FollowFiles();
  LOG_INFO("lost");
  CLog::Shutdown();
  EXPECT_FALSE(CLog::Configure((folder.Folder() / "conf").c_str()));
  std::filesystem::remove(folder.Log());
  EXPECT_TRUE(CLog::Configure((folder.Folder() / "conf").c_str()));
  EXPECT_THAT(testing::internal::GetCapturedStderr(), testing::StartsWith("osdsrv: cannot write"));
}

// The log's thread, held as by a disk that hangs until a byte comes.
int s_aHold[2];
void Hold(int /*i_signal*/) {
  char c = 0;
  static_cast<void>(!read(s_aHold[0], &c, 1));
}
pid_t LogThread() {
  for (const auto& task : std::filesystem::directory_iterator("/proc/self/task"))
    if (ReadFile(task.path() / "comm") == "osdlog\n") return std::stoi(task.path().filename());
  return 0;
}

TEST(Log, NobodyWaitsForAHungFileAndWhatWasDroppedIsCounted) {
  const CLogFolder folder;
  CLog::Start();
  ASSERT_EQ(pipe(s_aHold), 0);
  std::signal(SIGUSR1, Hold);
  while (LogThread() == 0) std::this_thread::yield();
  ASSERT_EQ(tgkill(getpid(), LogThread(), SIGUSR1), 0);
  const std::string text(100, 'x');
  std::thread threads[4];
  for (std::thread& thread : threads)
    thread = std::thread([&] {
      for (int line = 0; line < 2500; ++line)
        if (line % 2 == 0)  // too many for each of them to wait
          LOG_ERROR("%s", text.c_str());
        else
          LOG_INFO("%s", text.c_str());
    });
  for (std::thread& thread : threads) thread.join();
  ASSERT_EQ(write(s_aHold[1], "", 1), 1);
  CLog::Shutdown();
  const std::string log = ReadFile(folder.Log());
  const size_t told = log.find(" log lines were dropped");
  ASSERT_NE(told, std::string::npos);
  const long dropped = std::stol(log.substr(log.rfind(' ', told - 1)));
  long whole = 0;
  for (size_t at = 0; (at = log.find(" " + text + " --[log_test.cpp", at)) != log.npos; ++at)
    ++whole;
  EXPECT_EQ(whole + dropped, 10000);
  EXPECT_GT(dropped, 5000);
}

TEST(Log, AnEndWritesWhatWasLoggedJustBefore) {
  for (int round = 0; round < 50; ++round) {
    const CLogFolder folder;
    CLog::Start();
    LOG_INFO("last");
    CLog::Shutdown();
    EXPECT_THAT(ReadFile(folder.Log()), testing::StartsWith("INFO last"));
  }
}

int Overflow(volatile int* i_p) {
  volatile int big[1000];
  big[0] = *i_p;
  if (big[0] > 0) return 0;
  return Overflow(big) + big[1];
}

TEST(Log, ACrashWritesWhatWasLoggedAndStaysThatCrash) {
  const std::pair<int, void (*)()> aCrashes[] = {
      {SIGSEGV,
       [] {
         *static_cast<volatile char*>(
             mmap(nullptr, 1, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)) = 1;
       }},
      {SIGSEGV,
       [] {
         volatile int start = 0;
         Overflow(&start);
       }},
      {SIGBUS, [] { kill(getpid(), SIGBUS); }},
      {SIGFPE, [] { raise(SIGFPE); }},
      {SIGABRT, [] { OSD_ASSERT(getpid() == 0, "a failed assertion", "test", 1); }}};
  for (const auto& [signal, crash] : aCrashes) {
    const CLogFolder folder;
    auto* const pLogged = static_cast<std::atomic<int>*>(
        mmap(nullptr, sizeof(int), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    const pid_t child = fork();
    if (child == 0) {
      for (const int each : {SIGSEGV, SIGBUS, SIGFPE, SIGABRT}) std::signal(each, SIG_DFL);
      CLog::Start();
      for (int line = 0; line < 1000; ++line) LOG_INFO("%d", line);
      std::thread([pLogged] {
        for (int line = 1;; ++line) {
          LOG_ERROR("beside %d", line);
          *pLogged = line;
          std::this_thread::yield();
        }
      }).detach();
      while (*pLogged < 10) std::this_thread::yield();
      crash();
      _exit(0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(WTERMSIG(status), signal);
    const std::string log = ReadFile(folder.Log());
    EXPECT_THAT(log, testing::HasSubstr("INFO 999 --["));
    EXPECT_THAT(log, testing::HasSubstr("beside " + std::to_string(*pLogged) + " --["));
  }
}

}  // namespace
