#include "framework/eventcontext.h"

#include <fcntl.h>
#include <sched.h>
#include <unistd.h>

#include <cerrno>

#include "framework/assert.h"
#include "framework/atomicops.h"

CEventThread* g_pEventThread = nullptr;

std::atomic<UInt32> CEventContext::s_u32UniqueID{1};

CEventContext::CEventContext(SInt32 i_s32FileDesc, CEventThread* i_pEventThread)
    : m_s32FileDesc(i_s32FileDesc), m_pEventThread(i_pEventThread) {}

CEventContext::~CEventContext() { AutoCleanup(); }

void CEventContext::AutoCleanup() {
  if (m_bAutoCleanup) Cleanup();
}

void CEventContext::InitNonBlocking(SInt32 i_s32FileDesc) {
  m_s32FileDesc = i_s32FileDesc;
  const SInt32 s32Flags = fcntl(i_s32FileDesc, F_GETFL, 0);
  const SInt32 s32Err = s32Flags < 0 ? -1 : fcntl(i_s32FileDesc, F_SETFL, s32Flags | O_NONBLOCK);
  OSD_ASSERT(s32Err == 0, "s32Err == 0", "eventcontext", 31);
}

void CEventContext::Cleanup() {
  if (m_s32FileDesc == kInvalidFileDesc) {
    m_u32UniqueID = 0;
    return;
  }
  const SInt32 s32FileDesc = m_s32FileDesc;
  if (m_u32UniqueID != 0) {
    m_pEventThread->m_objRefTable.UnRegister(&m_objRef);
    select_removeevent(s32FileDesc);
    ForgetDescriptor();
    return;
  }
  ForgetDescriptor();
  const SInt32 s32Err = close(s32FileDesc);
  OSD_ASSERT(s32Err == 0, "s32Err == 0", "eventcontext", 56);
}

// The next RequestEvent starts from the beginning, with whatever descriptor comes then.
void CEventContext::ForgetDescriptor() {
  m_s32FileDesc = kInvalidFileDesc;
  m_u32UniqueID = 0;
  m_bWatchEventCalled = false;
}

void CEventContext::RequestEvent(SInt32 i_s32Events) {
  if (m_bWatchEventCalled) {
    m_stEventReq.er_eventbits = i_s32Events;
    OSD_ASSERT(select_modwatch(&m_stEventReq, i_s32Events) == 0, "false", "eventcontext", 102);
    return;
  }
  RegisterUniqueID();
  m_stEventReq = {};
  m_stEventReq.er_type = 1;
  m_stEventReq.er_handle = m_s32FileDesc;
  m_stEventReq.er_data = m_u32UniqueID;
  m_stEventReq.er_eventbits = i_s32Events;
  m_bWatchEventCalled = true;
  OSD_ASSERT(select_modwatch(&m_stEventReq, i_s32Events) == 0, "false", "eventcontext", 131);
}

// One exchange for the wrap-around and the increment, so that two threads at the limit cannot step
// over it.
UInt32 CEventContext::NextUniqueID() {
  while (true) {
    const UInt32 u32Last = s_u32UniqueID.load(std::memory_order_relaxed);
    const UInt32 u32Next = u32Last == kMaxUniqueID ? 1 : u32Last + 1;
    if (compare_and_store(u32Last, u32Next, &s_u32UniqueID)) return u32Next;
  }
}

// After the wrap-around an identifier may still belong to a context that has lived since.
void CEventContext::RegisterUniqueID() {
  do PointRefAtUniqueID(NextUniqueID());
  while (m_pEventThread->m_objRefTable.Register(&m_objRef) != OS_NoErr);
}

void CEventContext::PointRefAtUniqueID(UInt32 i_u32UniqueID) {
  m_u32UniqueID = i_u32UniqueID;
  m_objUniqueIDStr = CPLString(reinterpret_cast<char*>(&m_u32UniqueID), sizeof(m_u32UniqueID));
  m_objRef.Set(m_objUniqueIDStr, this);
}

void CEventContext::TakeOverContext(CEventContext& io_refFrom) {
  if (&io_refFrom == this) return;
  Cleanup();
  m_s32FileDesc = io_refFrom.m_s32FileDesc;
  m_pEventThread = io_refFrom.m_pEventThread;
  m_stEventReq = io_refFrom.m_stEventReq;
  m_bWatchEventCalled = io_refFrom.m_bWatchEventCalled;
  if (io_refFrom.m_u32UniqueID != 0) {
    PointRefAtUniqueID(io_refFrom.m_u32UniqueID);
    m_pEventThread->m_objRefTable.Swap(&m_objRef);
  }
  io_refFrom.ForgetDescriptor();
}

void CEventContext::ProcessEvent(SInt32 /*i_s32EventBits*/) {
  if (m_pTask != nullptr) m_pTask->Signal(CTask::kReadEvent);
}

CEventThread::~CEventThread() { StopAndWaitForThread(); }

void CEventThread::Entry() {
  SetThreadName("event");
  while (true) {
    eventreq stEvent{};
    SInt32 s32Err = EINTR;
    while (s32Err == EINTR) {
      s32Err = select_waitevent(&stEvent, nullptr);
      if (s32Err < 0) s32Err = errno;
    }
    OSD_ASSERT(s32Err == 0, "s32Err == 0", "eventcontext", 162);

    // A context that was cleaned up meanwhile is not found, and its event is dropped.
    CPLString objKey(reinterpret_cast<char*>(&stEvent.er_data), sizeof(stEvent.er_data));
    CRef* const pRef = stEvent.er_data != 0 ? m_objRefTable.Resolve(&objKey) : nullptr;
    if (pRef != nullptr) {
      static_cast<CEventContext*>(pRef->GetObject())->ProcessEvent(stEvent.er_eventbits);
      m_objRefTable.Release(pRef);
    }
    sched_yield();
  }
}
