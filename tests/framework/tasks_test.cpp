#include <gmock/gmock.h>

#include <deque>
#include <functional>
#include <semaphore>
#include <thread>

#include "framework/clock.h"
#include "framework/ev.h"
#include "framework/taskpool.h"
#include "framework/timeouttask.h"

namespace {

using ::testing::ElementsAre;

// Runs a script, keeps what each run got, and lets the test wait for runs.
struct T_Scripted : CIdleTask {
  using Script = std::function<SInt64(T_Scripted*, EventFlags)>;
  explicit T_Scripted(Script i_script = [](auto*, auto) { return 0; })
      : m_script(std::move(i_script)) {
    CThread::Initialize(0x180000);
    CTimeoutTask::Initialize(100);
    CIdleTask::Initialize();
  }
  SInt64 Run() override {
    m_vecEvents.push_back(GetEvents());
    m_s64RanAt = CTime::Milliseconds();
    const SInt64 s64Result = m_script(this, m_vecEvents.back());
    m_ran.release();
    return s64Result;
  }
  Script m_script;
  std::vector<EventFlags> m_vecEvents;
  SInt64 m_s64RanAt = 0;
  std::counting_semaphore<> m_ran{0};
};

// Declared after the tasks, which it may still be running.
struct T_Threads {
  explicit T_Threads(UInt32 i_u32NumThreads) { CTaskThreadPool::AddThreads(i_u32NumThreads); }
  ~T_Threads() { CTaskThreadPool::RemoveThreads(); }
};

TEST(Tasks, RunAgainForSignalsOfARunAndNotBeforeTheTimeAskedFor) {
  T_Scripted task([](T_Scripted* i_pTask, CTask::EventFlags e) {
    if (e == CTask::kStartEvent)
      for (const auto more : {CTask::kReadEvent, CTask::kWriteEvent}) i_pTask->Signal(more);
    if (e == (CTask::kReadEvent | CTask::kWriteEvent)) i_pTask->Signal(CTask::kReadEvent);
    return e == (CTask::kReadEvent | CTask::kWriteEvent) ? 60 : 0;
  });
  const T_Threads threads(4);
  const SInt64 s64Start = CTime::Milliseconds();
  task.Signal(CTask::kStartEvent);
  for (int i = 0; i < 3; ++i) task.m_ran.acquire();
  EXPECT_THAT(task.m_vecEvents,
              ElementsAre(CTask::kStartEvent, CTask::kReadEvent | CTask::kWriteEvent,
                          CTask::kReadEvent | CTask::kIdleEvent));
  EXPECT_GE(task.m_s64RanAt - s64Start, 60);
}

// One task signals itself, one wakes every millisecond, all are signalled from outside while the
// threads go away, and all are destroyed afterwards.
TEST(Tasks, NoSignalReachesAThreadThatIsBeingRemoved) {
  for (UInt32 u32Round = 0; u32Round < 100; ++u32Round) {
    std::atomic<UInt32> runs{0};
    std::deque<T_Scripted> tasks;
    for (int i = 0; i < 200; ++i)
      tasks.emplace_back([&, i](T_Scripted* i_pTask, auto) {
        ++runs;
        if (i == 0) i_pTask->Signal(CTask::kWriteEvent);
        return i == 1 ? 1 : 0;
      });
    CTaskThreadPool::AddThreads(4);
    const auto signalAll = [&] {
      for (T_Scripted& task : tasks) task.Signal(CTask::kReadEvent);
    };
    std::thread signallers[] = {std::thread(signalAll), std::thread(signalAll)};
    while (runs < u32Round) sched_yield();
    CTaskThreadPool::RemoveThreads();
    const UInt32 u32Runs = runs;
    for (std::thread& signaller : signallers) signaller.join();
    EXPECT_EQ(runs, u32Runs);
  }
}

TEST(IdleTimer, FiresOnceAtItsFirstDeadlineUnlessCancelled) {
  T_Scripted cancelled, alarm, later;
  const T_Threads threads(1);
  const SInt64 s64Start = CTime::Milliseconds();
  cancelled.SetIdleTimer(50);
  cancelled.CancelTimeout();
  for (const SInt64 s64Ms : {80, 10}) alarm.SetIdleTimer(s64Ms);
  later.SetIdleTimer(120);
  later.m_ran.acquire();
  alarm.CancelTimeout();
  EXPECT_GE(alarm.m_s64RanAt - s64Start, 80);
  EXPECT_THAT(alarm.m_vecEvents, ElementsAre(CTask::kIdleEvent));
  EXPECT_TRUE(cancelled.m_vecEvents.empty());
}

struct T_Timeouts : CTimeoutTask {
  static SInt64 Scan() { return s_pThread.load()->Run(); }
};

// Without a pool signals only record their flags, and nobody but the test runs the scan.
TEST(TimeoutScan, SignalsWhatHasExpiredAndWaitsRecordByRecord) {
  T_Scripted listener;
  std::deque<CTimeoutTask> records;
  for (CTask* pTask : {static_cast<CTask*>(nullptr), static_cast<CTask*>(&listener)})
    records.emplace_back(pTask, -1, CTask::kTimeoutEvent);
  for (int scan = 0; scan < 2; ++scan) {
    EXPECT_EQ(T_Timeouts::Scan(), 1000);
    EXPECT_EQ(listener.GetEvents(), CTask::kTimeoutEvent);
  }
  records.back().SetTimeout(0);
  for (const SInt64 s64Ms : {1200, 900, 1500})
    records.emplace_back(&listener, s64Ms, CTask::kTimeoutEvent);
  const SInt64 s64Wait = T_Timeouts::Scan();
  EXPECT_GE(s64Wait, records.back().GetTimeToTimeout() + 1000);
  EXPECT_EQ(listener.GetEvents(), 0u);
}

TEST(Misuse, AbortsWithItsLine) {
  using ::testing::HasSubstr;
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  CMutex mutex;
  EXPECT_DEATH(mutex.RecursiveUnlock(),
               HasSubstr("framework_core_test: mutex:54: void CMutex::RecursiveUnlock(): "
                         "Assertion `pthread_self() == m_stHolder' failed.\n"));
  CQueue first, second;
  CQueueElem elem;
  first.EnQueue(&elem);
  EXPECT_DEATH(second.EnQueue(&elem), HasSubstr("queue:19: void CQueue::EnQueue(CQueueElem*): "
                                                "Assertion `i_pElem->m_pQueue == NULL'"));
  first.Remove(&elem);
  CTaskThreadPool::AddThreads(0);
  EXPECT_DEATH(CTaskThreadPool::AddThreads(1), HasSubstr("task:349: "));
  CTaskThreadPool::RemoveThreads();
  eventreq stReq{1, 1024, 7, 0, 0, 0, EV_RE};  // a descriptor beyond the sets
  EXPECT_DEATH(select_modwatch(&stReq, EV_RE),
               HasSubstr("ev:179: SInt32 select_modwatch(eventreq*, SInt32)"));
}

}  // namespace
