// The way of ready lines into their files. Whoever logs puts them into memory; one thread writes
// them, with few calls, at most 50 ms later. While it does not run, before Start and after Stop,
// they are written by those who put them in. The process's one object is never destroyed.
#pragma once

#include <semaphore.h>

#include <atomic>
#include <memory>

#include "framework/log_file.h"
#include "framework/log_ring.h"
#include "framework/mutex.h"
#include "framework/thread.h"
#include "framework/types.h"

class CLogWriter {
 public:
  static constexpr SInt64 kMostWaitMs = 50;  // for room
  static constexpr UInt32 kMostCrashMs = 1000;

  static CLogWriter& Get();

  // Starts the thread; whenever lines were dropped and there is room again it calls i_pTellDropped,
  // which puts in a line about it. From here on what waits is also written when the process crashes.
  // In the process that serves, not in one that forks it. Owner's thread only.
  void Start(void (*i_pTellDropped)());
  // Everything is written when it returns. Owner's thread only.
  void Stop();

  // Calls i_fill with i_most bytes of room, for the line, under the lock that guards all layouts; it
  // returns the line's end. False when there is no room. Who may wait does so for kMostWaitMs, but
  // not again before some line was written. Not under a queue lock; any thread.
  template <class T_Fill>
  Bool Put(CLogFile* i_pFile, size_t i_most, Bool i_bMayWait, const T_Fill& i_fill) {
    {
      const CMutexLocker lock(&m_objPutting);
      char* const pRoom = AwaitRoom(i_most, i_bMayWait);
      if (pRoom == nullptr) return false;
      m_ring.Commit(i_pFile, static_cast<size_t>(i_fill(pRoom) - pRoom));
      if (m_bThreaded) {
        WakeWhenDue();
        return true;
      }
    }
    WriteWaiting();
    return true;
  }

  // Lines that found no room, to be told: since the last call.
  UInt32 TakeDropped() { return m_u32Dropped.exchange(0, std::memory_order_relaxed); }
  void AddDropped(UInt32 i_u32Lines) {
    m_u32Dropped.fetch_add(i_u32Lines, std::memory_order_relaxed);
  }

  // Behind a line that was put in. While the process dies of a crash, holds the caller back: nobody
  // is to act, and to acknowledge, after a line that may not reach its file. Not the writer's
  // thread.
  void AwaitCrash() const {
    if (m_bCrashing.load(std::memory_order_relaxed)) CThread::Sleep(kMostCrashMs);
  }

  // Opens the file anew when its name leads elsewhere. Waits for a write that is under way.
  void Follow(CLogFile& io_file);

 private:
  class CRunner : public CThread {
   public:
    explicit CRunner(CLogWriter& i_writer) : m_writer(i_writer) {}
    ~CRunner() override { StopAndWaitForThread(); }

   protected:
    void Entry() override;

   private:
    CLogWriter& m_writer;
  };

  CLogWriter();

  char* AwaitRoom(size_t i_most, Bool i_bMayWait) REQUIRES(m_objPutting);
  void WakeWhenDue() REQUIRES(m_objPutting);
  // Until a line waits, and then for more to come.
  void AwaitLines(const CThread& i_thread);
  // What waits now, into its files.
  void WriteWaiting();
  // Has the thread write what waits, and lets it take a second. In a signal handler.
  static void WriteBeforeCrash();

  CLogRing m_ring;
  sem_t m_stWake;  // lines wait, many wait, or it is time to end
  std::atomic<UInt32> m_u32Dropped{0};
  std::atomic<Bool> m_bCrashing{false};  // guards nothing, so relaxed
  std::unique_ptr<CRunner> m_pRunner;    // the owner's

  CMutex m_objPutting;  // the ring's putting side
  Bool m_bThreaded GUARDED_BY(m_objPutting) = false;
  Bool m_bAsleep GUARDED_BY(m_objPutting) = false;
  Bool m_bHurried GUARDED_BY(m_objPutting) = false;
  UInt32 m_u32GaveUpAt GUARDED_BY(m_objPutting) = ~0U;  // what was released when a wait was in vain

  CMutex m_objWriting;  // the ring's taking side, and the files
  void (*m_pTellDropped)() GUARDED_BY(m_objWriting) = nullptr;
};
