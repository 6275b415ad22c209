#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/select.h>
#include <unistd.h>

#include <filesystem>
#include <mutex>
#include <semaphore>
#include <thread>

#include "framework/udpsocket.h"

namespace {

std::atomic<SInt32> s_s32Bound{0};    // of the last select()
std::atomic<UInt32> s_u32Selects{0};  // that have begun
std::atomic<int> s_failure{0};        // the errno of the next one, once
std::mutex s_selectGate;              // which each passes before it looks

}  // namespace

// Between the event thread and the kernel.
int select(int i_bound, fd_set* io_pRead, fd_set* io_pWrite, fd_set* io_pExcept,
           timeval* io_pTimeout) {
  constexpr const char* kName = sizeof(long) == 4 ? "__select64" : "select";
  static const auto s_pReal = reinterpret_cast<decltype(&select)>(dlsym(RTLD_NEXT, kName));
  s_s32Bound = i_bound;
  ++s_u32Selects;
  s_selectGate.lock();
  s_selectGate.unlock();
  errno = s_failure.exchange(0);
  return errno != 0 ? -1 : s_pReal(i_bound, io_pRead, io_pWrite, io_pExcept, io_pTimeout);
}

namespace {

// A watched end of a stream whose deliveries are recorded: its name, then R or W.
class CWatchedEnd : public CEventContext {
 public:
  // Its descriptor is the first free one from i_s32Lowest on; a byte waits in it, or none.
  CWatchedEnd(char i_cName, SInt32 i_s32Lowest, ssize_t i_sBytes = 1)
      : CEventContext(-1), m_cName(i_cName) {
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, m_aEnds), 0);
    InitNonBlocking(fcntl(m_aEnds[0], F_DUPFD_CLOEXEC, i_s32Lowest));
    close(m_aEnds[0]);
    EXPECT_EQ(write(m_aEnds[1], "x", static_cast<size_t>(i_sBytes)), i_sBytes);
  }
  ~CWatchedEnd() override {
    AutoCleanup();
    close(m_aEnds[1]);
  }

  void ArmAndAwait(int i_failure = 0) {
    s_failure = i_failure;
    RequestEvent(EV_RE);
    s_delivered.acquire();
  }

  using CEventContext::m_s32FileDesc;
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
  static long OpenDescriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
  }
  static void SetUpTestSuite() {
    if (g_pEventThread != nullptr) return;  // the tests may be repeated
    CThread::Initialize(0x180000);
    select_startevents();
    g_pEventThread = new CEventThread;
    g_pEventThread->Start();
    s_before = OpenDescriptors();
  }
  void TearDown() override {
    CWatchedEnd::s_log.clear();
    while (OpenDescriptors() > s_before) std::this_thread::yield();  // closed by the event thread
  }
  static inline long s_before = 0;
};

TEST_F(EventLoop, DeliversOnceUntilAskedAgainEvenByANewOwner) {
  CWatchedEnd objOnce('a', 200), objOther('b', 210), objHeir('c', 220);
  objOnce.ArmAndAwait();
  objOther.ArmAndAwait();  // a round in which the first one's byte still waits
  objHeir.TakeOverContext(objOnce);
  objHeir.ArmAndAwait();
  objOther.Cleanup();
  objOther.InitNonBlocking(fcntl(objHeir.m_s32FileDesc, F_DUPFD_CLOEXEC, 230));
  objOther.ArmAndAwait();
  EXPECT_EQ(CWatchedEnd::s_log, "aRbRcRbR");
}

