#include "daemon/modules.h"

#include "daemon/common/bus.h"
#include "framework/log.h"
#include "framework/thread_annotations.h"

COsdHifb g_objOsdHifb;
CTimer g_objTimer;
CMutex g_objBusMutex;

namespace {

constexpr UInt32 kLockAttempts = 30;
constexpr UInt32 kLockPauseMs = 100;

struct T_Module {
  UInt32 m_u32Id;
  UInt32 (*m_pPush)(const T_ModuleMsg*);
  UInt32 (*m_pHandle)(const T_ModuleMsg*, UInt32);
  Bool (*m_pHasRoom)(CTask*);
  // What is held beside the bus lock while it handles a synchronous message; may be null.
  CMutex* m_pLock;
};

const T_Module kModules[] = {
    {kModuleTimer, [](const T_ModuleMsg* i_pMsg) { return g_objTimer.PushMsg(i_pMsg); },
     [](const T_ModuleMsg* i_pMsg, UInt32 i_u32Arg) {
       return g_objTimer.HandleSyncMsg(i_pMsg, i_u32Arg);
     },
     [](CTask*) { return true; }, &g_objTimer.HandlerLock()},
    {kModuleOsd, [](const T_ModuleMsg* i_pMsg) { return g_objOsdHifb.PushMsg(i_pMsg); },
     [](const T_ModuleMsg* i_pMsg, UInt32 i_u32Arg) {
       return g_objOsdHifb.HandleSyncMsg(i_pMsg, i_u32Arg);
     },
     [](CTask* i_pTask) { return g_objOsdHifb.HasRoomFor(i_pTask); }, nullptr},
};

const T_Module* FindModule(UInt32 i_u32Id) {
  for (const T_Module& module : kModules)
    if (module.m_u32Id == i_u32Id) return &module;
  return nullptr;
}

// Both or neither: an expiry holds the timer's lock and wants the bus, so who has the bus does not
// wait for that lock. There may be none, which the compiler cannot follow.
Bool TryLockBus(CMutex* i_pReceivers) NO_THREAD_SAFETY_ANALYSIS {
  if (!g_objBusMutex.RecursiveTryLock()) return false;
  if (i_pReceivers == nullptr || i_pReceivers->RecursiveTryLock()) return true;
  g_objBusMutex.RecursiveUnlock();
  return false;
}

Bool LockBus(CMutex* i_pReceivers) {
  for (UInt32 attempt = 1; !TryLockBus(i_pReceivers); ++attempt) {
    if (attempt == kLockAttempts) return false;
    CThread::Sleep(kLockPauseMs);
  }
  return true;
}

// "unhandle" is on purpose: field reports are searched for the text as it stands.
UInt32 Unhandled(const T_ModuleMsg& i_msg) {
  LOG_ERROR("unhandle message, msgtype<%d>,src<%d>,dst<%d>,msg no<0x%x>", i_msg.m_u32MsgType,
            i_msg.m_u32Src, i_msg.m_u32Dst, i_msg.m_u32MsgNo);
  return 0;
}

UInt32 SendAsync(const T_ModuleMsg& i_msg) {
  const T_Module* const pModule = FindModule(i_msg.m_u32Dst);
  if (pModule != nullptr) return pModule->m_pPush(&i_msg);
  LOG_ERROR("async message, unknown module<%d>", i_msg.m_u32Dst);
  return Unhandled(i_msg);
}

// The receiver's lock may be none, as above.
UInt32 SendSync(const T_ModuleMsg& i_msg, UInt32 i_u32Arg) NO_THREAD_SAFETY_ANALYSIS {
  const T_Module* const pModule = FindModule(i_msg.m_u32Dst);
  CMutex* const pReceivers = pModule != nullptr ? pModule->m_pLock : nullptr;
  if (!LockBus(pReceivers)) {
    LOG_ERROR("SendSyncAndAsyncMsg get mutex fail, msgtype<%d>,src<%d>,dst<%d>,msg no<0x%x>",
              i_msg.m_u32MsgType, i_msg.m_u32Src, i_msg.m_u32Dst, i_msg.m_u32MsgNo);
    return 0;
  }
  const UInt32 u32Result = pModule != nullptr ? pModule->m_pHandle(&i_msg, i_u32Arg) : 0;
  if (pReceivers != nullptr) pReceivers->RecursiveUnlock();
  g_objBusMutex.RecursiveUnlock();
  if (pModule != nullptr) return u32Result;
  LOG_ERROR("sync message, unknown module<%d>", i_msg.m_u32Dst);
  return Unhandled(i_msg);
}

}  // namespace

UInt32 SendSyncAndAsyncMsg(const T_ModuleMsg* i_pMsg, UInt32 i_u32Arg) {
  if (i_pMsg == nullptr) return 0;
  switch (i_pMsg->m_u32MsgType) {
    case kAsyncMsg:
      return SendAsync(*i_pMsg);
    case kSyncMsg:
      return SendSync(*i_pMsg, i_u32Arg);
    default:
      return Unhandled(*i_pMsg);
  }
}

Bool HasRoomFor(UInt32 i_u32Dst, CTask* i_pTask) {
  const T_Module* const pModule = FindModule(i_u32Dst);
  return pModule == nullptr || pModule->m_pHasRoom(i_pTask);
}
