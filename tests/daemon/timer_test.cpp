// The timer service by itself: this program is the bus, and module 9 the one that asks.
#include "daemon/common/timer.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <vector>

#include "daemon/common/bus.h"
#include "framework/clock.h"
#include "framework/task.h"
#include "tests/log_capture.h"

namespace {

struct T_Expiry {
  T_ModuleMsg m_stMsg;
  SInt64 m_s64At;
};

std::mutex g_mutex;
std::condition_variable g_arrived;
std::vector<T_Expiry> g_expiries;
std::function<void(const T_ModuleMsg&)> g_onExpiry;
std::atomic<SInt32> g_s32Ahead{0};  // s

}  // namespace

// The system's, put forward.
int clock_gettime(clockid_t i_clock, timespec* o_pNow) noexcept {
  constexpr const char* kName = sizeof(long) == 4 ? "__clock_gettime64" : "clock_gettime";
  static const auto s_pReal = reinterpret_cast<decltype(&clock_gettime)>(dlsym(RTLD_NEXT, kName));
  const int result = s_pReal(i_clock, o_pNow);
  o_pNow->tv_sec += g_s32Ahead;
  return result;
}

UInt32 SendSyncAndAsyncMsg(const T_ModuleMsg* i_pMsg, UInt32) {
  {
    std::lock_guard lock(g_mutex);
    g_expiries.push_back({*i_pMsg, CTime::Milliseconds()});
  }
  g_arrived.notify_all();
  if (g_onExpiry) g_onExpiry(*i_pMsg);
  return 1;
}

