// The examples of the manual, one on each client, and what becomes of them when the daemon restarts.
#include <sys/prctl.h>
#include <sys/wait.h>

#include "tests/system/oracle.h"

namespace {

class CExample {
 public:
  explicit CExample(const std::string& i_strCommand) : m_pid(fork()) {
    if (m_pid != 0) return;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    execl("/bin/sh", "sh", "-c", ("exec " + i_strCommand).c_str(), nullptr);
    _exit(127);
  }
  ~CExample() {
    kill(m_pid, SIGKILL);
    EXPECT_EQ(AwaitExit(m_pid), -SIGKILL) << "it ended by itself";
  }
  CExample(const CExample&) = delete;
  CExample& operator=(const CExample&) = delete;

 private:
  const pid_t m_pid;
};

TEST(Peers, ShowEverythingToEachDaemonThatStarts) {
  const CExample inC(OSD_PEER_C);
  const CExample inPython("env PYTHONPATH=" OSD_CLIENTS " python3 -u " OSD_PEER_PY);
  for (SInt32 start = 0; start < 2; ++start) {
    const CDeviceRoot root;
    CDaemon daemon(root);
    T_Picture screen = Screen(root, 1920, 1080,
                              {{.m_u8Align = 2,
                                .m_u16Y = 500,
                                .m_u8Size = 64,
                                .m_u32Colour = 0xFFFFFF00,
                                .m_u32Ground = 0xC0000000,
                                .m_text = "main control"},
                               {.m_u8Align = 0, .m_u32Ground = 0xC0000000, .m_text = "a camera"}});
    screen.m_s32X = screen.m_s32Y = 0;
    EXPECT_TRUE(root.Shows(0, screen));
    EXPECT_EQ(daemon.Stop(SIGKILL), -SIGKILL);
  }
}

}  // namespace
