// The real daemon on the software screen, measured from outside by a peer that sends texts of 40
// characters and waits for their ACKs, beside the references echo, skeleton and idle.
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <random>

#include "bench/bench.h"
#include "platform/soft/layer_file.h"
#include "protocol/bodies.h"
#include "protocol/peers.h"

namespace {

constexpr UInt16 kOwnPort = 9634;
constexpr UInt32 kOutstanding = 16;
constexpr UInt32 kW = 1920;
constexpr UInt32 kH = 1080;
constexpr UInt8 kFontSize = 64;  // 32 px
constexpr char kText[] = "forty characters are what this text has.";
static_assert(sizeof(kText) - 1 == 40);

using T_Command = std::vector<std::string>;

UInt32 LastCore() { return static_cast<UInt32>(sysconf(_SC_NPROCESSORS_ONLN)) - 1; }

// A child process on one processor, or on any. It ends with this object, and with the benchmark.
class CProcess {
 public:
  CProcess(const T_Command& i_command, std::optional<UInt32> i_core) {
    int aOutput[2];
    if (pipe2(aOutput, O_CLOEXEC) != 0) Die("no pipe");
    m_pid = fork();
    if (m_pid == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      if (i_core) Pin(*i_core);
      dup2(aOutput[1], STDOUT_FILENO);
      std::vector<char*> arguments;
      for (const std::string& argument : i_command)
        arguments.push_back(const_cast<char*>(argument.c_str()));
      arguments.push_back(nullptr);
      execvp(arguments[0], arguments.data());
      Die("cannot start " + i_command[0]);
    }
    close(aOutput[1]);
    m_pOutput = fdopen(aOutput[0], "r");
  }
  CProcess(const CProcess&) = delete;
  CProcess& operator=(const CProcess&) = delete;
  ~CProcess() {
    kill(m_pid, SIGTERM);
    waitpid(m_pid, nullptr, 0);
    std::fclose(m_pOutput);
  }

  pid_t Pid() const { return m_pid; }
  // The number that it says first.
  UInt32 Told() const {
    unsigned number = 0;
    if (std::fscanf(m_pOutput, "%u", &number) != 1) Die("a reference did not start");
    return number;
  }

 private:
  pid_t m_pid;
  std::FILE* m_pOutput;
};

std::string Reference(const char* i_pName) { return std::string(OSD_REFERENCES "/") + i_pName; }

template <class T>
T_Datagram Datagram(UInt16 i_u16Port, UInt32 i_u32Id, T&& i_body, UInt32 i_u32Seq) {
  T_Datagram datagram;
  i_body.m_stHeader = {kMsgMagic, 0, {'C', 'M', 'D'}, i_u32Seq, i_u32Id, BodySize(i_body)};
  datagram.m_length = EncodeMessage(i_body, datagram.m_aBytes, sizeof(datagram.m_aBytes));
  datagram.m_peer = Loopback(i_u16Port);
  return datagram;
}

// The peer that asks.
class CClient {
 public:
  CClient() { SetPatience(5000); }

  void SetPatience(SInt32 i_s32Ms) const {
    const timeval timeout{i_s32Ms / 1000, i_s32Ms % 1000 * 1000};
    setsockopt(m_fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof(timeout));
  }

  // Whether a layer came within half a minute: the daemon gives the device two seconds first.
  Bool AwaitLayer() {
    SetPatience(500);
    T_MsgOsdScreenInfo init;
    init.m_u32W = kW;
    init.m_u32H = kH;
    Bool bCame = false;
    for (UInt32 attempt = 0; attempt < 60 && !bCame; ++attempt) {
      Datagram(kDaemonPort, kMsgOsdInit, init, ++m_u32Seq).Send(m_fd);
      bCame = Answered();
      if (!bCame) usleep(100000);
    }
    while (bCame && Answered()) continue;  // those to earlier attempts
    SetPatience(5000);
    return bCame;
  }

  void SendText(UInt16 i_u16Port, UInt8 i_u8FontSize = kFontSize) {
    T_MsgOsdStringShow show;
    show.m_u16OsdSeq = Element(1, 1);
    show.m_u32Flag = kMaskPosition | kMaskFontSize | kMaskText | kMaskForever;
    show.m_u8FontSize = i_u8FontSize;
    show.m_u16StrLen = sizeof(kText) - 1;
    show.m_pStr = std::make_unique<char[]>(sizeof(kText));
    std::memcpy(show.m_pStr.get(), kText, sizeof(kText));
    Datagram(i_u16Port, kMsgOsdStringShow, show, ++m_u32Seq).Send(m_fd);
  }
  void Await() const {
    if (!Answered()) Die("a request was lost: no answer within five seconds");
  }

