// The real daemon as a child process on a device root of its own, and what it leaves there: its
// output, its log, and the files of its layers, read by their offsets alone.
#pragma once

#include <sys/types.h>

#include <csignal>
#include <functional>
#include <memory>

#include "tests/system/peer.h"

// Whether i_holds becomes true in time.
bool Eventually(const std::function<bool()>& i_holds);
std::string ReadFile(const std::string& i_path);
// The exit code of a child, negative the signal that ended it, -1000 when it does not end.
SInt32 AwaitExit(pid_t i_pid);

// What a layer's file must hold once it was set up. Pixels row by row without padding.
struct T_Picture {
  SInt32 m_s32X = 0;
  SInt32 m_s32Y = 0;
  UInt32 m_u32W = 0;
  UInt32 m_u32H = 0;
  std::vector<UInt32> m_pixels = std::vector<UInt32>(size_t{m_u32W} * m_u32H);
};

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
  bool Logs(const std::string& i_text) const;
  // Waits until the file of layer i_s32Layer holds i_picture, byte for byte.
  testing::AssertionResult Shows(SInt32 i_s32Layer, const T_Picture& i_picture) const;
  // The process id in the pid file; 0 without one.
  pid_t PidInFile() const { return std::atoi(ReadFile(Path("/var/run/osd.pid")).c_str()); }

 private:
  std::string m_path = "/tmp/osd-system-XXXXXX";
};

class CDaemon {
 public:
  // Starts it on i_root, which outlives it; killed at the end if it still runs.
  explicit CDaemon(const CDeviceRoot& i_root, const char* i_pOption = nullptr);
  ~CDaemon() { Stop(9); }
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
    s_u32Replies = s_pPeer->AwaitAnswer();
    ASSERT_GT(s_u32Replies, 0U);
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
  // How many datagrams the daemon sent, and so the number of the next one.
  static inline UInt32 s_u32Replies = 0;
};
