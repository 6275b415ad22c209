// The event thread that all tests of one program share (nothing ever stops it), and a watched end
// of a stream whose events are recorded and can hold the event thread up.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <utility>
#include <vector>

#include "framework/eventcontext.h"

inline void StartEventLoop() {
  if (g_pEventThread != nullptr) return;
  CThread::Initialize(0x180000);
  select_startevents();
  g_pEventThread = new CEventThread;
  g_pEventThread->Start();
}

class CWatchedEnd : public CEventContext {
 public:
  using Log = std::vector<std::pair<const CWatchedEnd*, SInt32>>;

  // Its descriptor is the first free one from i_s32Lowest on; a byte waits in it.
  explicit CWatchedEnd(SInt32 i_s32Lowest) : CEventContext(kInvalidFileDesc) { Open(i_s32Lowest); }
  ~CWatchedEnd() override {
    AutoCleanup();
    close(m_s32Peer);
  }
  void Open(SInt32 i_s32Lowest) {
    SInt32 aEnds[2] = {-1, -1};
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, aEnds), 0);
    InitNonBlocking(fcntl(aEnds[0], F_DUPFD_CLOEXEC, i_s32Lowest));
    close(aEnds[0]);
    close(std::exchange(m_s32Peer, aEnds[1]));
    EXPECT_EQ(write(m_s32Peer, "x", 1), 1);
  }
  // The event thread stays in this end's ProcessEvent from the next one on, until i_bHold is false.
  void Hold(Bool i_bHold) {
    const std::lock_guard lock(s_mutex);
    m_bHold = i_bHold;
    s_cond.notify_all();
  }
  // All deliveries since the log was cleared, once there are i_count of them.
  static Log Await(size_t i_count) {
    std::unique_lock lock(s_mutex);
    s_cond.wait_for(lock, std::chrono::seconds(60), [&] { return s_log.size() >= i_count; });
    return s_log;
  }
  static void ClearLog() {
    const std::lock_guard lock(s_mutex);
    s_log.clear();
  }
  using CEventContext::GetUniqueID;
  static void SetLastUniqueID(UInt32 i_u32ID) { s_u32UniqueID = i_u32ID; }

  SInt32 m_s32Peer = -1;

 private:
  void ProcessEvent(SInt32 i_s32EventBits) override {
    std::unique_lock lock(s_mutex);
    s_log.emplace_back(this, i_s32EventBits);
    s_cond.notify_all();
    s_cond.wait(lock, [this] { return !m_bHold; });
  }

  static inline std::mutex& s_mutex = *new std::mutex;
  static inline std::condition_variable& s_cond = *new std::condition_variable;
  static inline Log& s_log = *new Log;
  Bool m_bHold = false;
};
