#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <deque>
#include <fstream>
#include <thread>

#include "framework/clock.h"
#include "framework/heap.h"
#include "framework/mutexrw.h"
#include "framework/queue.h"
#include "framework/thread.h"

namespace {

Bool OtherThreadCanLock(CMutex* io_pMutex) {
  Bool bLocked = false;
  std::thread([&] {
    bLocked = io_pMutex->RecursiveTryLock();
    if (bLocked) io_pMutex->RecursiveUnlock();
  }).join();
  return bLocked;
}

TEST(Mutex, IsFreeOnlyAfterAsManyUnlocksAsLocks) {
  CMutex mutex;
  mutex.RecursiveLock();
  EXPECT_TRUE(mutex.RecursiveTryLock());
  mutex.RecursiveLock();
  for (int i = 0; i < 3; ++i) {
    EXPECT_FALSE(OtherThreadCanLock(&mutex));
    mutex.RecursiveUnlock();
  }
  EXPECT_TRUE(OtherThreadCanLock(&mutex));
}

TEST(Cond, DeadlinesFollowTheRoundingRules) {
  constexpr SInt32 kTimeoutsAndWaits[][2] = {{1, 5},     {10, 5},    {11, 8},      {15, 8},
                                             {123, 118}, {999, 988}, {2500, 2498}, {1000, 1005}};
  for (const auto& [timeout, wait] : kTimeoutsAndWaits)
    for (const timeval& now : {timeval{7, 0}, timeval{7, 999999}}) {
      const timespec deadline = CCond::Deadline(now, timeout);
      EXPECT_EQ((deadline.tv_sec - 7) * 1000000 + deadline.tv_nsec / 1000,
                now.tv_usec + long{wait} * 1000);
      EXPECT_LT(deadline.tv_nsec, 1000000000);
    }
}

// Returns once the kernel says that the thread blocks; false when it has ended instead.
Bool AwaitBlocked(const std::atomic<pid_t>& i_tid) {
  while (i_tid == 0) sched_yield();
  for (std::string text;; sched_yield()) {
    std::ifstream stat("/proc/self/task/" + std::to_string(i_tid) + "/stat");
    if (!std::getline(stat, text)) return false;
    if (text[text.rfind(')') + 2] == 'S') return true;
  }
}

TEST(MutexRW, WaitingWriterGoesBeforeNewReaders) {
  CMutexRW lock;
  std::string order;  // guarded by the lock: the writer alone, then one reader
  const auto enter = [&](std::atomic<pid_t>& o_tid, void (CMutexRW::*i_pLock)(), char i_cName) {
    o_tid = gettid();
    (lock.*i_pLock)();
    order += i_cName;
    lock.Unlock();
  };
  for (int i = 0; i < 2; ++i) lock.LockRead();
  std::atomic<pid_t> writerTid{0}, readerTid{0};
  std::thread writer(enter, std::ref(writerTid), &CMutexRW::LockWrite, 'w');
  EXPECT_TRUE(AwaitBlocked(writerTid));
  std::thread reader(enter, std::ref(readerTid), &CMutexRW::LockRead, 'r');
  EXPECT_TRUE(AwaitBlocked(readerTid));
  for (int i = 0; i < 2; ++i) lock.Unlock();
  writer.join();
  reader.join();
  EXPECT_EQ(order, "wr");
}

struct T_UntilStopped : CThread {
  ~T_UntilStopped() override { StopAndWaitForThread(); }
  void Entry() override {
    while (!IsStopRequested()) sched_yield();
    m_pSeen = GetCurrent();
  }
  CThread* m_pSeen = nullptr;  // plain on purpose: only the join orders it
};

TEST(Thread, StopRightAfterStartWaitsForTheBodysEnd) {
  EXPECT_EQ(CThread::GetCurrent(), nullptr);
  for (int round = 0; round < 300; ++round) {
    T_UntilStopped thread;
    thread.Start();
    thread.StopAndWaitForThread();
    ASSERT_EQ(thread.m_pSeen, &thread);
  }
}

TEST(Queue, IsFirstInFirstOutAndSurvivesMisplacedCalls) {
  CQueue queue, other;
  CQueueElem a, b, c;
  EXPECT_TRUE(CQueueIter(&queue).IsDone());
  for (CQueueElem* pElem : {&a, &b, &c, &a}) queue.EnQueue(pElem);
  other.Remove(&b);
  EXPECT_EQ(queue.GetLength(), 3u);
  std::vector<CQueueElem*> seen;
  for (CQueueIter iter(&queue); !iter.IsDone(); iter.Next()) {
    seen.push_back(iter.GetCurrent());
    if (seen.size() == 2) queue.Remove(&b);
  }
  EXPECT_THAT(seen, ::testing::ElementsAre(&a, &b, &c));
  for (CQueueElem* pElem : {&a, &c, static_cast<CQueueElem*>(nullptr)})
    EXPECT_EQ(queue.DeQueue(), pElem);
}

TEST(QueueBlocking, GivesNullOnceItsTimeHasPassed) {
  CQueueBlocking queue;
  const SInt64 s64Start = CTime::Microseconds();
  EXPECT_EQ(queue.DeQueueBlocking(nullptr, 30), nullptr);
  EXPECT_GE(CTime::Microseconds() - s64Start, 27000);
}

struct T_Taker : CThread {
  explicit T_Taker(CQueueBlocking* i_pQueue) : m_pQueue(i_pQueue) {}
  ~T_Taker() override { StopAndWaitForThread(); }
  void Entry() override {
    for (Bool bEmpty = false; !bEmpty || !IsStopRequested();) {
      bEmpty = m_pQueue->DeQueueBlocking(this, 0) == nullptr;
      m_u32Taken += bEmpty ? 0 : 1;
    }
  }
  CQueueBlocking* m_pQueue;
  UInt32 m_u32Taken = 0;
};

TEST(QueueBlocking, UnlimitedWaitEndsForEveryElementAndEveryStop) {
  for (int round = 0; round < 500; ++round) {
    CQueueBlocking queue;
    CQueueElem a, b;
    T_Taker taker(&queue);
    taker.Start();
    queue.EnQueue(&a);
    for (int i = 0; i < round % 8; ++i) sched_yield();
    queue.EnQueue(&b);
    taker.RequestStop();
    queue.WakeWaiters();
    taker.Join();
    ASSERT_EQ(taker.m_u32Taken, 2u);
  }
}

TEST(Heap, ExtractsByKeyAndEqualKeysInOrderOfInsertion) {
  CHeap heap(0);
  CHeapElem five(nullptr, 5), three(nullptr, 3), threeToo(nullptr, 3), nine(nullptr, 9), stranger;
  for (CHeapElem* pElem : {&five, &three, &threeToo, &nine}) heap.Insert(pElem);
  EXPECT_EQ(heap.Extract(5), nullptr);
  EXPECT_EQ(heap.Remove(&stranger), nullptr);
  for (CHeapElem* pElem : {&three, &threeToo}) EXPECT_EQ(heap.ExtractMin(), pElem);
  EXPECT_EQ(heap.Remove(&nine), &nine);
  EXPECT_FALSE(nine.IsMemberOfAnyHeap());
  EXPECT_EQ(heap.PeekMin(), &five);
  EXPECT_EQ(heap.CurrentHeapSize(), 1u);
}

TEST(Heap, KeepsItsOrderWhenItGrowsBeyond1024Slots) {
  CHeap heap(1024);
  std::deque<CHeapElem> elems;
  for (SInt64 i = 0; i < 2500; ++i) heap.Insert(&elems.emplace_back(nullptr, i * 7919 % 2500));
  for (SInt64 i = 0; i < 2500; ++i) ASSERT_EQ(heap.ExtractMin()->GetValue(), i);
  EXPECT_EQ(heap.ExtractMin(), nullptr);
}

}  // namespace
