#include <sched.h>
#include <sys/resource.h>

#include <array>
#include <atomic>
#include <filesystem>
#include <iterator>
#include <thread>

#include "framework/udpsocket.h"
#include "tests/framework/event_loop.h"

namespace {

using Log = CWatchedEnd::Log;

class EventLoop : public testing::Test {
 protected:
  EventLoop() {
    StartEventLoop();
    CWatchedEnd::ClearLog();
  }
};

TEST_F(EventLoop, DeliversOnceUntilAskedAgain) {
  CWatchedEnd objOnce(200), objOther(210);
  objOnce.RequestEvent(EV_RE);
  // Two rounds of another descriptor, while the first one's byte still waits.
  for (const size_t known : {1U, 2U}) {
    CWatchedEnd::Await(known);
    objOther.RequestEvent(EV_RE);
  }
  CWatchedEnd::Await(3);
  objOnce.RequestEvent(EV_RE);
  EXPECT_EQ(CWatchedEnd::Await(4),
            (Log{{&objOnce, EV_RE}, {&objOther, EV_RE}, {&objOther, EV_RE}, {&objOnce, EV_RE}}));
}

TEST_F(EventLoop, ReadsComeFirstAndRemovalsInARoundLoseNothingElse) {
  CWatchedEnd objGate(200), objLow(210), objBoth(220), objGone(230), objHighest(240);
  objGate.Hold(true);
  objBoth.Hold(true);
  objGate.RequestEvent(EV_RE);
  CWatchedEnd::Await(1);
  objLow.RequestEvent(EV_WR);
  for (CWatchedEnd* pEnd : {&objBoth, &objGone, &objHighest}) pEnd->RequestEvent(EV_RE | EV_WR);
  EXPECT_EQ(select_highestwatched(), objHighest.GetFileDesc());
  objGate.Hold(false);
  CWatchedEnd::Await(2);
  objGone.Cleanup();
  objHighest.Cleanup();
  EXPECT_EQ(select_highestwatched(), objLow.GetFileDesc());
  objBoth.Hold(false);
  CWatchedEnd::Await(4);
  objGate.RequestEvent(EV_RE);
  EXPECT_EQ(CWatchedEnd::Await(5), (Log{{&objGate, EV_RE},
                                        {&objBoth, EV_RE},
                                        {&objLow, EV_WR},
                                        {&objBoth, EV_WR},
                                        {&objGate, EV_RE}}));
}

TEST_F(EventLoop, RearmingDropsWhatIsNoLongerAskedFor) {
  CWatchedEnd objEnd(200);
  objEnd.Hold(true);
  objEnd.RequestEvent(EV_RE | EV_WR);
  CWatchedEnd::Await(1);
  objEnd.RequestEvent(EV_RE);
  objEnd.Hold(false);
  EXPECT_EQ(CWatchedEnd::Await(2), (Log{{&objEnd, EV_RE}, {&objEnd, EV_RE}}));
}

TEST_F(EventLoop, CleanupLeavesTheClosingToTheEventThread) {
  CWatchedEnd objGate(200), objEnd(210);
  objGate.Hold(true);
  objGate.RequestEvent(EV_RE);
  CWatchedEnd::Await(1);
  objEnd.RequestEvent(EV_RE);
  objEnd.Cleanup();
  EXPECT_GE(fcntl(210, F_GETFD), 0);
  objGate.Hold(false);
  char byte = 0;
  EXPECT_LE(read(objEnd.m_s32Peer, &byte, 1), 0);  // blocks until the other end is closed

  objEnd.Open(220);
  objEnd.Cleanup();  // was never armed
  EXPECT_EQ(fcntl(220, F_GETFD), -1);
}

TEST_F(EventLoop, IdentifiersWrapAndSkipThoseInUse) {
  CWatchedEnd objLast(200), objFirst(210), objSecond(220);
  CWatchedEnd::SetLastUniqueID(9999999);
  for (CWatchedEnd* pEnd : {&objLast, &objFirst, &objSecond}) pEnd->RequestEvent(EV_RE);
  EXPECT_EQ(objLast.GetUniqueID(), 10000000U);
  EXPECT_EQ(objFirst.GetUniqueID(), 1U);
  objSecond.Cleanup();
  CWatchedEnd::SetLastUniqueID(10000000);
  objSecond.Open(220);
  objSecond.RequestEvent(EV_RE);
  EXPECT_EQ(objSecond.GetUniqueID(), 2U);
}

TEST_F(EventLoop, TakenOverWatchReachesTheNewOwner) {
  CWatchedEnd objNew(200), objOld(210);
  objOld.RequestEvent(EV_RE);
  CWatchedEnd::Await(1);
  objNew.TakeOverContext(objOld);
  EXPECT_EQ(objOld.GetFileDesc(), CEventContext::kInvalidFileDesc);
  objNew.RequestEvent(EV_RE);
  EXPECT_EQ(CWatchedEnd::Await(2), (Log{{&objOld, EV_RE}, {&objNew, EV_RE}}));
}

TEST_F(EventLoop, DescriptorBeyondTheSetsAborts) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  rlimit stLimit{};
  getrlimit(RLIMIT_NOFILE, &stLimit);
  stLimit.rlim_cur = stLimit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &stLimit);
  CWatchedEnd objEnd(1024);
  EXPECT_DEATH(objEnd.RequestEvent(EV_RE),
               R"(ev:179: .*`i_pReq->er_handle < \(SInt32\)\(sizeof\(fd_set\) \* 8\)' failed)");
}

