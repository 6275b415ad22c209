#include <gmock/gmock.h>
#include <unistd.h>

#include <deque>
#include <functional>
#include <optional>
#include <semaphore>
#include <thread>

#include "framework/clock.h"
#include "framework/ev.h"
#include "framework/ref.h"
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
    m_pRanOn = static_cast<CTaskThread*>(CThread::GetCurrent());
    m_tid = gettid();
    m_began.release();
    const SInt64 s64Result = m_script(this, m_vecEvents.back());
    m_ran.release();
    return s64Result;
  }
  using CTask::m_bWriteLock;
  using CTask::m_pDefaultThread;
  using CTask::m_pUseThisThread;
  Script m_script;
  std::vector<EventFlags> m_vecEvents;
  SInt64 m_s64RanAt = 0;
  CTaskThread* m_pRanOn = nullptr;
  pid_t m_tid = 0;
  std::counting_semaphore<> m_began{0}, m_ran{0};
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

TEST(Tasks, GoRoundTheThreadsFromTheSecondOnUnlessPinned) {
  std::deque<T_Scripted> tasks(5), pinned(2);
  const T_Threads threads(4);
  for (T_Scripted& task : tasks) {
    task.Signal(CTask::kStartEvent);
    task.m_ran.acquire();
  }
  for (const size_t i : {0U, 1U, 2U}) {  // each was started later, unless the kernel began anew
    const pid_t step = tasks[i].m_tid - tasks[(i + 3) % 4].m_tid;
    EXPECT_TRUE(step > 0 || step < -10000);
  }
  EXPECT_EQ(tasks[4].m_tid, tasks[0].m_tid);
  for (T_Scripted& task : pinned) task.m_pDefaultThread = tasks[0].m_pRanOn;
  for (size_t turn = 0; turn < 9; ++turn) {  // one that runs there tells that the other one sleeps
    T_Scripted& task = pinned[turn % 2];
    if (turn == 6) task.m_pUseThisThread = tasks[1].m_pRanOn;
    task.Signal(CTask::kStartEvent);
    task.m_ran.acquire();
    EXPECT_EQ(task.m_tid, tasks[turn == 6 ? 1 : 0].m_tid);
  }
}

TEST(Tasks, AreKeptOutByAWriteLockedRunButNotByTheNext) {
  std::counting_semaphore<> go{0};
  const auto holdOn = [&](T_Scripted* i_pTask, auto) {
    i_pTask->m_bWriteLock = true;  // of the run that it was set for; not kept for the next
    go.acquire();
    return 0;
  };
  T_Scripted writer(holdOn), reader(holdOn);
  writer.m_bWriteLock = true;
  const T_Threads threads(2);
  writer.Signal(CTask::kStartEvent);
  writer.m_began.acquire();
  reader.Signal(CTask::kStartEvent);
  EXPECT_FALSE(reader.m_began.try_acquire_for(std::chrono::milliseconds(50)));
  go.release();
  reader.m_began.acquire();
  writer.Signal(CTask::kReadEvent);
  writer.m_began.acquire();
  go.release(2);
}

struct T_Mortal : T_Scripted {
  using T_Scripted::T_Scripted;
  ~T_Mortal() override {
    Signal(kReadEvent);
    s_late = GetEvents();
  }
  static inline std::optional<EventFlags> s_late;
};

TEST(Tasks, AreDeletedWhenKilledDuringTheirLastRunAndTakeNoSignalThen) {
  auto* const pTask = new T_Mortal([](T_Scripted* i_pTask, CTask::EventFlags e) {
    if (e == CTask::kKillEvent) return -1;
    while (!CThread::GetCurrent()->IsStopRequested()) sched_yield();
    i_pTask->Signal(CTask::kKillEvent);
    return 0;
  });
  {
    const T_Threads threads(1);
    pTask->Signal(CTask::kStartEvent);
  }
  EXPECT_EQ(T_Mortal::s_late, CTask::EventFlags{0});
}

TEST(Tasks, KeepTheFlagsThatArriveWhileOthersAreTaken) {
  T_Scripted task;
  const T_Threads none(0);
  std::atomic<UInt32> taken{0};
  std::thread signaller([&] {
    for (UInt32 sent = 0; sent < 1000; task.Signal(CTask::kReadEvent), ++sent)
      while (taken != sent) sched_yield();
  });
  while (taken < 1000) taken += task.GetEvents() / CTask::kReadEvent;
  signaller.join();
}

// One task signals itself, two are always due again, one is in an hour; all are signalled from
// outside while the threads go away, and all are destroyed afterwards.
TEST(Tasks, NoSignalReachesAThreadThatIsBeingRemoved) {
  for (UInt32 u32Round = 0; u32Round < 100; ++u32Round) {
    std::atomic<UInt32> runs{0};
    std::deque<T_Scripted> tasks;
    for (int i = 0; i < 200; ++i)
      tasks.emplace_back([&, i](T_Scripted* i_pTask, auto) {
        ++runs;
        if (i == 0) i_pTask->Signal(CTask::kWriteEvent);
        if (i == 1 || i == 5) CThread::Sleep(2);  // on one thread: the other's time comes meanwhile
        return i == 1 || i == 5 ? 1 : i == 3 ? 3600000 : 0;
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

TEST(IdleTimer, FiresOnceAtItsFirstDeadlineUnlessCancelledOrGone) {
  T_Scripted cancelled, alarm, later, far;
  std::optional<T_Scripted> gone;
  far.SetIdleTimer(3600000);
  const T_Threads threads(1);
  const SInt64 s64Start = CTime::Milliseconds();
  cancelled.SetIdleTimer(50);
  cancelled.CancelTimeout();
  gone.emplace().SetIdleTimer(50);
  gone.emplace();  // another one at the same address
  for (const SInt64 s64Ms : {80, 10}) alarm.SetIdleTimer(s64Ms);
  later.SetIdleTimer(120);
  later.m_ran.acquire();
  alarm.CancelTimeout();
  EXPECT_GE(alarm.m_s64RanAt - s64Start, 80);
  EXPECT_THAT(alarm.m_vecEvents, ElementsAre(CTask::kIdleEvent));
  EXPECT_TRUE(cancelled.m_vecEvents.empty() && gone->m_vecEvents.empty());
  later.SetIdleTimer(10);  // by now the thread waits for the far one
  later.m_ran.acquire();
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
  EXPECT_DEATH(std::mem_fn(&CMutex::RecursiveUnlock)(mutex),
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
  char cKey = 'k';
  CRef ref(CPLString(&cKey, 1), nullptr);  // nobody uses it
  EXPECT_DEATH(CRefTable().Release(&ref), HasSubstr("ref:154: "));
  eventreq stReq{1, 1024, 7, 0, 0, 0, EV_RE};  // a descriptor beyond the sets
  EXPECT_DEATH(select_modwatch(&stReq, EV_RE),
               HasSubstr("ev:179: SInt32 select_modwatch(eventreq*, SInt32)"));
}

}  // namespace
