#include "framework/mutex.h"

#include "framework/assert.h"

pthread_mutexattr_t* g_pMutexAttr = nullptr;
pthread_once_t g_stMutexAttrInit = PTHREAD_ONCE_INIT;

namespace {

void InitMutexAttr() {
  g_pMutexAttr = new pthread_mutexattr_t{};
  pthread_mutexattr_init(g_pMutexAttr);
}

}  // namespace

CMutex::CMutex() {
  OSD_ASSERT(0 == pthread_once(&g_stMutexAttrInit, InitMutexAttr),
             "0 == pthread_once(&g_stMutexAttrInit, InitMutexAttr)", "mutex", 28);
  OSD_ASSERT(0 == pthread_mutex_init(&m_stMutex, g_pMutexAttr),
             "0 == pthread_mutex_init(&m_stMutex, g_pMutexAttr)", "mutex", 29);
}

CMutex::~CMutex() {
  OSD_ASSERT(0 == m_u32HolderCount, "0 == m_u32HolderCount", "mutex", 34);
  pthread_mutex_destroy(&m_stMutex);
}

void CMutex::RecursiveLock() {
  const pthread_t stSelf = pthread_self();
  if (m_stHolder.load(std::memory_order_relaxed) == stSelf) {
    ++m_u32HolderCount;
    return;
  }
  pthread_mutex_lock(&m_stMutex);
  OSD_ASSERT(0 == m_stHolder.load(std::memory_order_relaxed), "0 == m_stHolder", "mutex", 46);
  m_stHolder.store(stSelf, std::memory_order_relaxed);
  ++m_u32HolderCount;
  OSD_ASSERT(1 == m_u32HolderCount, "1 == m_u32HolderCount", "mutex", 49);
}

void CMutex::RecursiveUnlock() {
  OSD_ASSERT(pthread_self() == m_stHolder.load(std::memory_order_relaxed),
             "pthread_self() == m_stHolder", "mutex", 54);
  OSD_ASSERT(m_u32HolderCount > 0, "m_u32HolderCount > 0", "mutex", 55);
  if (--m_u32HolderCount > 0) return;
  m_stHolder.store(0, std::memory_order_relaxed);
  pthread_mutex_unlock(&m_stMutex);
}

Bool CMutex::RecursiveTryLock() {
  const pthread_t stSelf = pthread_self();
  if (m_stHolder.load(std::memory_order_relaxed) == stSelf) {
    ++m_u32HolderCount;
    return true;
  }
  if (pthread_mutex_trylock(&m_stMutex) != 0) return false;
  OSD_ASSERT(m_stHolder.load(std::memory_order_relaxed) == 0, "m_stHolder == 0", "mutex", 77);
  m_stHolder.store(stSelf, std::memory_order_relaxed);
  ++m_u32HolderCount;
  OSD_ASSERT(m_u32HolderCount == 1, "m_u32HolderCount == 1", "mutex", 80);
  return true;
}

void CMutex::GiveUpForWait() {
  m_stHolder.store(0, std::memory_order_relaxed);
  --m_u32HolderCount;
}

void CMutex::TakeBackAfterWait() {
  ++m_u32HolderCount;
  m_stHolder.store(pthread_self(), std::memory_order_relaxed);
}
