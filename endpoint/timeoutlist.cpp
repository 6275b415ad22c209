#include "endpoint/timeoutlist.h"

#include <cstdlib>
#include <list>

#include "framework/mutex.h"

namespace {

struct T_Pending {
  CMutex m_objLock;
  std::list<UInt32> m_lstEntries GUARDED_BY(m_objLock);
};

// Never destroyed: the idle-task thread outlives main.
T_Pending& g_pending = *new T_Pending;

}  // namespace

CTimeoutList::CTimeoutList(const char* i_pPeriod) : m_pPeriod(i_pPeriod) {}

SInt64 CTimeoutList::Run() {
  const auto events = GetEvents();
  if (events & kKillEvent) return -1;
  if (events & kStartEvent) SetIdleTimer(std::strtol(m_pPeriod, nullptr, 10));
  if (events & kIdleEvent) {
    CMutexLocker locker(&g_pending.m_objLock);
    g_pending.m_lstEntries.clear();
  }
  return 0;
}

void CTimeoutList::Insert(UInt32 i_u32Id) {
  CMutexLocker locker(&g_pending.m_objLock);
  g_pending.m_lstEntries.push_back(i_u32Id);
}

UInt32 CTimeoutList::PendingCount() {
  CMutexLocker locker(&g_pending.m_objLock);
  return static_cast<UInt32>(g_pending.m_lstEntries.size());
}
