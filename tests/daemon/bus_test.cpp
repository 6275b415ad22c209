// The real bus with the real timer service and renderer behind it, neither thread started.
#include "daemon/common/bus.h"

#include <gtest/gtest.h>

#include <ctime>
#include <thread>

#include "daemon/modules.h"
#include "tests/log_capture.h"

static std::vector<long>* g_pPauses = nullptr;  // ms; when set, nothing is slept

// The system's, or what it is asked for.
int nanosleep(const timespec* i_pWait, timespec* o_pLeft) {
  if (g_pPauses == nullptr) return clock_nanosleep(CLOCK_REALTIME, 0, i_pWait, o_pLeft);
  g_pPauses->push_back(static_cast<long>(i_pWait->tv_sec) * 1000 + i_pWait->tv_nsec / 1000000);
  return 0;
}

namespace {

T_ModuleMsg Message(UInt32 i_u32Type, UInt32 i_u32Dst, UInt32 i_u32No) {
  return {.m_u32MsgType = i_u32Type,
          .m_u32Src = 9,
          .m_u32Dst = i_u32Dst,
          .m_u32MsgNo = i_u32No,
          .m_aPayload = {}};
}

using T_Lines = std::vector<std::string>;

TEST(Bus, UnknownDestinationsAndTypesAreRefusedInWords) {
  CLogCapture log;
  EXPECT_EQ(SendSyncAndAsyncMsg(nullptr, 0), 0u);
  EXPECT_TRUE(log.Take().empty());
  T_ModuleMsg msg = Message(kAsyncMsg, 5, 0x10);
  EXPECT_EQ(SendSyncAndAsyncMsg(&msg, 0), 0u);
  EXPECT_EQ(log.Take(), (T_Lines{"ERROR async message, unknown module<5>",
                                 "ERROR unhandle message, msgtype<1>,src<9>,dst<5>,msg no<0x10>"}));
  msg = Message(kSyncMsg, 5, 0x10);
  EXPECT_EQ(SendSyncAndAsyncMsg(&msg, 0), 0u);
  EXPECT_EQ(log.Take(), (T_Lines{"ERROR sync message, unknown module<5>",
                                 "ERROR unhandle message, msgtype<0>,src<9>,dst<5>,msg no<0x10>"}));
  msg = Message(2, kModuleOsd, 0x10);
  EXPECT_EQ(SendSyncAndAsyncMsg(&msg, 0), 0u);
  EXPECT_EQ(log.Take(), T_Lines{"ERROR unhandle message, msgtype<2>,src<9>,dst<4>,msg no<0x10>"});
}

TEST(Bus, SynchronousMessagesReachTheirModulesOnTheCallersThread) {
  CLogCapture log;
  T_ModuleMsg msg = Message(kSyncMsg, kModuleOsd, 0x50D);
  EXPECT_EQ(SendSyncAndAsyncMsg(&msg, 0), 1u);
  EXPECT_EQ(log.Take(),
            (T_Lines{"INFO -Osd_hifb_msg<0x50d>", "ERROR unkown handle message <0x50d>"}));
  msg = MakeMessage(kSyncMsg, 9, kModuleTimer, T_TimerAdd{0, 0, 60000, {}});
  EXPECT_EQ(SendSyncAndAsyncMsg(&msg, 0), 1u);
  EXPECT_TRUE(log.Has("INFO add timer src:9, type:0, id:0"));
}

TEST(Bus, FullInboxesRefuseWithTheModulesOwnLine) {
  CLogCapture log;
  for (const auto& [u32Dst, line] : {std::pair(3, "CTimer"), std::pair(4, "COsdHifb")}) {
    const T_ModuleMsg msg = Message(kAsyncMsg, static_cast<UInt32>(u32Dst), 0x10);
    for (UInt32 i = 0; i < 57; ++i) ASSERT_EQ(SendSyncAndAsyncMsg(&msg, 0), 1u);
    EXPECT_EQ(SendSyncAndAsyncMsg(&msg, 0), 0u);
    EXPECT_TRUE(log.Has("ERROR " + std::string(line) + " pushmsg fail"));
  }
  EXPECT_TRUE(log.Has("ERROR buf<57> overflow, msg<src:9,dst:3,msgtype:0x10> discard"));
}

// Only that ends it when who has the bus waits for who wants it.
TEST(Bus, GivesUpAfterThirtyAttemptsAtItsLock) {
  CLogCapture log;
  std::vector<long> pauses;
  g_pPauses = &pauses;
  CMutexLocker locker(&g_objBusMutex);
  std::thread([] {
    const T_ModuleMsg msg = MakeMessage(kSyncMsg, 9, kModuleTimer, T_TimerCancel{});
    EXPECT_EQ(SendSyncAndAsyncMsg(&msg, 0), 0u);
  }).join();
  g_pPauses = nullptr;
  EXPECT_EQ(pauses, std::vector<long>(29, 100));
  EXPECT_TRUE(
      log.Has("ERROR SendSyncAndAsyncMsg get mutex fail, msgtype<0>,src<9>,dst<3>,msg no<0x401>"));
}

TEST(Bus, ARequestThatMeetsAnExpiryLetsItPass) {
  CLogCapture log;
  // Due at once, to the renderer.
  T_ModuleMsg msg = MakeMessage(kSyncMsg, kModuleOsd, kModuleTimer, T_TimerAdd{});
  g_objBusMutex.RecursiveLock();
  std::thread expiry([msg] { g_objTimer.HandleSyncMsg(&msg, 0); });
  while (g_objTimer.HandlerLock().RecursiveTryLock()) {
    g_objTimer.HandlerLock().RecursiveUnlock();
    std::this_thread::yield();
  }
  g_objBusMutex.RecursiveUnlock();
  msg.Put(T_TimerCancel{});
  EXPECT_EQ(SendSyncAndAsyncMsg(&msg, 0), 1u);
  expiry.join();
  for (const std::string& line : log.Take()) EXPECT_EQ(line.find("ERROR"), line.npos) << line;
}

}  // namespace
