#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <mutex>
#include <semaphore>
#include <thread>

#include "framework/udpsocket.h"

namespace {

// A watched end of a stream whose deliveries are recorded: its name, then R or W.
class CWatchedEnd : public CEventContext {
 public:
  // Its descriptor is the first free one from i_s32Lowest on; a byte waits in it.
  CWatchedEnd(char i_cName, SInt32 i_s32Lowest) : CEventContext(-1), m_cName(i_cName) {
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, m_aEnds), 0);
    InitNonBlocking(fcntl(m_aEnds[0], F_DUPFD_CLOEXEC, i_s32Lowest));
    close(m_aEnds[0]);
    EXPECT_EQ(write(m_aEnds[1], "x", 1), 1);
  }
  ~CWatchedEnd() override {
    AutoCleanup();
    close(m_aEnds[1]);
  }

  std::mutex m_gate;  // the event thread passes it after every delivery
  static inline std::string s_log;
  static inline std::counting_semaphore<> s_delivered{0};

  void ProcessEvent(SInt32 i_s32EventBits) override {
    s_log += {m_cName, i_s32EventBits == EV_RE ? 'R' : 'W'};
    s_delivered.release();
    const std::lock_guard gate(m_gate);
  }
  const char m_cName;
  SInt32 m_aEnds[2];
};

class EventLoop : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    if (g_pEventThread != nullptr) return;  // the tests may be repeated
    CThread::Initialize(0x180000);
    select_startevents();
    g_pEventThread = new CEventThread;
    g_pEventThread->Start();
  }
  void TearDown() override { CWatchedEnd::s_log.clear(); }
};

TEST_F(EventLoop, DeliversOnceUntilAskedAgainEvenByANewOwner) {
  CWatchedEnd objOnce('a', 200), objOther('b', 210), objHeir('c', 220);
  objOnce.RequestEvent(EV_RE);
  CWatchedEnd::s_delivered.acquire();
  objOther.RequestEvent(EV_RE);  // a round in which the first one's byte still waits
  CWatchedEnd::s_delivered.acquire();
  objHeir.TakeOverContext(objOnce);
  objHeir.RequestEvent(EV_RE);
  CWatchedEnd::s_delivered.acquire();
  EXPECT_EQ(CWatchedEnd::s_log, "aRbRcR");
}

TEST_F(EventLoop, ReadsComeFirstAndRemovalsInARoundLoseNothingElse) {
  CWatchedEnd objFirst('a', 200), objLow('b', 210), objBoth('c', 220), objGone('d', 240);
  std::unique_lock beforeRound(objFirst.m_gate), inRound(objBoth.m_gate);
  objFirst.RequestEvent(EV_RE);
  CWatchedEnd::s_delivered.acquire();
  objLow.RequestEvent(EV_WR);
  for (CWatchedEnd* pEnd : {&objBoth, &objGone}) pEnd->RequestEvent(EV_RE | EV_WR);
  const SInt32 s32Gone = objGone.GetFileDesc();
  EXPECT_EQ(select_highestwatched(), s32Gone);
  beforeRound.unlock();
  CWatchedEnd::s_delivered.acquire();
  objGone.Cleanup();
  EXPECT_EQ(select_highestwatched(), objLow.GetFileDesc());
  EXPECT_GE(fcntl(s32Gone, F_GETFD), 0);  // the event thread closes it
  objBoth.RequestEvent(EV_RE);            // while its write event is on its way
  inRound.unlock();
  for (int i = 0; i < 2; ++i) CWatchedEnd::s_delivered.acquire();
  objFirst.RequestEvent(EV_RE);
  CWatchedEnd::s_delivered.acquire();
  EXPECT_EQ(CWatchedEnd::s_log, "aRcRbWcWaR");
}

struct T_Idle : CTask {
  SInt64 Run() override { return 0; }
};
std::atomic<UInt16> s_aPorts[3];

// Every other round's socket goes while datagrams are on their way; the rest get an event for each
// arming. An unbound socket, whose descriptor was a bound one's before, is never readable.
void OpenAndClose(size_t i_worker) {
  for (UInt32 u32Round = 0; u32Round < 1000; ++u32Round) {
    T_Idle quietTask, loudTask;  // without a pool they only collect their events
    CUDPSocket objQuiet(&quietTask, CSocket::kNonBlocking);
    CUDPSocket objLoud(&loudTask, CSocket::kNonBlocking);
    for (CUDPSocket* pSocket : {&objQuiet, &objLoud}) EXPECT_EQ(pSocket->Open(), OS_NoErr);
    EXPECT_EQ(objLoud.Bind(INADDR_LOOPBACK, 0), OS_NoErr);
    s_aPorts[i_worker] = objLoud.GetLocalPort();
    for (CUDPSocket* pSocket : {&objQuiet, &objLoud}) pSocket->RequestEvent(EV_RE);
    for (UInt32 u32Armed = 0; u32Armed < 3; ++u32Armed) {
      for (const UInt16 u16Port : s_aPorts) objLoud.SendTo(INADDR_LOOPBACK, u16Port, "x", 1);
      if (u32Round % 2 == 0) continue;
      while (loudTask.GetEvents() != CTask::kReadEvent) std::this_thread::yield();
      objLoud.RequestEvent(EV_RE);
    }
    objQuiet.Cleanup();
    EXPECT_EQ(quietTask.GetEvents(), 0U);
  }
}

auto OpenDescriptors() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

TEST_F(EventLoop, SocketsComeAndGoWhileDatagramsArrive) {
  const auto before = OpenDescriptors();
  std::thread aWorkers[std::size(s_aPorts)];
  for (size_t i = 0; i < std::size(aWorkers); ++i) aWorkers[i] = std::thread(OpenAndClose, i);
  for (std::thread& refWorker : aWorkers) refWorker.join();
  while (OpenDescriptors() > before) std::this_thread::yield();  // the event thread closes them all
}

}  // namespace
