// What a log line costs in processor time, beside write(2) of the same ready bytes to the same kind
// of file: all that both threads do until the line is in the file, and the caller's side alone.
#include <fcntl.h>

#include <ctime>
#include <fstream>

#include "bench/bench.h"
#include "framework/log.h"
#include "framework/thread.h"

namespace {

constexpr UInt32 kLines = 1000;  // a round's: they fit into the log's memory

double Microseconds(clockid_t i_clock) {
  timespec now{};
  clock_gettime(i_clock, &now);
  return static_cast<double>(now.tv_sec) * 1e6 + static_cast<double>(now.tv_nsec) / 1e3;
}

// A line's, in us.
struct T_Cost {
  double m_caller;
  double m_all;
};

template <class F>
T_Cost Measure(F&& i_round) {
  const double process = Microseconds(CLOCK_PROCESS_CPUTIME_ID);
  const double caller = Microseconds(CLOCK_THREAD_CPUTIME_ID);
  i_round();
  const double callers = Microseconds(CLOCK_THREAD_CPUTIME_ID) - caller;
  CThread::Sleep(80);  // the writer writes meanwhile
  return {callers / kLines, (Microseconds(CLOCK_PROCESS_CPUTIME_ID) - process) / kLines};
}

}  // namespace

int main(int argc, char** argv) {
  const CBench bench(argc, argv);
  if (!CLog::Configure((DeviceRoot() + "/usr/local/etc/ztosdlog.conf").c_str())) Die("no log");
  CThread::Initialize(0x40000);
  CLog::Start();
  LOG_INFO("Recv from <%s:%u>, msg<%#x>, seq<%d>, %zu bytes", "127.0.0.1", 9636U, 0x1234U, 100,
           size_t{88});
  CThread::Sleep(200);
  std::string line;
  std::ifstream log(DeviceRoot() + "/var/log/osdsrv.log");
  while (line.find("Recv") == line.npos && std::getline(log, line)) continue;
  if (line.empty()) Die("the log has no line");
  line += '\n';
  const int fd =
      open((DeviceRoot() + "/written").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  T_Row all;
  T_Row caller;
  for (UInt32 round = 0; round < bench.Rounds(); ++round) {
    const T_Cost written = Measure([&] {
      for (UInt32 i = 0; i < kLines; ++i)
        if (write(fd, line.data(), line.size()) < 0) Die("cannot write");
    });
    const T_Cost ours = Measure([] {
      for (UInt32 i = 0; i < kLines; ++i)
        LOG_INFO("Recv from <%s:%u>, msg<%#x>, seq<%d>, %zu bytes", "127.0.0.1", 9636U, 0x1234U, i,
                 size_t{88});
    });
    all.Add(ours.m_all, written.m_caller);
    caller.Add(ours.m_caller, written.m_caller);
  }
  CLog::Shutdown();
  bench.Print("log-line", all, "processor time of all threads");
  bench.Print("log-caller", caller, "processor time of the calling thread");
  return 0;
}
