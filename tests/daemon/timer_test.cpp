// The timer service by itself: this program is the bus, and module 9 the one that asks.
#include "daemon/common/timer.h"

#include <gtest/gtest.h>

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

}  // namespace

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

T_ModuleMsg Request(UInt32 i_u32No, UInt32 i_u32Type = 0, UInt32 i_u32Id = 0, UInt32 i_u32Ms = 0) {
  T_ModuleMsg request{.m_u32MsgType = kSyncMsg,
                      .m_u32Src = 9,
                      .m_u32Dst = kModuleTimer,
                      .m_u32MsgNo = i_u32No,
                      .m_aPayload = {}};
  request.PutWord(0, i_u32Type);
  request.PutWord(1, i_u32Id);
  request.PutWord(2, i_u32Ms);
  return request;
}

class Timer : public testing::Test {
 protected:
  void SetUp() override {
    g_expiries.clear();
    g_onExpiry = nullptr;
  }
  UInt32 Send(UInt32 i_u32No, UInt32 i_u32Type = 0, UInt32 i_u32Id = 0, UInt32 i_u32Ms = 0) {
    const T_ModuleMsg request = Request(i_u32No, i_u32Type, i_u32Id, i_u32Ms);
    return m_objTimer.HandleSyncMsg(&request, 0);
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
  T_ModuleMsg request = Request(kMsgTimerAdd, 0, 7, 50);
  request.m_u32MsgType = kAsyncMsg;
  request.PutWord(3, 0xABCD);
  request.PutWord(255, 0x11111111);
  request.PutWord(256, 0x22222222);  // beyond the echoed 1024 bytes
  const SInt64 added = CTime::Milliseconds();
  ASSERT_EQ(m_objTimer.PushMsg(&request), 1u);
  AwaitExpiries(1);
  const auto& [msg, at] = g_expiries[0];
  EXPECT_GE(at - added, 50);
  EXPECT_EQ(msg.m_u32MsgType, kAsyncMsg);
  EXPECT_EQ(msg.m_u32Dst, 9u);
  EXPECT_EQ(msg.Word(3), 0xABCDu);
  EXPECT_EQ(msg.Word(255), 0x11111111u);
  EXPECT_EQ(msg.Word(256), 0u);
  request = Request(kMsgTimerAdd, 0, 8, 100);
  m_objTimer.PushMsg(&request);
  AwaitExpiries(2);
  EXPECT_EQ(g_expiries[1].m_stMsg.Word(1), 8u) << "the one-shot fired a second time";
  m_objTimer.Stop();
}

TEST_F(Timer, PeriodicFiresUntilCancelledAndZeroIntervalAtOnce) {
  CLogCapture log;
  Send(kMsgTimerAdd, 1, 5, 0);
  EXPECT_EQ(g_expiries.size(), 1u);
  Send(kMsgTimer);
  EXPECT_EQ(g_expiries.size(), 2u);
  Send(kMsgTimerAdd, 1, 5, 0);  // a duplicate is a second timer, and the first fires again
  EXPECT_EQ(g_expiries.size(), 4u);
  EXPECT_EQ(Send(kMsgTimerCancel, 0, 5), 1u) << "the type counts";
  Send(kMsgTimer);
  EXPECT_EQ(g_expiries.size(), 6u);
  EXPECT_EQ(Send(kMsgTimerCancel, 1, 5), 1u);
  Send(kMsgTimer);
  EXPECT_EQ(g_expiries.size(), 6u);
  EXPECT_EQ(log.Count("INFO add timer src:9, type:1, id:5"), 2);
  EXPECT_EQ(log.Count("INFO cancel timer src:9, type:1, id:5"), 2);
  EXPECT_EQ(Send(0x777), 1u);
  EXPECT_EQ(m_objTimer.HandleSyncMsg(nullptr, 0), 0u);
}

TEST_F(Timer, RequestsFromInsideAnExpiryNeitherRecurseNorFreeWhatIsFiring) {
  g_onExpiry = [this](const T_ModuleMsg& i_msg) {
    if (i_msg.Word(1) != 1) return;
    Send(kMsgTimerAdd, 0, 2, 0);  // its scan must skip the firing timer
    Send(kMsgTimerCancel, 1, 1);  // cancels the timer that is firing
    Send(kMsgTimerCancel, 1, 3);  // and the one that the outer scan would come to next
  };
  Send(kMsgTimerAdd, 1, 3, 100000);
  Send(kMsgTimerAdd, 1, 1, 0);
  std::vector<UInt32> ids;
  for (const T_Expiry& expiry : g_expiries) ids.push_back(expiry.m_stMsg.Word(1));
  EXPECT_EQ(ids, (std::vector<UInt32>{1, 2}));
  Send(kMsgTimer);
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
  EXPECT_EQ(queue.Pop(1, &msg) + queue.Push(&msg), 2u);
  const SInt64 full = CTime::Milliseconds();  // from the last one that was taken
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
