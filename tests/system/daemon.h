// The real daemon as a child process on a device root of its own, and what it leaves there: its
// output, its log, and the files of its layers.
#pragma once

#include <sys/types.h>

#include <csignal>
#include <memory>

#include "tests/layer_picture.h"
#include "tests/system/peer.h"

// The exit code of a child, negative the signal that ended it, -1000 when it does not end.
SInt32 AwaitExit(pid_t i_pid);

// A fresh device root; removed at the end, when no process may have left a sanitizer's report.
class CDeviceRoot {
 public:
  CDeviceRoot();
  ~CDeviceRoot();
  CDeviceRoot(const CDeviceRoot&) = delete;
  CDeviceRoot& operator=(const CDeviceRoot&) = delete;

  std::string Path(const std::string& i_path) const { return m_path + i_path; }
  // The log's lines without their time: "PRIORITY text --[source:line]".
  std::vector<std::string> Log() const;
  // Waits for a line whose text ends with i_text.
  bool Logs(const std::string& i_text) const {
    const std::string end = i_text + " --[";
    const std::string log = Path("/var/log/osdsrv.log");
    return Eventually([&] { return ReadFile(log).find(end) != std::string::npos; });
  }
  // Waits until the file of layer i_s32Layer holds i_picture.
  testing::AssertionResult Shows(SInt32 i_s32Layer, const T_Picture& i_picture) const {
    const std::string file = Path("/dev/fb" + std::to_string(i_s32Layer));
    Eventually([&] { return bool{IsShown(i_picture, file)}; });
    return IsShown(i_picture, file);
  }
  // The process id in the pid file; 0 without one.
  pid_t PidInFile() const { return std::atoi(ReadFile(Path("/var/run/osd.pid")).c_str()); }

 private:
  std::string m_path = "/tmp/osd-system-XXXXXX";
};

class CDaemon {
 public:
  // Starts it on i_root, which outlives it; killed at the end if it still runs.
  // Prints into i_s32Out when there is one.
  explicit CDaemon(const CDeviceRoot& i_root, const char* i_pOption = nullptr,
                   SInt32 i_s32Out = -1);
  ~CDaemon() { Stop(SIGKILL); }
  CDaemon(const CDaemon&) = delete;
  CDaemon& operator=(const CDaemon&) = delete;

  pid_t Pid() const { return m_pid; }
  // As AwaitExit, after sending i_s32Signal unless that is 0.
  SInt32 Stop(SInt32 i_s32Signal);
  std::string Out() const { return ReadFile(m_output + ".out"); }
  std::string Err() const { return ReadFile(m_output + ".err"); }

 private:
  pid_t m_pid;
  std::string m_output;
};

// One daemon for all tests of a suite, and the peer that talks to it.
class CServedTest : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    s_pRoot = std::make_unique<CDeviceRoot>();
    s_pDaemon = std::make_unique<CDaemon>(*s_pRoot);
    s_pPeer = std::make_unique<CPeer>(9635);
    EXPECT_EQ(s_pPeer->AwaitAnswer(), 1U) << "the daemon numbers what it sends from 0";
  }
  static void TearDownTestSuite() {
    EXPECT_EQ(s_pDaemon->Stop(SIGTERM), 0);
    EXPECT_EQ(s_pDaemon->Out(), "\033[0;31mprogram will exit now!\033[0;39m\n");
    EXPECT_EQ(s_pDaemon->Err(), "");
    s_pPeer.reset();
    s_pDaemon.reset();
    s_pRoot.reset();
  }

  static inline std::unique_ptr<CDeviceRoot> s_pRoot;
  static inline std::unique_ptr<CDaemon> s_pDaemon;
  static inline std::unique_ptr<CPeer> s_pPeer;
};
