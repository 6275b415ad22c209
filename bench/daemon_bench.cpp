// The real daemon on the software screen, measured from outside: how long a request waits for its
// ACK, beside a bare UDP echo process in the same run, and what the daemon costs when nobody asks.
//   daemon_bench OSDSRV DEVICE_ROOT_TOOL [IDLE_SECONDS]

#include <arpa/inet.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "protocol/bodies.h"
#include "protocol/peers.h"

namespace {

constexpr UInt16 kOwnPort = 9634;
constexpr UInt32 kRequests = 20000;

using T_Clock = std::chrono::steady_clock;

[[noreturn]] void Die(const char* i_pWhat) {
  std::fprintf(stderr, "daemon_bench: %s\n", i_pWhat);
  std::exit(1);
}

sockaddr_in Loopback(UInt16 i_u16Port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(i_u16Port);
  return address;
}

int Bound(UInt16 i_u16Port) {
  const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  const sockaddr_in address = Loopback(i_u16Port);
  if (bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0)
    Die("a port of the benchmark is taken (9634 and 9636 must be free)");
  return fd;
}

pid_t ForkChild() {
  std::fflush(stdout);
  const pid_t child = fork();
  if (child == 0) prctl(PR_SET_PDEATHSIG, SIGKILL);
  return child;
}

void Stop(pid_t i_child) {
  kill(i_child, SIGTERM);
  waitpid(i_child, nullptr, 0);
}

// Sends back what it gets: the least that any answering process costs.
pid_t StartEcho(UInt16* o_pu16Port) {
  const int fd = Bound(0);
  sockaddr_in own{};
  socklen_t size = sizeof(own);
  getsockname(fd, reinterpret_cast<sockaddr*>(&own), &size);
  *o_pu16Port = ntohs(own.sin_port);
  const pid_t child = ForkChild();
  if (child != 0) {
    close(fd);
    return child;
  }
  for (UInt8 aBuf[kMaxDatagram];;) {
    sockaddr_in from{};
    socklen_t fromSize = sizeof(from);
    const ssize_t length =
        recvfrom(fd, aBuf, sizeof(aBuf), 0, reinterpret_cast<sockaddr*>(&from), &fromSize);
    sendto(fd, aBuf, static_cast<size_t>(length), 0, reinterpret_cast<sockaddr*>(&from), fromSize);
  }
}

template <class T>
std::vector<UInt8> Datagram(UInt32 i_u32Id, T i_body, UInt32 i_u32Seq) {
  std::vector<UInt8> datagram(kMaxDatagram);
  i_body.m_stHeader = {kMsgMagic, 0, {'C', 'M', 'D'}, i_u32Seq, i_u32Id, BodySize(i_body)};
  datagram.resize(EncodeMessage(i_body, datagram.data()));
  return datagram;
}

// Microseconds from sending to the answer; below 0 when there was none.
double Ask(int i_fd, UInt16 i_u16Port, const std::vector<UInt8>& i_datagram, int i_timeoutMs) {
  const sockaddr_in to = Loopback(i_u16Port);
  const auto start = T_Clock::now();
  sendto(i_fd, i_datagram.data(), i_datagram.size(), 0, reinterpret_cast<const sockaddr*>(&to),
         sizeof(to));
  pollfd ready{i_fd, POLLIN, 0};
  if (poll(&ready, 1, i_timeoutMs) != 1) return -1;
  UInt8 aBuf[kMaxDatagram];
  if (recv(i_fd, aBuf, sizeof(aBuf), 0) < 0) return -1;
  return std::chrono::duration<double, std::micro>(T_Clock::now() - start).count();
}

struct T_Latency {
  double m_median;
  double m_p99;
};

T_Latency Measure(int i_fd, UInt16 i_u16Port) {
  std::vector<double> times;
  T_MsgOsdElemHide hide;
  hide.m_u16OsdSeq = 0x0101;
  for (UInt32 i = 0; i < kRequests; ++i) {
    const double us = Ask(i_fd, i_u16Port, Datagram(kMsgOsdElemHide, hide, i + 1), 2000);
    if (us < 0) Die("a request was not answered within two seconds");
    times.push_back(us);
  }
  std::sort(times.begin(), times.end());
  return {times[times.size() / 2], times[times.size() * 99 / 100]};
}

struct T_Usage {
  double m_seconds;
  UInt64 m_u64Switches;
};

T_Usage Usage(pid_t i_pid) {
  T_Usage usage{0, 0};
  const std::string proc = "/proc/" + std::to_string(i_pid);
  for (const auto& thread : std::filesystem::directory_iterator(proc + "/task")) {
    std::ifstream status(thread.path() / "status");
    for (std::string line; std::getline(status, line);)
      if (line.find("ctxt_switches:") != std::string::npos)
        usage.m_u64Switches += std::stoull(line.substr(line.find(':') + 1));
    std::ifstream sched(thread.path() / "schedstat");
    double ns = 0;
    sched >> ns;
    usage.m_seconds += ns / 1e9;
  }
  return usage;
}

std::string StatusLine(pid_t i_pid, const std::string& i_key) {
  std::ifstream status("/proc/" + std::to_string(i_pid) + "/status");
  for (std::string line; std::getline(status, line);)
    if (line.starts_with(i_key)) return line;
  return i_key + ": unknown";
}

pid_t StartDaemon(const char* i_pDaemon, const char* i_pRootTool, const std::string& i_root) {
  const std::string command = std::string(i_pRootTool) + " " + i_root + " >/dev/null";
  if (std::system(command.c_str()) != 0) Die("cannot make the device root");
  const pid_t child = ForkChild();
  if (child != 0) return child;
  setenv("OSD_ROOT", i_root.c_str(), 1);
  const int null = open("/dev/null", O_RDWR);
  dup2(null, STDOUT_FILENO);
  execl(i_pDaemon, i_pDaemon, static_cast<char*>(nullptr));
  _exit(127);
}

void AwaitLayer(int i_fd) {
  T_MsgOsdScreenInfo init;
  init.m_u32W = 1920;
  init.m_u32H = 1080;
  for (UInt32 attempt = 0; attempt < 40; ++attempt)
    if (Ask(i_fd, kDaemonPort, Datagram(kMsgOsdInit, init, 0), 500) >= 0) return;
  Die("the daemon did not answer");
}

void PrintLatency(const char* i_pName, const T_Latency& i_latency, const T_Latency& i_reference) {
  std::printf("%-28s median %8.1f us   p99 %8.1f us   ratio %5.2f   %5.2f\n", i_pName,
              i_latency.m_median, i_latency.m_p99, i_latency.m_median / i_reference.m_median,
              i_latency.m_p99 / i_reference.m_p99);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) Die("usage: daemon_bench OSDSRV DEVICE_ROOT_TOOL [IDLE_SECONDS]");
  const UInt32 u32IdleSeconds = argc > 3 ? static_cast<UInt32>(std::atoi(argv[3])) : 30;
  char szRoot[] = "/tmp/osdbench.XXXXXX";
  if (mkdtemp(szRoot) == nullptr) Die("cannot make a temporary folder");
  const int fd = Bound(kOwnPort);
  const pid_t daemon = StartDaemon(argv[1], argv[2], szRoot);
  AwaitLayer(fd);

