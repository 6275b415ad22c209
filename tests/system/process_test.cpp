// Start, end and supervision of the daemon's process.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <filesystem>

#include "tests/system/oracle.h"

namespace {

constexpr char kUsage[] =
    "osdsrv [options]\n    -h --help           show this help\n"
    "    -D --daemonize      Daemonize after startup\n";

std::string Proc(pid_t i_pid) { return "/proc/" + std::to_string(i_pid); }

bool LogsRequests(const CDeviceRoot& i_root) {
  CPeer peer(9635);
  return Eventually([&] { return peer.AwaitAnswer() > 0 && !i_root.Log().empty(); });
}

TEST(Process, ServesWithHelpAndAloneOnItsDevice) {
  const CDeviceRoot root;
  CDaemon daemon(root, "-h");
  EXPECT_GT(CPeer(9634).AwaitAnswer(), 0U);
  CDaemon detached(root, "-D");
  EXPECT_EQ(detached.Stop(0), 1);
  EXPECT_EQ(detached.Out(), "process allready started\n");
  EXPECT_EQ(root.PidInFile(), daemon.Pid());
  CDaemon second(root);
  EXPECT_EQ(second.Stop(0), 1);
  EXPECT_EQ(second.Out(), "process allready started\n");
  EXPECT_EQ(ReadFile(root.Path("/var/run/osd.pid")), "");
  rlimit before{};
  prlimit(daemon.Pid(), RLIMIT_FSIZE, nullptr, &before);
  const rlimit few{100, before.rlim_max};
  prlimit(daemon.Pid(), RLIMIT_FSIZE, &few, nullptr);
  EXPECT_GT(CPeer(9634).AwaitAnswer(), 0U);
  EXPECT_TRUE(Eventually([&] { return daemon.Err().find("File too large") != std::string::npos; }));
  prlimit(daemon.Pid(), RLIMIT_FSIZE, &before, nullptr);
  EXPECT_EQ(daemon.Stop(SIGINT), 0);
  EXPECT_EQ(daemon.Out(), kUsage + std::string("\033[0;31mprogram will exit now!\033[0;39m\n"));
}

TEST(Process, ServesWithoutLogConfiguration) {
  const CDeviceRoot root;
  const std::string conf = root.Path("/usr/local/etc/ztosdlog.conf");
  std::filesystem::rename(conf, conf + ".kept");
  CDaemon daemon(root, "--no-such-option");
  EXPECT_GT(CPeer(9634).AwaitAnswer(), 0U);
  EXPECT_EQ(daemon.Out(), kUsage);
  EXPECT_NE(daemon.Err().find("ztosdlog.conf: No such file"), std::string::npos);
  mkfifo(conf.c_str(), 0600);  // whoever opens it to read waits for a writer
  EXPECT_TRUE(Eventually(
      [&] { return daemon.Err().find("ztosdlog.conf: it is no regular") != std::string::npos; }));
  std::filesystem::rename(conf + ".kept", conf);
  EXPECT_TRUE(LogsRequests(root));
}

TEST(Process, ServesWhileItsOutputIsLostAndEndsWithoutItsPidFolder) {
  const CDeviceRoot root;
  std::filesystem::create_symlink("/dev/full", root.Path("/var/log/osdsrv.log"));
  int aEnds[2];
  ASSERT_EQ(pipe2(aEnds, O_CLOEXEC), 0);
  close(aEnds[0]);
  CDaemon daemon(root, "-fh", aEnds[1]);  // nobody reads the usage
  close(aEnds[1]);
  const CDeviceRoot other;
  std::filesystem::remove_all(other.Path("/var/run"));
  CDaemon homeless(other);
  EXPECT_GT(CPeer(9634).AwaitAnswer(), 0U);
  EXPECT_TRUE(Eventually([&] { return daemon.Err().find("No space left") != std::string::npos; }));
  std::filesystem::remove(root.Path("/var/log/osdsrv.log"));
  EXPECT_TRUE(LogsRequests(root));
  EXPECT_EQ(homeless.Stop(0), 1);
  EXPECT_TRUE(other.Logs("ERROR open pid file failed: No such file or directory"));
}

// The timer's thread is held: what ends before it is gone, what ends behind it is there.
TEST(Stopping, EndsTheRendererThenTheTimerThenTheEndpoint) {
  const CDeviceRoot root;
  std::filesystem::create_symlink("/dev/full", root.Path("/var/run/osd.pid"));
  CDaemon daemon(root);
  const auto thread = [&](const std::string& i_name) {
    for (const auto& task : std::filesystem::directory_iterator(Proc(daemon.Pid()) + "/task"))
      if (ReadFile(task.path() / "comm") == i_name + "\n") return std::stoi(task.path().filename());
    return 0;
  };
  ASSERT_TRUE(Eventually([&] { return thread("osdhifb") > 0; }));
  EXPECT_TRUE(root.Logs("ERROR write pid file failed: No space left on device"));
  const pid_t timer = thread("timer");
  ptrace(PTRACE_SEIZE, timer, 0, 0);
  ptrace(PTRACE_INTERRUPT, timer, 0, 0);
  ASSERT_EQ(waitpid(timer, nullptr, __WALL), timer);
  kill(daemon.Pid(), SIGTERM);
  EXPECT_TRUE(root.Logs("ERROR osdsrv stop run"));
  EXPECT_TRUE(Eventually([&] { return thread("osdhifb") == 0; }));
  const std::filesystem::directory_iterator fds(Proc(daemon.Pid()) + "/fd");
  EXPECT_EQ(2, std::count_if(begin(fds), end(fds), [](const auto& i_fd) {
              return std::filesystem::read_symlink(i_fd).string().starts_with("socket:");
            }));
  ptrace(PTRACE_DETACH, timer, 0, 0);
  EXPECT_EQ(daemon.Stop(0), 0);
}

// The number after i_name in a file of /proc; -1 without one.
SInt32 NumberIn(const std::string& i_path, const std::string& i_name, int i_base = 10) {
  const std::string text = ReadFile(i_path);
  const size_t at = text.find("\n" + i_name);
  return at == std::string::npos ? -1
                                 : std::stoi(text.substr(at + i_name.size() + 1), nullptr, i_base);
}

pid_t ParentOf(pid_t i_pid) { return NumberIn(Proc(i_pid) + "/status", "PPid:"); }

// A detached daemon and its supervisor, which become children of this process.
class Supervision : public testing::Test {
 protected:
  void SetUp() override {
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    ASSERT_EQ(CDaemon(m_root, "-D").Stop(0), 0);
    Answers();
    m_supervisor = ParentOf(m_daemon);
    ASSERT_EQ(ParentOf(m_supervisor), getpid());
  }
  void TearDown() override {
    for (const pid_t pid : {m_supervisor, m_root.PidInFile()})
      if (pid > 1 && ParentOf(pid) >= 0) {
        kill(pid, SIGKILL);
        AwaitExit(pid);
      }
  }
  void Answers() {
    ASSERT_GT(m_peer.AwaitAnswer(), 0U);
    m_daemon = m_root.PidInFile();
    ASSERT_GT(m_daemon, 1);
  }

