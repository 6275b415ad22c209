#include "framework/task.h"

#include <cstdio>
#include <cstring>

#include "framework/atomicops.h"

namespace {

constexpr char kLivePrefix[] = "live_";
constexpr size_t kLivePrefixLength = sizeof(kLivePrefix) - 1;

}  // namespace

CTask::CTask() : m_objTimerHeapElem(this), m_objTaskQueueElem(this) { SetTaskName("unknown"); }

void CTask::SetTaskName(const char* i_pName) {
  if (i_pName == nullptr) return;
  std::snprintf(m_szTaskName, sizeof(m_szTaskName), "%s%s", kLivePrefix, i_pName);
}

// The first character is the only one that changes while other threads look.
Bool CTask::Valid() {
  const std::atomic_ref<char> cFirst(m_szTaskName[0]);
  return cFirst.load(std::memory_order_acquire) == kLivePrefix[0] &&
         std::memcmp(m_szTaskName + 1, kLivePrefix + 1, kLivePrefixLength - 1) == 0;
}

void CTask::MarkDeleted() {
  std::atomic_ref<char>(m_szTaskName[0]).store('D', std::memory_order_release);
}

void CTask::Signal(EventFlags i_eEvents) {
  if (!Valid()) return;
  const UInt32 u32Before = atomic_or(&m_u32Events, i_eEvents | kAlive);
  if ((u32Before & kAlive) != 0) return;
  if (const auto pSchedule = s_pSchedule.load(std::memory_order_relaxed)) pSchedule(this);
}

CTask::EventFlags CTask::GetEvents() {
  const EventFlags eEvents = m_u32Events.load(std::memory_order_acquire) & ~EventFlags{kAlive};
  atomic_sub(&m_u32Events, eEvents);
  return eEvents;
}
