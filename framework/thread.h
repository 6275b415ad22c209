// The base of every long-lived thread. The owner constructs it, starts it once, asks it to stop and
// joins it once. Every most-derived class calls StopAndWaitForThread() in its own destructor, so
// that its Entry() never runs on an object that is half gone.
#pragma once

#include <pthread.h>

#include <atomic>

#include "framework/types.h"

class CThread {
 public:
  // Must run before the first Start. i_u32StackSize is in bytes and holds for every thread that the
  // framework starts; only the first call counts.
  static void Initialize(UInt32 i_u32StackSize);

  // With the scheduling policy and priority 0.
  CThread();
  // POSIX scheduling policy and priority, applied by the thread itself; refusals are not reported.
  CThread(SInt32 i_s32Policy, SInt32 i_s32Priority);
  // Blocks until the thread has ended.
  virtual ~CThread();
  CThread(const CThread&) = delete;
  CThread& operator=(const CThread&) = delete;

  // Once. A thread that cannot be created, or that is started before Initialize, is fatal.
  void Start();

  // At most once: asserted. Returns at once when the thread never started.
  void Join();

  // Any thread may ask and test. A thread that sleeps on a condition must also be woken by whoever
  // asks, under the mutex that its test is made under.
  void RequestStop() { m_bStopRequested.store(true, std::memory_order_release); }
  Bool IsStopRequested() const { return m_bStopRequested.load(std::memory_order_acquire); }

  // Asks the thread to stop and joins it, unless it is joined already. Owner's thread only.
  void StopAndWaitForThread();

  // The calling thread's object; null in threads that the framework did not start.
  static CThread* GetCurrent();

  // Blocks the calling thread; a signal handler that runs on it ends the sleep early.
  static void Sleep(UInt32 i_u32Milliseconds);

  // Names the calling thread for the kernel, which keeps 15 characters. Null changes nothing.
  static void SetThreadName(const char* i_pName);

  // Ties the calling thread to processor i_u32Cpu (below 1024) and prints the outcome, led by
  // i_pTag unless that is null, on standard output. The daemon leaves its threads free; this is for
  // programs on the same framework that do not.
  static void BindToProcessor(UInt32 i_u32Cpu, const char* i_pTag);

 protected:
  // The thread's body.
  virtual void Entry() = 0;

 private:
  static void* Run(void* i_pThread);
  static void SwitchPersonality();

  std::atomic<Bool> m_bStopRequested{false};
  Bool m_bJoined = false;
  // 0 until started. Written by Start and, with the same value, by the thread: whichever is first.
  std::atomic<pthread_t> m_stThreadID{0};
  SInt32 m_s32Policy = 0;
  SInt32 m_s32Priority = 0;
};
