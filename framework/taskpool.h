// The threads that run tasks, in pools; this daemon has one pool of four. The pools are process-wide
// and belong to whoever starts and stops the process: AddThreads and RemoveThreads are called by
// one thread only, never by a task.
#pragma once

#include <atomic>
#include <memory>
#include <vector>

#include "framework/heap.h"
#include "framework/mutexrw.h"
#include "framework/queue.h"
#include "framework/thread.h"
#include "framework/types.h"

class CTask;

// Made, started and deleted by its pool; others only keep it in a task that they pin.
class CTaskThread : public CThread {
 public:
  // As CThread.
  CTaskThread(SInt32 i_s32Policy, SInt32 i_s32Priority);
  // Blocks until a Run() that is under way and the tasks queued by then are done.
  ~CTaskThread() override;

 private:
  friend class CTaskThreadPool;
  void Entry() override;
  CTask* WaitForTask();
  CTask* ExtractDueTask(SInt64 i_s64Now);
  SInt32 WaitUntilNextTimer(SInt64 i_s64Now) const;
  void RunUntilSettled(CTask* i_pTask);
  SInt64 RunLocked(CTask* i_pTask);
  Bool Settle(CTask* i_pTask, SInt64 i_s64Result);

  CHeap m_objHeap;  // tasks that asked to be woken later; this thread only
  CQueueBlocking m_objTaskQueue;
};

class CTaskThreadPool {
 public:
  // Makes i_u32NumPools pools without threads; there must be none yet: asserted. True.
  static Bool AddThreadPools(UInt32 i_u32NumPools);

  // Starts the threads of a pool, once and be it none: asserted. Policy and priority as in CThread.
  // True.
  static Bool AddThreads(UInt32 i_u32PoolID, UInt32 i_u32NumThreads, SInt32 i_s32Policy,
                         SInt32 i_s32Priority);

  // The same for pool 0, which is made if there is no pool.
  static Bool AddThreads(UInt32 i_u32NumThreads);

  // Stops and deletes all threads of all pools. A Run() that is under way ends first, and tasks
  // queued by then still run; those that wait for their time never run again. Signals may go on
  // meanwhile: from now on they only record their flags.
  static void RemoveThreads();

 private:
  friend class CTaskThread;

  struct T_Pool {
    Bool m_bFilled = false;
    // Read by signals only while the count is not 0.
    std::vector<std::unique_ptr<CTaskThread>> m_vecThreads;
    std::atomic<UInt32> m_u32ThreadCount{0};
    std::atomic<UInt32> m_u32Picker{0};
  };

  static void Schedule(CTask* i_pTask);
  static CTaskThread* ChooseThread(const CTask& i_objTask);
  static CMutexRW& RunLock();
  static void StopThreads(T_Pool* io_pPool);

  static std::atomic<T_Pool*> s_pTaskThreadArray;
  static std::atomic<UInt32> s_u32NumPools;
  static std::atomic<UInt32> s_u32SignalsInFlight;
};