constexpr UInt32 kLoopback = 0x7F000001;

class CCountingSocket : public CUDPSocket {
 public:
  CCountingSocket() : CUDPSocket(nullptr, kNonBlocking) { EXPECT_EQ(Open(), OS_NoErr); }
  ~CCountingSocket() override { AutoCleanup(); }
  std::atomic<UInt32> m_u32Events{0};

 private:
  void ProcessEvent(SInt32) override { ++m_u32Events; }
};

// Every other loud socket goes while datagrams are on their way, the rest get an event for each
// arming. An unbound socket, whose descriptor was a loud one's before, is never readable.
void OpenAndClose(std::atomic<UInt16>* o_pPort) {
  for (UInt32 u32Round = 0; u32Round < 1000; ++u32Round) {
    CCountingSocket objQuiet, objLoud;
    EXPECT_EQ(objLoud.Bind(kLoopback, 0), OS_NoErr);
    *o_pPort = objLoud.GetLocalPort();
    objQuiet.RequestEvent(EV_RE);
    objLoud.RequestEvent(EV_RE);
    for (UInt32 u32Armed = 1; u32Round % 2 == 0 && u32Armed <= 3; ++u32Armed) {
      objLoud.SendTo(kLoopback, objLoud.GetLocalPort(), "x", 1);
      while (objLoud.m_u32Events < u32Armed) sched_yield();
      objLoud.RequestEvent(EV_RE);
    }
    objQuiet.Cleanup();
    EXPECT_EQ(objQuiet.m_u32Events, 0U);
  }
}

auto OpenDescriptors() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

TEST_F(EventLoop, SocketsComeAndGoWhileDatagramsArrive) {
  CWatchedEnd objEnd(200);
  const auto before = OpenDescriptors();
  std::array<std::atomic<UInt16>, 3> aPorts{};
  std::atomic<Bool> bOver{false};
  std::thread noise([&] {
    CCountingSocket objSender;
    for (size_t turn = 0; !bOver; sched_yield())
      objSender.SendTo(kLoopback, aPorts[++turn % aPorts.size()], "x", 1);
  });
  std::array<std::thread, 3> aWorkers;
  for (size_t i = 0; i < aWorkers.size(); ++i) aWorkers[i] = std::thread(OpenAndClose, &aPorts[i]);
  for (std::thread& refWorker : aWorkers) refWorker.join();
  bOver = true;
  noise.join();
  objEnd.RequestEvent(EV_RE);
  EXPECT_EQ(CWatchedEnd::Await(1), (Log{{&objEnd, EV_RE}}));
  while (OpenDescriptors() > before) sched_yield();  // the event thread closes them all
}

}  // namespace
