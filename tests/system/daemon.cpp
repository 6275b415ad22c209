#include "tests/system/daemon.h"

#include <fcntl.h>
#include <linux/close_range.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace {

// What differs; empty when the file holds the picture and no refresh is under way.
std::string Difference(const std::string& i_path, const T_Picture& i_picture) {
  constexpr size_t kPixelOffset = 4096;
  constexpr size_t kSequenceOffset = 48;
  const std::string file = ReadFile(i_path);
  const std::vector<UInt32>& wanted = i_picture.m_pixels;
  if (file.size() < kPixelOffset + wanted.size() * 4) return "the file is too short";
  Bytes header = Pack(UInt32{1}, i_picture.m_u32W, i_picture.m_u32H, i_picture.m_u32W * 4,
                      i_picture.m_s32X, i_picture.m_s32Y, UInt32{1}, UInt32{3}, UInt64{255});
  header.insert(header.begin(), {'O', 'S', 'D', 'L', 'A', 'Y', 'E', 'R'});
  if (std::memcmp(file.data(), header.data(), header.size()) != 0) return "another header";
  if (file[kSequenceOffset] & 1) return "a refresh without end";
  std::vector<UInt32> pixels(wanted.size());
  std::memcpy(pixels.data(), file.data() + kPixelOffset, pixels.size() * 4);
  const auto differs = std::mismatch(pixels.begin(), pixels.end(), wanted.begin());
  if (differs.first == pixels.end()) return "";
  const auto at = static_cast<size_t>(differs.first - pixels.begin());
  std::ostringstream text;
  text << "column " << at % i_picture.m_u32W << ", row " << at / i_picture.m_u32W << std::hex
       << ": " << *differs.first << " instead of " << *differs.second;
  return text.str();
}

// Sanitizers report into the device root, and leave signals that tests send to their defaults.
void SetEnvironment(const std::string& i_root) {
  setenv("OSD_ROOT", i_root.c_str(), 1);
  for (const char* pName : {"ASAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS"}) {
    const char* const pNow = std::getenv(pName);
    const std::string options = ":handle_segv=0:log_path=" + i_root + "/report";
    setenv(pName, ((pNow != nullptr ? pNow : "") + options).c_str(), 1);
  }
}

[[noreturn]] void Execute(const std::string& i_root, const std::string& i_output,
                          const char* i_pOption) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  SetEnvironment(i_root);
  dup2(open((i_output + ".out").c_str(), O_WRONLY | O_CREAT, 0644), STDOUT_FILENO);
  dup2(open((i_output + ".err").c_str(), O_WRONLY | O_CREAT, 0644), STDERR_FILENO);
  close_range(3, ~0U, 0);
  execl(OSD_DAEMON, "osdsrv", i_pOption, nullptr);
  _exit(127);
}

}  // namespace

bool Eventually(const std::function<bool()>& i_holds) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (!i_holds()) {
    if (std::chrono::steady_clock::now() > end) return false;
    poll(nullptr, 0, 5);
  }
  return true;
}

std::string ReadFile(const std::string& i_path) {
  std::ostringstream text;
  text << std::ifstream(i_path).rdbuf();
  return text.str();
}

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

bool CDeviceRoot::Logs(const std::string& i_text) const {
  return Eventually([&] {
    for (const std::string& line : Log())
      if (line.find(i_text + " --[") != std::string::npos) return true;
    return false;
  });
}

testing::AssertionResult CDeviceRoot::Shows(SInt32 i_s32Layer, const T_Picture& i_picture) const {
  const std::string path = Path("/dev/fb" + std::to_string(i_s32Layer));
  std::string difference;
  if (Eventually([&] { return (difference = Difference(path, i_picture)).empty(); }))
    return testing::AssertionSuccess();
  return testing::AssertionFailure() << "layer " << i_s32Layer << ": " << difference;
}

CDaemon::CDaemon(const CDeviceRoot& i_root, const char* i_pOption) {
  static UInt32 s_u32Started = 0;
  m_output = i_root.Path("/output" + std::to_string(s_u32Started++));
  m_pid = fork();
  if (m_pid == 0) Execute(i_root.Path(""), m_output, i_pOption);
}

SInt32 CDaemon::Stop(SInt32 i_s32Signal) {
  if (m_pid <= 0) return -1000;
  kill(m_pid, i_s32Signal);
  const SInt32 s32Exit = AwaitExit(m_pid);
  if (s32Exit != -1000) m_pid = 0;
  return s32Exit;
}
