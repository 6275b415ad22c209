#include "tests/system/daemon.h"

#include <fcntl.h>
#include <linux/close_range.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>

namespace {

[[noreturn]] void Execute(const std::string& i_root, const std::string& i_output,
                          const char* i_pOption, SInt32 i_s32Out) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  setenv("OSD_ROOT", i_root.c_str(), 1);
  // Sanitizers report into the device root, and leave signals that tests send to their defaults.
  for (const char* pName : {"ASAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS"}) {
    const char* const pNow = std::getenv(pName);
    const std::string options = ":handle_segv=0:log_path=" + i_root + "/report";
    setenv(pName, ((pNow != nullptr ? pNow : "") + options).c_str(), 1);
  }
  if (i_s32Out < 0) i_s32Out = open((i_output + ".out").c_str(), O_WRONLY | O_CREAT, 0644);
  dup2(i_s32Out, STDOUT_FILENO);
  dup2(open((i_output + ".err").c_str(), O_WRONLY | O_CREAT, 0644), STDERR_FILENO);
  close_range(3, ~0U, 0);
  execl(OSD_DAEMON, "osdsrv", i_pOption, nullptr);
  _exit(127);
}

}  // namespace

SInt32 AwaitExit(pid_t i_pid) {
  int status = 0;
  if (!Eventually([&] { return waitpid(i_pid, &status, WNOHANG) == i_pid; })) return -1000;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

CDeviceRoot::CDeviceRoot() {
  EXPECT_NE(mkdtemp(m_path.data()), nullptr);
  EXPECT_EQ(std::system((OSD_DEVICE_ROOT_TOOL " " + m_path).c_str()), 0);
}

CDeviceRoot::~CDeviceRoot() {
  for (const auto& entry : std::filesystem::directory_iterator(m_path))
    if (entry.path().filename().string().starts_with("report"))
      ADD_FAILURE() << ReadFile(entry.path());
  std::filesystem::remove_all(m_path);
}

std::vector<std::string> CDeviceRoot::Log() const {
  std::istringstream text(ReadFile(Path("/var/log/osdsrv.log")));
  std::vector<std::string> lines;
  for (std::string date, time, line; text >> date >> time && std::getline(text >> std::ws, line);)
    lines.push_back(line);
  return lines;
}

CDaemon::CDaemon(const CDeviceRoot& i_root, const char* i_pOption, SInt32 i_s32Out) {
  static UInt32 s_u32Started = 0;
  m_output = i_root.Path("/output" + std::to_string(s_u32Started++));
  m_pid = fork();
  if (m_pid == 0) Execute(i_root.Path(""), m_output, i_pOption, i_s32Out);
}

SInt32 CDaemon::Stop(SInt32 i_s32Signal) {
  if (m_pid <= 0) return -1000;
  kill(m_pid, i_s32Signal);
  const SInt32 s32Exit = AwaitExit(m_pid);
  if (s32Exit != -1000) m_pid = 0;
  return s32Exit;
}
