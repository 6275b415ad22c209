#include "daemon/common/timer.h"

#include "daemon/common/bus.h"
#include "framework/clock.h"
#include "framework/log.h"

namespace {

constexpr SInt32 kMaxWaitMs = 10;

}  // namespace

CTimer::~CTimer() { StopAndWaitForThread(); }

UInt32 CTimer::PushMsg(const T_ModuleMsg* i_pMsg) {
  if (m_objQueue.Push(i_pMsg) != 0) return 1;
  LOG_ERROR("CTimer pushmsg fail");
  return 0;
}

UInt32 CTimer::HandleSyncMsg(const T_ModuleMsg* i_pMsg, UInt32 /*i_u32Arg*/) {
  CMutexLocker locker(&m_objHandlerLock);
  if (i_pMsg == nullptr) return 0;
  switch (i_pMsg->m_u32MsgNo) {
    case T_TimerAdd::kMsgNo:
      Add(*i_pMsg);
      break;
    case T_TimerCancel::kMsgNo:
      Cancel(*i_pMsg);
      break;
    case kMsgTimer:
      Scan();
      break;
    default:
      break;
  }
  return 1;
}

void CTimer::Stop() {
  RequestStop();
  const T_ModuleMsg wake{kAsyncMsg, 0, kModuleTimer, kMsgNone, {}};
  PushMsg(&wake);
  StopAndWaitForThread();
}

void CTimer::Entry() {
  SetThreadName("timer");
  T_ModuleMsg msg{};
  while (!IsStopRequested()) {
    msg.m_u32MsgNo = kMsgTimer;  // a wait that ends without a request is a scan
    m_objQueue.Pop(m_s32Wait.load(std::memory_order_relaxed), &msg);
    HandleSyncMsg(&msg, 0);
  }
}

// No check for duplicates: the same timer added twice is two timers.
void CTimer::Add(const T_ModuleMsg& i_request) {
  const auto add = i_request.Read<T_TimerAdd>();
  const T_TimerInfo timer{.m_u32Src = i_request.m_u32Src,
                          .m_u32Type = add.m_u32Type,
                          .m_u32Id = add.m_u32Id,
                          .m_u32Interval = add.m_u32Interval,
                          .m_s64Deadline = CTime::Milliseconds() + add.m_u32Interval,
                          .m_stRequest = i_request,
                          .m_bFiring = false,
                          .m_bDead = false};
  LOG_INFO("add timer src:%d, type:%d, id:%d", timer.m_u32Src, timer.m_u32Type, timer.m_u32Id);
  m_lstTimers.push_back(timer);
  Scan();
}

void CTimer::Cancel(const T_ModuleMsg& i_request) {
  const auto [u32Type, u32Id] = i_request.Read<T_TimerCancel>();
  for (T_TimerInfo& timer : m_lstTimers) {
    if (timer.m_bDead || timer.m_u32Src != i_request.m_u32Src || timer.m_u32Type != u32Type ||
        timer.m_u32Id != u32Id)
      continue;
    timer.m_bDead = true;
    LOG_INFO("cancel timer src:%d, type:%d, id:%d", timer.m_u32Src, timer.m_u32Type, timer.m_u32Id);
  }
  if (m_u32ScanDepth == 0) m_lstTimers.remove_if([](const auto& timer) { return timer.m_bDead; });
}

void CTimer::Scan() {
  const SInt64 now = CTime::Milliseconds();
  SInt64 lastRemaining = 0;
  ++m_u32ScanDepth;
  for (T_TimerInfo& timer : m_lstTimers) {
    if (timer.m_bFiring || timer.m_bDead) continue;
    const SInt64 remaining = timer.m_s64Deadline - now;
    if (remaining <= 0 && timer.m_s64Deadline > 0)
      Fire(timer);
    else
      lastRemaining = remaining;
  }
  if (--m_u32ScanDepth == 0) m_lstTimers.remove_if([](const auto& timer) { return timer.m_bDead; });
  // The last timer in the list decides, not the nearest: the cap makes that harmless.
  const Bool bShort = lastRemaining >= 1 && lastRemaining <= kMaxWaitMs;
  m_s32Wait.store(bShort ? static_cast<SInt32>(lastRemaining) : kMaxWaitMs,
                  std::memory_order_relaxed);
}

void CTimer::Fire(T_TimerInfo& io_timer) {
  const T_ModuleMsg& request = io_timer.m_stRequest;
  const T_ModuleMsg expiry = MakeMessage(request.m_u32MsgType, kModuleTimer, request.m_u32Src,
                                         request.Read<T_TimerExpiry>());
  io_timer.m_bFiring = true;
  SendSyncAndAsyncMsg(&expiry, 0);
  io_timer.m_bFiring = false;

  io_timer.m_s64Deadline = CTime::Milliseconds() + io_timer.m_u32Interval;
  if (io_timer.m_u32Type == 0) io_timer.m_bDead = true;
}
