#include "framework/taskpool.h"

#include <sched.h>

#include <algorithm>

#include "framework/assert.h"
#include "framework/atomicops.h"
#include "framework/clock.h"
#include "framework/task.h"

namespace {

// Bounds how late a task thread notices anything that no signal tells it.
constexpr SInt64 kShortestWait = 5;

// While one exists, the pools and their threads stay. The counter and the thread counts are
// sequentially consistent on both sides: either the signal sees that there are no threads any more,
// or RemoveThreads sees the signal.
class CSignalInFlight {
 public:
  explicit CSignalInFlight(std::atomic<UInt32>* io_pCounter) : m_pCounter(io_pCounter) {
    m_pCounter->fetch_add(1);
  }
  ~CSignalInFlight() { m_pCounter->fetch_sub(1); }
  CSignalInFlight(const CSignalInFlight&) = delete;
  CSignalInFlight& operator=(const CSignalInFlight&) = delete;

 private:
  std::atomic<UInt32>* m_pCounter;
};

}  // namespace

std::atomic<CTaskThreadPool::T_Pool*> CTaskThreadPool::s_pTaskThreadArray{nullptr};
std::atomic<UInt32> CTaskThreadPool::s_u32NumPools{0};
std::atomic<UInt32> CTaskThreadPool::s_u32SignalsInFlight{0};

CTaskThread::CTaskThread(SInt32 i_s32Policy, SInt32 i_s32Priority)
    : CThread(i_s32Policy, i_s32Priority) {}

CTaskThread::~CTaskThread() { StopAndWaitForThread(); }

void CTaskThread::Entry() {
  SetThreadName("thread");
  for (CTask* pTask = WaitForTask(); pTask != nullptr && pTask->Valid(); pTask = WaitForTask())
    RunUntilSettled(pTask);
}

CTask* CTaskThread::WaitForTask() {
  for (;;) {
    const SInt64 s64Now = CTime::Milliseconds();
    if (CTask* pTask = ExtractDueTask(s64Now)) return pTask;
    // Asked first: nothing is queued after the stop, but perhaps just before it.
    const Bool bStop = IsStopRequested();
    CQueueElem* const pElem = m_objTaskQueue.DeQueueBlocking(this, WaitUntilNextTimer(s64Now));
    if (pElem != nullptr) return static_cast<CTask*>(pElem->GetEnclosingObject());
    if (bStop) return nullptr;
  }
}

// Timers end with the thread's stop: tasks that are always due again would never let it end.
CTask* CTaskThread::ExtractDueTask(SInt64 i_s64Now) {
  if (m_objHeap.CurrentHeapSize() == 0 || IsStopRequested()) return nullptr;
  if (m_objHeap.PeekMin()->GetValue() > i_s64Now) return nullptr;
  return static_cast<CTask*>(m_objHeap.ExtractMin()->GetEnclosingObject());
}

SInt32 CTaskThread::WaitUntilNextTimer(SInt64 i_s64Now) const {
  if (m_objHeap.CurrentHeapSize() == 0) return kShortestWait;
  return CTime::ClampWait(std::max(m_objHeap.PeekMin()->GetValue() - i_s64Now, kShortestWait));
}

void CTaskThread::RunUntilSettled(CTask* i_pTask) {
  for (Bool bSettled = false; !bSettled; sched_yield()) {
    i_pTask->m_pUseThisThread.store(nullptr, std::memory_order_relaxed);
    bSettled = Settle(i_pTask, RunLocked(i_pTask));
  }
}

SInt64 CTaskThread::RunLocked(CTask* i_pTask) {
  if (!i_pTask->m_bWriteLock) {
    const CReadLocker locker(&CTaskThreadPool::RunLock());
    return i_pTask->Run();
  }
  const CWriteLocker locker(&CTaskThreadPool::RunLock());
  const SInt64 s64Result = i_pTask->Run();
  i_pTask->m_bWriteLock = false;
  return s64Result;
}

// True when the task is no longer this thread's to run at once; it must not be touched then, as it
// may be gone or on another thread already.
Bool CTaskThread::Settle(CTask* i_pTask, SInt64 i_s64Result) {
  if (i_s64Result < 0) {
    i_pTask->MarkDeleted();
    delete i_pTask;
    return true;
  }
  if (i_s64Result == 0) {
    // A task that keeps signalling itself must not keep its thread from ending, but one that was
    // killed gets the run in which it goes.
    if (compare_and_store(CTask::kAlive, 0, &i_pTask->m_u32Events)) return true;
    return IsStopRequested() && (i_pTask->m_u32Events.load() & CTask::kKillEvent) == 0;
  }
  i_pTask->m_objTimerHeapElem.SetValue(CTime::Milliseconds() + i_s64Result);
  m_objHeap.Insert(&i_pTask->m_objTimerHeapElem);
  atomic_or(&i_pTask->m_u32Events, CTask::kIdleEvent);
  return true;
}

