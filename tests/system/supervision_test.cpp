#include <fcntl.h>
#include <sys/prctl.h>

#include <filesystem>
#include <sstream>

#include "tests/system/daemon.h"
#include "tests/system/oracle.h"

namespace {

std::filesystem::path Proc(pid_t i_pid, const std::string& i_name) {
  return "/proc/" + std::to_string(i_pid) + "/" + i_name;
}

// The number after i_name in a file of /proc; -1 without one.
SInt32 NumberIn(const std::string& i_path, const std::string& i_name, int i_base) {
  const std::string text = ReadFile(i_path);
  const size_t at = text.find("\n" + i_name + ":");
  if (at == std::string::npos) return -1;
  return std::stoi(text.substr(at + i_name.size() + 2), nullptr, i_base);
}

pid_t ParentOf(pid_t i_pid) { return NumberIn(Proc(i_pid, "status"), "PPid", 10); }

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
    for (const pid_t pid : {m_supervisor, m_root.PidInFile()}) {
      if (pid <= 1 || ParentOf(pid) < 0) continue;
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
  COracle oracle(m_root.Path("/usr/share/fonts/monos.ttf"));
  oracle.Init(0, {0, 0, 800, 450});
  const Bytes screen = Pack(0, 0, 0, 0, 800, 450);
  const T_Text text{.m_text = "back"};
  m_peer.Request(kInit, screen);
  const pid_t crashed = m_daemon;
  for (UInt32 i = 0; i < 400; ++i) {
    m_peer.Send(Datagram(m_peer.NextSeq(), kText, text.Body()));
    if (i == 200) kill(crashed, SIGSEGV);
  }
  ASSERT_TRUE(Eventually([&] { return ParentOf(crashed) < 0; }));
  Answers();
  EXPECT_NE(m_daemon, crashed);
  EXPECT_EQ(ParentOf(m_daemon), m_supervisor);
  m_peer.Request(kInit, screen);
  EXPECT_TRUE(m_root.Shows(0, oracle.Pictures().at(0)));
  m_peer.Request(kText, text.Body());
  oracle.Show(text);
  EXPECT_TRUE(m_root.Shows(0, oracle.Pictures().at(0)));

  // What a command of a crashed daemon would keep: the pid file's lock, the port, the layers.
  UInt32 u32Checked = 0;
  EXPECT_EQ(std::filesystem::read_symlink(Proc(m_daemon, "cwd")), "/");
  for (const auto& entry : std::filesystem::directory_iterator(Proc(m_daemon, "fd"))) {
    const std::string target = std::filesystem::read_symlink(entry.path());
    if (target == "/dev/null" || target == m_root.Path("/var/log/osdsrv.log")) continue;
    const std::string info = Proc(m_daemon, "fdinfo") / entry.path().filename();
    EXPECT_TRUE(NumberIn(info, "flags", 8) & O_CLOEXEC) << target;
    ++u32Checked;
  }
  EXPECT_GE(u32Checked, 6U);  // pid file, both ends of the pipe, two sockets, layer

  kill(m_daemon, SIGTERM);
  EXPECT_EQ(AwaitExit(m_supervisor), 0);
}

TEST_F(Supervision, AKilledDaemonEndsItsSupervisor) {
  kill(m_daemon, SIGKILL);
  EXPECT_EQ(AwaitExit(m_supervisor), 1);
}

}  // namespace