namespace {

class Timer : public testing::Test {
 protected:
  void SetUp() override {
    g_expiries.clear();
    g_onExpiry = nullptr;
  }
  UInt32 Send(const T_ModuleMsg& i_request) { return m_objTimer.HandleSyncMsg(&i_request, 0); }
  UInt32 Scan() { return Send({kSyncMsg, 9, kModuleTimer, kMsgTimer, {}}); }
  UInt32 Add(UInt32 i_u32Type, UInt32 i_u32Id, UInt32 i_u32Ms) {
    return Send(
        MakeMessage(kSyncMsg, 9, kModuleTimer, T_TimerAdd{i_u32Type, i_u32Id, i_u32Ms, {}}));
  }
  UInt32 Cancel(UInt32 i_u32Type, UInt32 i_u32Id) {
    return Send(MakeMessage(kSyncMsg, 9, kModuleTimer, T_TimerCancel{i_u32Type, i_u32Id}));
  }
  void AwaitExpiries(size_t i_count) {
    std::unique_lock lock(g_mutex);
    ASSERT_TRUE(g_arrived.wait_for(lock, std::chrono::seconds(10),
                                   [&] { return g_expiries.size() >= i_count; }));
  }
  CTimer m_objTimer;
};

TEST_F(Timer, OneShotOnTheThreadFiresOnceNotEarlyAndEchoesItsPayload) {
  CThread::Initialize(0x180000);
  m_objTimer.Start();
  T_TimerAdd add{0, 7, 50, {0xABCD}};
  add.m_aOwn[252] = 0x11111111;
  add.m_aOwn[253] = 0x22222222;  // beyond the echoed 1024 bytes
  T_ModuleMsg request = MakeMessage(kAsyncMsg, 9, kModuleTimer, add);
  const SInt64 added = CTime::Milliseconds();
  ASSERT_EQ(m_objTimer.PushMsg(&request), 1u);
  AwaitExpiries(1);
  const auto& [msg, at] = g_expiries[0];
  EXPECT_GE(at - added, 50);
  EXPECT_EQ(msg.m_u32MsgType, kAsyncMsg);
  EXPECT_EQ(std::pair(msg.m_u32Src, msg.m_u32Dst), std::pair(3u, 9u)) << "from the service";
  add.m_aOwn[253] = 0;
  EXPECT_EQ(std::memcmp(msg.m_aPayload, &add, sizeof(add)), 0);
  add = {0, 8, 100, {}};
  request = MakeMessage(kAsyncMsg, 9, kModuleTimer, add);
  m_objTimer.PushMsg(&request);
  AwaitExpiries(2);
  EXPECT_EQ(g_expiries[1].m_stMsg.Read<T_TimerExpiry>().m_u32Id, 8u)
      << "the one-shot fired a second time";
  m_objTimer.Stop();
}

TEST_F(Timer, PeriodicFiresUntilCancelledAndZeroIntervalAtOnce) {
  CLogCapture log;
  Add(1, 5, 0);
  EXPECT_EQ(g_expiries.size(), 1u);
  Scan();
  EXPECT_EQ(g_expiries.size(), 2u);
  Add(1, 5, 0);  // a duplicate is a second timer, and the first fires again
  EXPECT_EQ(g_expiries.size(), 4u);
  EXPECT_EQ(Cancel(0, 5) + Cancel(1, 6), 2u) << "type and id count";
  Send(MakeMessage(kSyncMsg, 8, kModuleTimer, T_TimerCancel{1, 5}));  // a stranger's
  Scan();
  EXPECT_EQ(g_expiries.size(), 6u);
  EXPECT_EQ(Cancel(1, 5), 1u);
  Scan();
  EXPECT_EQ(g_expiries.size(), 6u);
  EXPECT_EQ(log.Count("INFO cancel timer src:9, type:1, id:5"), 2);
  EXPECT_EQ(Send({kSyncMsg, 9, kModuleTimer, 0x777, {}}), 1u);
  EXPECT_EQ(m_objTimer.HandleSyncMsg(nullptr, 0), 0u);
}

TEST_F(Timer, APeriodBeginsWhenTheExpiryHasBeenHandled) {
  constexpr SInt32 kPeriod = 50000;  // s
  Add(1, 5, kPeriod * 1000);
  g_onExpiry = [](const T_ModuleMsg&) { g_s32Ahead += 2 * kPeriod; };
  for (const size_t expiries : {0u, 1u, 1u, 2u}) {
    g_s32Ahead += kPeriod / 2 + 1;
    Scan();
    EXPECT_EQ(g_expiries.size(), expiries);
  }
  g_s32Ahead = 0;
}

TEST_F(Timer, RequestsFromInsideAnExpiryNeitherRecurseNorFreeWhatIsFiring) {
  g_onExpiry = [this](const T_ModuleMsg& i_msg) {
    if (i_msg.Read<T_TimerExpiry>().m_u32Id != 1) return;
    Add(0, 2, 0);  // its scan must skip the firing timer
    Cancel(1, 1);  // cancels the timer that is firing
    Cancel(1, 3);  // and the one that the outer scan would come to next
    Scan();
  };
  Add(1, 3, 100000);
  Add(1, 1, 0);
  std::vector<UInt32> ids;
  for (const T_Expiry& expiry : g_expiries)
    ids.push_back(expiry.m_stMsg.Read<T_TimerExpiry>().m_u32Id);
  EXPECT_EQ(ids, (std::vector<UInt32>{1, 2}));
  Scan();
  EXPECT_EQ(g_expiries.size(), 2u) << "a cancelled or one-shot timer fired again";
}

TEST(MsgQueue, KeepsItsOrderWhenItIsFullAndIsUsedAgain) {
  CMsgQueue queue;
  for (UInt32 round = 0; round < 2; ++round) {
    T_ModuleMsg msg{};
    while (queue.Push(&msg) != 0) ++msg.m_u32MsgNo;
    EXPECT_EQ(msg.m_u32MsgNo, 57u);
    T_ModuleMsg out{};
    for (UInt32 no = 0; queue.Pop(1, &out) != 0; ++no) EXPECT_EQ(out.m_u32MsgNo, no);
    EXPECT_EQ(out.m_u32MsgNo, 56u);
  }
}

class CSender : public CTask {
  SInt64 Run() override { return 0; }
};

TEST(MsgQueue, TellsASenderOnceThatThereIsRoomAndNotWhenItsOwnerStandsStill) {
  CMsgQueue queue;
  CSender sender;
  T_ModuleMsg msg{};
  const auto fill = [&] {
    while (queue.HasRoomFor(&sender)) EXPECT_EQ(queue.Push(&msg), 1u);
  };
  const auto popUntilWoken = [&] {
    UInt32 u32Popped = 0;
    while (sender.GetEvents() == 0 && queue.Pop(1, &msg) != 0) ++u32Popped;
    return u32Popped;
  };
  fill();
  EXPECT_EQ(popUntilWoken(), 24u);
  EXPECT_EQ(popUntilWoken(), 24u) << "woken twice, or not all was there";
  fill();
  CThread::Sleep(50);
  const SInt64 full = CTime::Milliseconds();  // it counts from the last one that was taken
  EXPECT_EQ(queue.Pop(1, &msg) + queue.Push(&msg), 2u);
  while (!queue.HasRoomFor(&sender)) CThread::Sleep(1);
  EXPECT_GE(CTime::Milliseconds() - full, CMsgQueue::kStuckMs);
  while (queue.Push(&msg) != 0) EXPECT_TRUE(queue.HasRoomFor(&sender)) << "nobody takes any";
  queue.Pop(1, &msg);
  EXPECT_FALSE(queue.HasRoomFor(&sender));
  queue.Close();
  EXPECT_EQ(popUntilWoken(), 56u) << "nobody is told";
  EXPECT_FALSE(queue.HasRoomFor(&sender));
}

}  // namespace