  // Microseconds from sending to the answer, of each request, one after the other.
  T_Figures Latencies(UInt16 i_u16Port, UInt32 i_u32Requests) {
    T_Figures times;
    for (UInt32 i = 0; i < i_u32Requests; ++i) {
      const auto start = T_Clock::now();
      SendText(i_u16Port);
      Await();
      times.push_back(Since(start));
    }
    return times;
  }

  // Requests a second, kOutstanding of them at any time.
  double Rate(UInt16 i_u16Port, UInt32 i_u32Requests, const std::vector<UInt8>& i_sizes) {
    const auto start = T_Clock::now();
    for (UInt32 sent = 0, answered = 0; answered < i_u32Requests;) {
      if (sent < i_u32Requests && sent < answered + kOutstanding) {
        SendText(i_u16Port, i_sizes[sent++ % i_sizes.size()]);
        continue;
      }
      Await();
      ++answered;
    }
    return i_u32Requests * 1e6 / Since(start);
  }
  double Rate(UInt16 i_u16Port, UInt32 i_u32Requests) {
    return Rate(i_u16Port, i_u32Requests, {kFontSize});
  }

 private:
  // A reference's answer is the request itself.
  Bool Answered() const {
    UInt8 aBuf[kMaxDatagram] = {};
    if (recv(m_fd, aBuf, sizeof(aBuf), 0) < static_cast<ssize_t>(kMsgHeaderSize)) return false;
    const UInt32 u32Id = DecodeHeader(aBuf).m_u32Id;
    if (u32Id != RES_MSG_ACK && u32Id != kMsgOsdStringShow) Die("a request was refused");
    return true;
  }

  int m_fd = Bound(kOwnPort);
  UInt32 m_u32Seq = 0;
};

// The daemon with one layer, warm.
class CDaemon {
 public:
  CDaemon(CClient& io_client, std::optional<UInt32> i_core) : m_process({OSD_DAEMON}, i_core) {
    if (!io_client.AwaitLayer()) Die("the daemon did not answer; is there another on its port?");
    io_client.Rate(kDaemonPort, 500);
  }

  pid_t Pid() const { return m_process.Pid(); }
  // Dies unless every request that was acknowledged since is drawn, or will be soon.
  void CheckDrawn(UInt64 i_u64RefreshesBefore, UInt32 i_u32Requests) const {
    for (UInt32 look = 0; Refreshes() < i_u64RefreshesBefore + i_u32Requests; ++look) {
      if (look == 500) Die("requests were acknowledged and not drawn");
      usleep(10000);
    }
  }
  // Refreshes of layer 0 until now.
  UInt64 Refreshes() const {
    T_LayerHeader header{};
    std::ifstream(DeviceRoot() + "/dev/fb0", std::ios::binary)
        .read(reinterpret_cast<char*>(&header), sizeof(header));
    return header.m_u64Sequence / 2;
  }

 private:
  CProcess m_process;
};

// What a process has used: processor time and how often its threads were woken.
struct T_Usage {
  double m_seconds = 0;
  double m_wakes = 0;