TEST_F(EventLoop, ReadsComeFirstAndRemovalsInARoundLoseNothingElse) {
  CWatchedEnd objFirst('a', 200), objLow('b', 217), objBoth('c', 220), objGone('d', 240),
      objAgain('e', 215);
  std::unique_lock beforeRound(objFirst.m_gate), inRound(objBoth.m_gate);
  objFirst.ArmAndAwait();
  objLow.RequestEvent(EV_RE);
  for (int i = 0; i < 70000; ++i) objLow.RequestEvent(EV_WR);  // more than the wake-up pipe takes
  for (CWatchedEnd* pEnd : {&objAgain, &objBoth, &objGone}) pEnd->RequestEvent(EV_RE | EV_WR);
  const SInt32 s32Gone = objGone.m_s32FileDesc;
  beforeRound.unlock();
  for (int i = 0; i < 2; ++i) CWatchedEnd::s_delivered.acquire();
  EXPECT_EQ(s_s32Bound, s32Gone + 1);
  objGone.Cleanup();
  EXPECT_GE(fcntl(s32Gone, F_GETFD), 0);  // the event thread closes it
  objAgain.RequestEvent(EV_RE);           // while its write event is on its way
  inRound.unlock();
  for (int i = 0; i < 3; ++i) CWatchedEnd::s_delivered.acquire();
  for (int i = 0; i < 2; ++i) objFirst.ArmAndAwait();  // by then the write events would be back
  EXPECT_EQ(CWatchedEnd::s_log, "aReRcReWbWcWaRaR");
  EXPECT_EQ(s_s32Bound, objLow.m_s32FileDesc + 1);
}

// The number that it had belongs to somebody else by the time its event would be delivered.
TEST_F(EventLoop, WhatIsRemovedWhileSelectWaitsIsNotDelivered) {
  CWatchedEnd objBefore('a', 200), objFirst('b', 210), objGone('c', 220), objWrites('e', 190);
  std::unique_lock beforeRound(objBefore.m_gate), inRound(objFirst.m_gate);
  objBefore.ArmAndAwait();
  std::unique_lock inSelect(s_selectGate);
  for (CWatchedEnd* pEnd : {&objFirst, &objGone}) pEnd->RequestEvent(EV_RE);
  objWrites.RequestEvent(EV_WR);
  const UInt32 u32Selects = s_u32Selects;
  beforeRound.unlock();
  while (s_u32Selects == u32Selects) std::this_thread::yield();
  const SInt32 s32Gone = objGone.m_s32FileDesc;
  for (CWatchedEnd* pEnd : {&objGone, &objWrites}) pEnd->Cleanup();
  inSelect.unlock();
  CWatchedEnd::s_delivered.acquire();
  CWatchedEnd objQuiet('d', s32Gone, 0);
  EXPECT_EQ(objQuiet.m_s32FileDesc, s32Gone);
  objQuiet.RequestEvent(EV_RE);
  inRound.unlock();
  objBefore.ArmAndAwait();
  EXPECT_EQ(CWatchedEnd::s_log, "aRbRaR");
  CThread::Sleep(50);  // until nothing but the removal ends select()
  objQuiet.Cleanup();
  while (fcntl(s32Gone, F_GETFD) >= 0) std::this_thread::yield();
}

using EventLoopDeathTest = EventLoop;  // a name that an emulator's run leaves out
TEST_F(EventLoopDeathTest, InterruptionsAreNotFatalAndRealErrorsAre) {
  CWatchedEnd objEnd('a', 200);
  for (const int passing : {EINTR, EBADF}) objEnd.ArmAndAwait(passing);
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(objEnd.ArmAndAwait(EINVAL), "eventcontext:162: virtual void CEventThread::Entry");
}

// The identifier given out last, which no function tells.
std::atomic<UInt32>& LastIdentifier();
template <auto t_pMember>
struct T_Reached {
  friend std::atomic<UInt32>& LastIdentifier() { return *t_pMember; }
};
template struct T_Reached<&CEventContext::s_u32UniqueID>;

TEST_F(EventLoop, IdentifiersWrapAndSkipThoseInUse) {
  CWatchedEnd objLast('a', 200), objGreatest('b', 210), objWrapped('c', 220), objSkips('d', 230);
  LastIdentifier() = 9999998;
  for (CWatchedEnd* pEnd : {&objLast, &objGreatest, &objWrapped}) pEnd->ArmAndAwait();
  EXPECT_EQ(LastIdentifier(), 1U);
  LastIdentifier() = 9999998;
  objSkips.ArmAndAwait();
  EXPECT_EQ(LastIdentifier(), 2U);
  EXPECT_EQ(CWatchedEnd::s_log, "aRbRcRdR");
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

TEST_F(EventLoop, SocketsComeAndGoWhileDatagramsArrive) {
  std::thread aWorkers[std::size(s_aPorts)];
  for (size_t i = 0; i < std::size(aWorkers); ++i) aWorkers[i] = std::thread(OpenAndClose, i);
  for (std::thread& refWorker : aWorkers) refWorker.join();
}

}  // namespace