  UInt16 u16EchoPort = 0;
  const pid_t echo = StartEcho(&u16EchoPort);
  std::printf("request to answer, one outstanding, %u requests\n", kRequests);
  const T_Latency reference = Measure(fd, u16EchoPort);
  const T_Latency latency = Measure(fd, kDaemonPort);
  PrintLatency("bare UDP echo process", reference, reference);
  PrintLatency("osdsrv, hide to ACK", latency, reference);
  Stop(echo);

  const T_Usage before = Usage(daemon);
  sleep(u32IdleSeconds);
  const T_Usage after = Usage(daemon);
  std::printf("idle for %u s with one 1920x1080 layer\n", u32IdleSeconds);
  std::printf("%-28s %.3f s of processor time (%.2f %% of one core)\n", "osdsrv",
              after.m_seconds - before.m_seconds,
              100 * (after.m_seconds - before.m_seconds) / u32IdleSeconds);
  // Four task threads look at their timers every 5 ms and the timer service every 10 ms.
  const double designed = u32IdleSeconds * (4 * 1000 / 5 + 1000 / 10);
  const auto switches = static_cast<double>(after.m_u64Switches - before.m_u64Switches);
  std::printf("%-28s %.0f context switches, %.2f of the wake-ups that its waits ask for\n", "",
              switches, switches / designed);
  std::printf("%-28s %s, of it %s\n", "", StatusLine(daemon, "VmRSS").c_str(),
              StatusLine(daemon, "RssAnon").c_str());
  Stop(daemon);
  std::filesystem::remove_all(szRoot);
  return 0;
}