  CDeviceRoot m_root;
  CPeer m_peer{9634};
  pid_t m_daemon = 0;
  pid_t m_supervisor = 0;
};

TEST_F(Supervision, ACrashUnderLoadIsFollowedByANewDaemonAndAnOrderlyEndIsTheEnd) {
  const T_Text text{.m_text = "back"};
  const pid_t crashed = m_daemon;
  for (UInt32 i = 0; i < 400; ++i) {
    m_peer.Send(Datagram(m_peer.NextSeq(), kText, text.Body()));
    if (i == 200) kill(crashed, SIGSEGV);
  }
  ASSERT_TRUE(Eventually([&] { return ParentOf(crashed) < 0; }));
  Answers();
  EXPECT_EQ(ParentOf(m_daemon), m_supervisor);
  m_peer.Request(kInit, Pack(0, 0, 10, -20, 800, 450));
  m_peer.Request(kText, text.Body());
  EXPECT_TRUE(m_root.Shows(0, Screen(m_root, 800, 450, {text})));

  // What a command of a crashed daemon would keep: the pid file's lock, the port, the layers.
  UInt32 u32Checked = 0;
  for (const auto& entry : std::filesystem::directory_iterator(Proc(m_daemon) + "/fd")) {
    const std::string target = std::filesystem::read_symlink(entry.path());
    if (target == "/dev/null" || target == m_root.Path("/var/log/osdsrv.log")) continue;
    const std::string info = Proc(m_daemon) + "/fdinfo/" + entry.path().filename().string();
    EXPECT_TRUE(NumberIn(info, "flags:", 8) & O_CLOEXEC) << target;
    ++u32Checked;
  }
  EXPECT_GE(u32Checked, 6U);  // pid file, both ends of the pipe, two sockets, layer

  kill(m_daemon, SIGTERM);
  EXPECT_EQ(AwaitExit(m_supervisor), 0);
}

TEST_F(Supervision, ARestartThatFindsAnotherInstanceIsTheLast) {
  kill(m_daemon, SIGSEGV);
  ASSERT_TRUE(Eventually([&] { return ParentOf(m_daemon) < 0; }));
  CDaemon other(m_root);
  EXPECT_EQ(AwaitExit(m_supervisor), 1);
  EXPECT_EQ(m_root.PidInFile(), other.Pid());
}

TEST_F(Supervision, AKilledDaemonEndsItsSupervisor) {
  kill(m_daemon, SIGKILL);
  EXPECT_EQ(AwaitExit(m_supervisor), 1);
}

}  // namespace
