#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <barrier>
#include <deque>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <thread>

#include "framework/clock.h"
#include "framework/console.h"
#include "framework/descriptor.h"
#include "framework/heap.h"
#include "framework/mutexrw.h"
#include "framework/queue.h"
#include "framework/ref.h"
#include "framework/thread.h"

namespace {

std::atomic<clockid_t> g_waitedOn{-1};

}  // namespace

// Between the condition and the library.
int pthread_cond_clockwait(pthread_cond_t* i_pCond, pthread_mutex_t* i_pMutex, clockid_t i_clock,
                           const timespec* i_pDeadline) {
  // With times of 64 bits on 32 it goes by another name.
  constexpr const char* kName =
      sizeof(long) == 4 ? "__pthread_cond_clockwait64" : "pthread_cond_clockwait";
  static const auto s_pReal =
      reinterpret_cast<decltype(&pthread_cond_clockwait)>(dlsym(RTLD_NEXT, kName));
  g_waitedOn = i_clock;
  return s_pReal(i_pCond, i_pMutex, i_clock, i_pDeadline);
}

namespace {

// A call through one of these is not followed by the compiler's own look at who holds what.
const auto Lock = std::mem_fn(&CMutex::RecursiveLock);
const auto TryLock = std::mem_fn(&CMutex::RecursiveTryLock);
const auto Unlock = std::mem_fn(&CMutex::RecursiveUnlock);

TEST(Mutex, IsFreeOnlyAfterAsManyUnlocksAsLocks) {
  CMutex mutex;
  Lock(mutex);
  for (int i = 0; i < 2; ++i) EXPECT_TRUE(TryLock(mutex));
  for (const Bool bFree : {false, false, false, true}) {
    std::thread([&] {
      EXPECT_EQ(TryLock(mutex), bFree);
      if (bFree) Unlock(mutex);
    }).join();
    if (!bFree) Unlock(mutex);
  }
}

TEST(Cond, DeadlinesFollowTheRoundingRules) {
  constexpr SInt32 kTimeoutsAndWaits[][2] = {{10, 5}, {15, 8}, {1000, 1005}, {2500, 2498}};
  for (const auto& [timeout, wait] : kTimeoutsAndWaits)
    for (const SInt64 now : {7000000, 7999999}) {
      const timespec deadline = CCond::Deadline(now, timeout);
      EXPECT_EQ(SInt64{deadline.tv_sec} * 1000000 + deadline.tv_nsec / 1000, now + wait * 1000);
      EXPECT_LT(deadline.tv_nsec, 1000000000);
    }
}

TEST(Cond, AWaitThatNobodyEndsLastsUntilItsMonotonicDeadline) {
  CMutex mutex;
  CCond cond;
  const CMutexLocker locker(&mutex);
  const SInt64 s64Start = CTime::Microseconds();
  cond.TimedWait(&mutex, 60);
  EXPECT_GE(CTime::Microseconds() - s64Start, 58000);
  EXPECT_EQ(g_waitedOn, CLOCK_MONOTONIC);
}

// With room for one line, which both threads see at the same time.
TEST(Console, DropsWhatAPipeThatNobodyReadsCannotTakeAtOnce) {
  SInt32 aEnds[2];
  ASSERT_TRUE(pipe(aEnds) == 0 && fcntl(aEnds[1], F_SETPIPE_SZ, PIPE_BUF) == PIPE_BUF);
  std::string line(PIPE_BUF, 'x'), seen(2 * PIPE_BUF, ' ');
  for (int round = 0; round < 500; ++round) {
    std::atomic<Bool> bReady{false};
    std::thread other([&] {
      bReady = true;
      PrintAtOnce(aEnds[1], line);
    });
    while (!bReady) continue;
    PrintAtOnce(aEnds[1], line + line);
    other.join();
    ASSERT_EQ(read(aEnds[0], seen.data(), seen.size()), PIPE_BUF);
  }
  for (const SInt32 s32End : aEnds) close(s32End);
  const CDescriptor master(posix_openpt(O_RDWR | O_NOCTTY));  // a terminal that nobody reads
  ASSERT_EQ(grantpt(master.Get()) + unlockpt(master.Get()), 0);
  const CDescriptor terminal(open(ptsname(master.Get()), O_RDWR | O_NOCTTY));
  for (int round = 0; round < 500; ++round) PrintAtOnce(terminal.Get(), "create new face falied!");
  errno = 0;
  PrintAtOnce(CDescriptor(open("/dev/full", O_WRONLY)).Get(), line);
  EXPECT_EQ(errno, 0);
}

// A thread that blocks already, or has ended, by the kernel's word.
std::thread StartAndAwaitBlock(const std::function<void()>& i_body) {
  std::atomic<pid_t> tid{0};
  std::thread thread([&tid, i_body] {
    tid = gettid();
    i_body();
  });
  while (tid == 0) sched_yield();
  const std::string path = "/proc/self/task/" + std::to_string(tid) + "/stat";
  for (std::string text; std::getline(std::ifstream(path), text); sched_yield())
    if (text[text.rfind(')') + 2] == 'S') break;
  return thread;
}

TEST(MutexRW, WaitingWriterGoesBeforeNewReadersAndLetsThemAllIn) {
  CMutexRW lock;
  Bool bWritten = false;  // plain on purpose: only the lock orders it
  std::barrier together(2);
  std::vector<std::thread> threads;
  std::optional<CReadLocker> first(&lock), second(&lock);
  first.reset();
  for (int i = 0; i < 2; ++i)
    threads.push_back(StartAndAwaitBlock([&] {
      const CWriteLocker locker(&lock);
      bWritten = true;
    }));
  EXPECT_FALSE(bWritten);
  for (int i = 0; i < 2; ++i)
    threads.push_back(StartAndAwaitBlock([&] {
      const CReadLocker locker(&lock);
      EXPECT_TRUE(bWritten);
      together.arrive_and_wait();
    }));
  second.reset();
  for (std::thread& thread : threads) thread.join();
}

TEST(MutexRW, AWriterWaitsForNoWriterAndAWokenReaderLooksAgain) {
  CMutexRW lock;
  Bool bWriting = false;
  std::optional<CWriteLocker> writer(&lock), another(&lock);
  another.reset();
  writer.reset();
  writer.emplace(&lock);
  std::thread reader = StartAndAwaitBlock([&] {
    const CReadLocker locker(&lock);
    EXPECT_FALSE(bWriting);
  });
  writer.reset();  // wakes the reader, which seldom is as quick as this
  writer.emplace(&lock);
  bWriting = true;
  CThread::Sleep(20);
  bWriting = false;
  writer.reset();
  reader.join();
}

TEST(Queue, IsFirstInFirstOutAndSurvivesMisplacedCalls) {
  CQueue queue, other;
  CQueueElem a, b, c;
  for (CQueueElem* pElem : {&a, &b, &c, &a}) queue.EnQueue(pElem);
  other.Remove(&b);
  std::vector<CQueueElem*> seen;
  for (CQueueIter iter(&queue); !iter.IsDone(); iter.Next()) {
    seen.push_back(iter.GetCurrent());
    if (seen.size() == 2) queue.Remove(&b);
  }
  EXPECT_THAT(seen, ::testing::ElementsAre(&a, &b, &c));
  for (CQueueElem* pElem : {&a, &c, static_cast<CQueueElem*>(nullptr)})
    EXPECT_EQ(queue.DeQueue(), pElem);
}

struct T_Taker : CThread {
  void Entry() override {
    EXPECT_EQ(GetCurrent(), this);
    while (m_queue.DeQueueBlocking(this, 0) != nullptr || !IsStopRequested())
      m_taken = ++m_u32Turns;
  }
  CQueueBlocking m_queue;
  UInt32 m_u32Turns = 0;  // plain on purpose: only the join orders it
  std::atomic<UInt32> m_taken{0};
};

TEST(QueueBlocking, UnlimitedWaitEndsForEveryElementAndEveryStop) {
  CThread::Initialize(0x180000);
  for (int round = 0; round < 500; ++round) {
    CQueueElem aElems[2];
    T_Taker taker;
    taker.Start();
    for (UInt32 i = 0; i < 2; ++i) {
      taker.m_queue.EnQueue(&aElems[i]);
      while (round % 2 != 0 && taker.m_taken <= i) sched_yield();
    }
    taker.RequestStop();
    taker.m_queue.WakeWaiters();
    taker.Join();
    ASSERT_GE(taker.m_u32Turns, 2u);
  }
}

TEST(Heap, ExtractsByKeyAndEqualKeysInOrderOfInsertion) {
  CHeap heap(0);
  CHeapElem five(nullptr, 5), three(nullptr, 3), threeToo(nullptr, 3), nine(nullptr, 9);
  for (CHeapElem* pElem : {&five, &three, &threeToo, &nine}) heap.Insert(pElem);
  for (CHeapElem* pElem : {&three, &threeToo}) EXPECT_EQ(heap.ExtractMin(), pElem);
  for (CHeapElem* pFound : {&nine, static_cast<CHeapElem*>(nullptr)})
    EXPECT_EQ(heap.Remove(&nine), pFound);
  std::deque<CHeapElem> grown;  // beyond 1024 slots
  for (SInt64 i = 0; i < 2500; ++i) heap.Insert(&grown.emplace_back(nullptr, 6 + i * 7919 % 2500));
  for (SInt64 i = 5; i < 2506; ++i) ASSERT_EQ(heap.ExtractMin()->GetValue(), i);
}

TEST(RefTable, UnRegisterAndSwapWaitForTheLastRelease) {
  char aBytes[] = {10, 50, 20, 30, 40};
  CPLString key(aBytes, 2), longer(aBytes, 3);
  EXPECT_EQ(CRefTableUtils::HashString(&key), CRefTableUtils::HashString(&longer));
  CRefTable table(1);  // all in one chain
  CPLString keys[] = {{aBytes + 3, 1}, {aBytes + 4, 1}};
  CRef older(keys[0], nullptr), newer(keys[1], nullptr);
  EXPECT_EQ(table.Register(&older), OS_NoErr);
  for (int round = 0; round < 200; ++round) {
    auto pRef = std::make_unique<CRef>(key, nullptr);
    CRef heir(key, nullptr);
    std::atomic<Bool> bUsed{true};
    for (CRef* pNew : {pRef.get(), &newer}) EXPECT_EQ(table.Register(pNew), OS_NoErr);
    EXPECT_EQ(table.Register(&heir), EPERM);
    CRef* const pHeld = pRef.get();
    EXPECT_EQ(table.Resolve(&longer), nullptr);
    EXPECT_EQ(table.Resolve(&key), pHeld);
    EXPECT_EQ(table.RegisterOrResolve(&heir), pHeld);
    std::thread owner([&] {
      round % 2 == 0 ? table.UnRegister(pRef.get()) : table.Swap(&heir);
      EXPECT_FALSE(bUsed);
      pRef.reset();
    });
    sched_yield();
    table.Release(pHeld);
    sched_yield();
    bUsed = false;
    table.Release(pHeld);
    owner.join();
    table.UnRegister(&heir);
    EXPECT_EQ(table.Resolve(&key), nullptr);
    EXPECT_EQ(table.Resolve(&keys[0]), &older);
    EXPECT_EQ(table.Resolve(&keys[1]), &newer);
    table.UnRegister(&newer, 1);
    for (CRef* pUsed : {&older, &newer}) table.Release(pUsed);
  }
}

}  // namespace