  T_Usage operator-(const T_Usage& i_before) const {
    return {m_seconds - i_before.m_seconds, m_wakes - i_before.m_wakes};
  }
};

T_Usage Usage(pid_t i_pid) {
  T_Usage usage;
  for (const auto& thread :
       std::filesystem::directory_iterator("/proc/" + std::to_string(i_pid) + "/task")) {
    std::ifstream status(thread.path() / "status");
    for (std::string line; std::getline(status, line);)
      if (line.starts_with("voluntary_ctxt_switches:"))
        usage.m_wakes += std::stod(line.substr(line.find(':') + 1));
    double ns = 0;
    std::ifstream(thread.path() / "schedstat") >> ns;
    usage.m_seconds += ns / 1e9;
  }
  return usage;
}

void Latency(const CBench& i_bench, CClient& io_client, const std::string& i_prefix,
             UInt32 i_u32ServerCore, const char* i_pNote) {
  const CProcess echo({Reference("echo")}, i_u32ServerCore);
  const CProcess skeleton({Reference("skeleton")}, i_u32ServerCore);
  const CDaemon daemon(io_client, i_u32ServerCore);
  const auto echoPort = static_cast<UInt16>(echo.Told());
  const auto skeletonPort = static_cast<UInt16>(skeleton.Told());
  T_Row median;
  T_Row p99;
  T_Row besideSkeleton;
  for (UInt32 round = 0; round < i_bench.Rounds(); ++round) {
    constexpr UInt32 kRequests = 1000;
    const T_Figures echoed = io_client.Latencies(echoPort, kRequests);
    const T_Figures least = io_client.Latencies(skeletonPort, kRequests);
    const T_Figures ours = io_client.Latencies(kDaemonPort, kRequests);
    median.Add(Percentile(ours, 50), Percentile(echoed, 50));
    p99.Add(Percentile(ours, 99), Percentile(echoed, 99));
    besideSkeleton.Add(Percentile(ours, 50), Percentile(least, 50));
  }
  i_bench.Print(i_prefix, median, i_pNote);
  i_bench.Print(i_prefix + "-p99", p99, i_pNote);
  i_bench.Print(i_prefix + "-skeleton", besideSkeleton, i_pNote);
}

void Rate(const CBench& i_bench, CClient& io_client) {
  const CProcess echo({Reference("echo")}, LastCore());
  const CProcess skeleton({Reference("skeleton")}, LastCore());
  const CDaemon daemon(io_client, LastCore());
  const auto echoPort = static_cast<UInt16>(echo.Told());
  const auto skeletonPort = static_cast<UInt16>(skeleton.Told());
  std::vector<UInt8> sizes(2048);
  std::ranges::generate(sizes, [engine = std::minstd_rand()]() mutable {
    return static_cast<UInt8>(40 + engine() % 40);
  });
  T_Row besideEcho;
  T_Row besideSkeleton;
  T_Row processor;
  T_Row random;
  for (UInt32 round = 0; round < i_bench.Rounds(); ++round) {
    constexpr UInt32 kRequests = 2048;
    const T_Usage echoBefore = Usage(echo.Pid());
    const double echoed = io_client.Rate(echoPort, kRequests);
    const T_Usage echoUsed = Usage(echo.Pid()) - echoBefore;
    const double least = io_client.Rate(skeletonPort, kRequests);
    const UInt64 u64Refreshes = daemon.Refreshes();
    const T_Usage before = Usage(daemon.Pid());
    const double ours = io_client.Rate(kDaemonPort, kRequests);
    daemon.CheckDrawn(u64Refreshes, kRequests);
    const T_Usage used = Usage(daemon.Pid()) - before;
    besideEcho.Add(ours, echoed);
    besideSkeleton.Add(ours, least);
    processor.Add(used.m_seconds * 1e6 / kRequests, echoUsed.m_seconds * 1e6 / kRequests);
    random.Add(io_client.Rate(kDaemonPort, kRequests, sizes), ours);
    daemon.CheckDrawn(u64Refreshes, 2 * kRequests);
  }
  const char* const pNote = "client on core 0, server on the last; they hardly sleep";
  i_bench.Print("rate", besideEcho, pNote);
  i_bench.Print("rate-skeleton", besideSkeleton, pNote);
  i_bench.Print("request-processor", processor, "user and kernel, all threads");
  i_bench.Print("rate-sizes", random, pNote);
}

void Busy(const CBench& i_bench, CClient& io_client) {
  const CProcess skeleton({Reference("skeleton")}, LastCore());
  const CDaemon daemon(io_client, LastCore());
  const auto skeletonPort = static_cast<UInt16>(skeleton.Told());
  const T_Command kSpin{"sh", "-c", "while :; do :; done"};
  const CProcess busyHere(kSpin, 0);
  const CProcess busyThere(kSpin, LastCore());
  T_Row row;
  for (UInt32 round = 0; round < i_bench.Rounds(); ++round) {
    constexpr UInt32 kRequests = 256;
    const double least = io_client.Rate(skeletonPort, kRequests);
    row.Add(io_client.Rate(kDaemonPort, kRequests), least);
  }
  i_bench.Print("busy", row, "client on core 0, server on the last, a busy process on each");
}

// Microseconds of processor time a request.
double RequestCost(CClient& io_client) {
  constexpr UInt32 kRequests = 4096;
  const CDaemon daemon(io_client, LastCore());
  const UInt64 u64Refreshes = daemon.Refreshes();
  const T_Usage before = Usage(daemon.Pid());
  io_client.Rate(kDaemonPort, kRequests);
  daemon.CheckDrawn(u64Refreshes, kRequests);
  return (Usage(daemon.Pid()) - before).m_seconds * 1e6 / kRequests;
}

void LogShare(const CBench& i_bench, CClient& io_client) {
  const std::string conf = DeviceRoot() + "/usr/local/etc/ztosdlog.conf";
  T_Row row;
  for (UInt32 round = 0; round < i_bench.Rounds(); ++round) {
    std::filesystem::rename(conf, conf + ".shipped");
    std::ofstream(conf) << "log4cpp.rootCategory=FATAL\n";
    const double without = RequestCost(io_client);
    std::filesystem::rename(conf + ".shipped", conf);
    const double with = RequestCost(io_client);
    row.Add(with - without, with);
  }
  i_bench.Print("log-share", row, "a daemon with and one without a log, 16 outstanding");
}

// MiB that belong to the process alone and to no file.
double AnonymousMiB(pid_t i_pid) {
  std::ifstream sums("/proc/" + std::to_string(i_pid) + "/smaps_rollup");
  std::string word;
  while (sums >> word && word != "Anonymous:") continue;
  double kilobytes = 0;
  sums >> kilobytes;
  return kilobytes / 1024;
}

void Idle(const CBench& i_bench, CClient& io_client) {
  const CProcess idle({Reference("idle")}, std::nullopt);
  const CDaemon daemon(io_client, std::nullopt);
  T_Row memory;
  memory.m_ours = {AnonymousMiB(daemon.Pid()) - kW * kH * 4.0 / (1 << 20)};
  T_Row processor;
  T_Row wakes;
  for (UInt32 round = 0; round < i_bench.Rounds(); ++round) {
    const T_Usage before = Usage(daemon.Pid());
    const T_Usage idleBefore = Usage(idle.Pid());
    sleep(5);
    const T_Usage used = Usage(daemon.Pid()) - before;
    const T_Usage idleUsed = Usage(idle.Pid()) - idleBefore;
    processor.Add(used.m_seconds / 5 * 100, idleUsed.m_seconds / 5 * 100);
    wakes.Add(used.m_wakes / 5, idleUsed.m_wakes / 5);
  }
  i_bench.Print("idle-processor", processor, "both at the same time, on any core");
  i_bench.Print("idle-wakes", wakes, "both at the same time, on any core");
  i_bench.Print("memory", memory, "one layer, 500 texts drawn");
}

// The instructions that a server of that port spends on i_u32Requests and on its waits, with its
// start and its end, in a run under callgrind. Both it and the time that it waits are the same for
// whatever number of requests.
double Instructions(CClient& io_client, const std::string& i_program, UInt32 i_u32Requests) {
  const std::string log = DeviceRoot() + "/counts";
  {
    const CProcess process({"valgrind", "--tool=callgrind", "--callgrind-out-file=/dev/null",
                            "--log-file=" + log, i_program},
                           std::nullopt);
    const Bool bDaemon = i_program == OSD_DAEMON;
    if (bDaemon && !io_client.AwaitLayer()) Die("the daemon did not answer under valgrind");
    const UInt16 u16Port = bDaemon ? kDaemonPort : static_cast<UInt16>(process.Told());
    io_client.Latencies(u16Port, 100);
    const auto start = T_Clock::now();
    io_client.Latencies(u16Port, i_u32Requests);
    usleep(static_cast<UInt32>(std::max(0.0, 8e6 - Since(start))));
  }
  std::ifstream counts(log);
  std::string word;
  while (counts >> word && word != "Collected") continue;
  double collected = 0;
  counts >> word >> collected;
  if (collected == 0) Die("callgrind counted nothing");
  return collected;
}

void CountInstructions(const CBench& i_bench, CClient& io_client) {
  constexpr UInt32 kRequests = 2000;
  const auto each = [&](const std::string& i_program) {
    return (Instructions(io_client, i_program, kRequests) - Instructions(io_client, i_program, 0)) /
           kRequests;
  };
  T_Row row;
  for (UInt32 round = 0; round < i_bench.Rounds(); ++round)
    row.Add(each(OSD_DAEMON), each(Reference("echo")));
  i_bench.Print("instructions", row, "user space, all threads, by callgrind");
}

}  // namespace

int main(int argc, char** argv) {
  const CBench bench(argc, argv);
  CClient client;
  if (bench.Wants({"idle-processor", "idle-wakes", "memory"})) Idle(bench, client);
  if (bench.Wants({"instructions"})) CountInstructions(bench, client);
  Pin(0);
  if (bench.Wants({"ack", "ack-p99", "ack-skeleton"}))
    Latency(bench, client, "ack", LastCore(),
            "client on core 0, server on the last; each sleeps while the other works");
  if (bench.Wants({"ack-awake", "ack-awake-p99", "ack-awake-skeleton"}))
    Latency(bench, client, "ack-awake", 0, "client and server on core 0, which does not sleep");
  if (bench.Wants({"rate", "rate-skeleton", "request-processor", "rate-sizes"}))
    Rate(bench, client);
  if (bench.Wants({"busy"})) Busy(bench, client);
  if (bench.Wants({"log-share"})) LogShare(bench, client);
  return 0;
}
