// What a log line costs, beside write(2) of the same ready bytes to the same kind of file, all in one
// run: the caller's side alone, and everything that both threads do until the line is in the file.
// A file in the working directory and the one that is given.

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "framework/log.h"
#include "framework/thread.h"
#include "framework/types.h"

namespace {

constexpr int kRounds = 200;
constexpr int kLines = 1000;  // a round's: they fit into the log's memory

double Now(clockid_t i_clock) {
  timespec now{};
  clock_gettime(i_clock, &now);
  return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

struct T_Cost {
  double m_caller = 0;  // ns of the calling thread, a line
  double m_all = 0;     // ns of all threads, a line
};

// The middle round: of the others some were interrupted.
template <class T_Round>
T_Cost Measure(const T_Round& i_round) {
  std::vector<double> callers;
  std::vector<double> all;
  for (int round = 0; round < kRounds; ++round) {
    const double process = Now(CLOCK_PROCESS_CPUTIME_ID);
    const double caller = Now(CLOCK_THREAD_CPUTIME_ID);
    i_round();
    callers.push_back((Now(CLOCK_THREAD_CPUTIME_ID) - caller) / kLines);
    CThread::Sleep(40);
    all.push_back((Now(CLOCK_PROCESS_CPUTIME_ID) - process) / kLines);
  }
  std::ranges::nth_element(callers, callers.begin() + kRounds / 2);
  std::ranges::nth_element(all, all.begin() + kRounds / 2);
  return {callers[kRounds / 2], all[kRounds / 2]};
}

}  // namespace

int main(int argc, char** argv) {
  const std::filesystem::path folder = argc > 1 ? argv[1] : ".";
  const std::string strLog = folder / "log_bench.log";
  const std::string strConf = folder / "log_bench.conf";
  std::ofstream(strConf) << "log4cpp.rootCategory=INFO\n"
                            "log4cpp.category.CATEGORY=INFO, FILE\n"
                            "log4cpp.appender.FILE=RollingFileAppender\n"
                            "log4cpp.appender.FILE.fileName="
                         << strLog
                         << "\nlog4cpp.appender.FILE.maxFileSize=1048576\n"
                            "log4cpp.appender.FILE.maxBackupIndex=1\n"
                            "log4cpp.appender.FILE.layout=PatternLayout\n"
                            "log4cpp.appender.FILE.layout.ConversionPattern="
                            "%d{%Y-%m-%d %H:%M:%S.%l} %p %m%n\n";
  CThread::Initialize(0x40000);
  if (!CLog::Configure(strConf.c_str())) return 1;
  const auto log = [] {
    for (int line = 0; line < kLines; ++line)
      LOG_INFO("Recv from <%s:%u>, msg<%#x>, seq<%d>, %zu bytes", "127.0.0.1", 9636U, 0x1234U, line,
               size_t{88});
  };
  const T_Cost stBefore = Measure(log);
  CLog::Start();
  const T_Cost stOurs = Measure(log);
  CLog::Shutdown();
  std::string strLine;
  std::ifstream lines(strLog);
  while (strLine.empty() && std::getline(lines, strLine)) {
  }
  strLine += '\n';
  const int fd = open(strLog.c_str(), O_WRONLY | O_APPEND | O_TRUNC | O_CLOEXEC);
  const T_Cost stWrite = Measure([&] {
    for (int line = 0; line < kLines; ++line)
      static_cast<void>(!write(fd, strLine.data(), strLine.size()));
    static_cast<void>(!ftruncate(fd, 0));
  });
  close(fd);
  std::printf("log line, %zu bytes        ns  write(2)s of them\n", strLine.size());
  const auto row = [&](const char* i_pName, double i_ns) {
    std::printf("%-22s %8.0f  %.2f\n", i_pName, i_ns, i_ns / stWrite.m_caller);
  };
  row("write(2)", stWrite.m_caller);
  row("caller", stOurs.m_caller);
  row("caller and writer", stOurs.m_all);
  row("without the writer", stBefore.m_all);
  for (const auto& path : {strLog, strLog + ".1", strConf}) std::filesystem::remove(path);
  return 0;
}