Bool CTaskThreadPool::AddThreadPools(UInt32 i_u32NumPools) {
  OSD_ASSERT(s_pTaskThreadArray.load() == nullptr, "s_pTaskThreadArray == NULL", "task", 321);
  s_pTaskThreadArray.store(new T_Pool[i_u32NumPools]);
  s_u32NumPools.store(i_u32NumPools);
  CTask::s_pSchedule.store(&Schedule, std::memory_order_relaxed);
  return true;
}

Bool CTaskThreadPool::AddThreads(UInt32 i_u32PoolID, UInt32 i_u32NumThreads, SInt32 i_s32Policy,
                                 SInt32 i_s32Priority) {
  T_Pool* const pPools = s_pTaskThreadArray.load();
  OSD_ASSERT(pPools != nullptr, "s_pTaskThreadArray != NULL", "task", 348);
  T_Pool& stPool = pPools[i_u32PoolID];
  OSD_ASSERT(!stPool.m_bFilled, "s_pTaskThreadArray[i_u32PoolID] == NULL", "task", 349);
  stPool.m_bFilled = true;
  for (UInt32 i = 0; i < i_u32NumThreads; ++i) {
    stPool.m_vecThreads.push_back(std::make_unique<CTaskThread>(i_s32Policy, i_s32Priority));
    stPool.m_vecThreads.back()->Start();
  }
  stPool.m_u32ThreadCount.store(i_u32NumThreads);
  return true;
}

Bool CTaskThreadPool::AddThreads(UInt32 i_u32NumThreads) {
  if (s_pTaskThreadArray.load() == nullptr) AddThreadPools(1);
  return AddThreads(0, i_u32NumThreads, 0, 0);
}

void CTaskThreadPool::RemoveThreads() {
  T_Pool* const pPools = s_pTaskThreadArray.load();
  const UInt32 u32NumPools = s_u32NumPools.exchange(0);
  for (UInt32 i = 0; i < u32NumPools; ++i) pPools[i].m_u32ThreadCount.store(0);
  while (s_u32SignalsInFlight.load() != 0) sched_yield();
  for (UInt32 i = 0; i < u32NumPools; ++i) StopThreads(&pPools[i]);
  s_pTaskThreadArray.store(nullptr);
  delete[] pPools;
}

void CTaskThreadPool::StopThreads(T_Pool* io_pPool) {
  for (const auto& pThread : io_pPool->m_vecThreads) pThread->RequestStop();
  for (const auto& pThread : io_pPool->m_vecThreads) pThread->m_objTaskQueue.WakeWaiters();
  io_pPool->m_vecThreads.clear();
}

void CTaskThreadPool::Schedule(CTask* i_pTask) {
  const CSignalInFlight inFlight(&s_u32SignalsInFlight);
  if (CTaskThread* pThread = ChooseThread(*i_pTask))
    pThread->m_objTaskQueue.EnQueue(&i_pTask->m_objTaskQueueElem);
}

CTaskThread* CTaskThreadPool::ChooseThread(const CTask& i_objTask) {
  if (i_objTask.m_u32PoolID >= s_u32NumPools.load()) return nullptr;
  T_Pool& stPool = s_pTaskThreadArray.load()[i_objTask.m_u32PoolID];
  const UInt32 u32ThreadCount = stPool.m_u32ThreadCount.load();
  if (u32ThreadCount == 0) return nullptr;
  if (CTaskThread* pChosen = i_objTask.m_pUseThisThread.load(std::memory_order_relaxed))
    return pChosen;
  if (i_objTask.m_pDefaultThread != nullptr) return i_objTask.m_pDefaultThread;
  return stPool.m_vecThreads[atomic_add(&stPool.m_u32Picker, 1) % u32ThreadCount].get();
}

CMutexRW& CTaskThreadPool::RunLock() {
  // Never destroyed: task threads may outlive the process's static objects.
  static CMutexRW& s_objRunLock = *new CMutexRW;
  return s_objRunLock;
}
