#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <deque>
#include <functional>
#include <semaphore>
#include <thread>

#include "framework/clock.h"
#include "framework/taskpool.h"
#include "framework/timeouttask.h"

namespace {

using ::testing::ElementsAre;
using EventFlags = CTask::EventFlags;

// Runs a script, keeps what each run got, and lets the test wait for runs.
struct T_Scripted : CIdleTask {
  using Script = std::function<SInt64(T_Scripted*, EventFlags)>;
  explicit T_Scripted(Script i_script = [](auto*, auto) { return 0; })
      : m_script(std::move(i_script)) {}
  SInt64 Run() override {
    const EventFlags eEvents = GetEvents();
    m_vecEvents.push_back(eEvents);
    m_s64RanAt = CTime::Milliseconds();
    const SInt64 s64Result = m_script(this, eEvents);
    m_ran.release();
    return s64Result;
  }
  const char* Name() const { return m_szTaskName; }

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

TEST(Tasks, TwoSignalsBeforeTheRunMeanOneRun) {
  std::binary_semaphore gate(0);
  T_Scripted blocker([&](auto*, auto) { return gate.acquire(), 0; }), task, last;
  const T_Threads threads(1);
  blocker.Signal(CTask::kStartEvent);
  task.Signal(CTask::kReadEvent);
  task.Signal(CTask::kWriteEvent);
  last.Signal(CTask::kStartEvent);
  gate.release();
  last.m_ran.acquire();
  EXPECT_THAT(task.m_vecEvents, ElementsAre(CTask::kReadEvent | CTask::kWriteEvent));
}

TEST(Tasks, SignalDuringTheRunRunsItAgainOnTheSameThread) {
  std::vector<CThread*> seen;
  T_Scripted task([&](T_Scripted* i_pTask, EventFlags e) {
    seen.push_back(CThread::GetCurrent());
    if (e == CTask::kStartEvent) i_pTask->Signal(CTask::kWriteEvent);
    return 0;
  });
  const T_Threads threads(4);
  task.Signal(CTask::kStartEvent);
  for (int i = 0; i < 2; ++i) task.m_ran.acquire();
  EXPECT_THAT(task.m_vecEvents, ElementsAre(CTask::kStartEvent, CTask::kWriteEvent));
  EXPECT_EQ(seen.front(), seen.back());
}

TEST(Tasks, PositiveResultWakesWithIdleEventAndNoSignalBringsItForward) {
  T_Scripted task([](T_Scripted* i_pTask, EventFlags e) {
    if (e != CTask::kStartEvent) return 0;
    i_pTask->Signal(CTask::kReadEvent);
    return 60;
  });
  const T_Threads threads(2);
  const SInt64 s64Start = CTime::Milliseconds();
  task.Signal(CTask::kStartEvent);
  for (int i = 0; i < 2; ++i) task.m_ran.acquire();
  EXPECT_THAT(task.m_vecEvents,
              ElementsAre(CTask::kStartEvent, CTask::kReadEvent | CTask::kIdleEvent));
  EXPECT_GE(task.m_s64RanAt - s64Start, 60);
}

TEST(Tasks, NegativeResultDeletesTheTaskWhichThenIgnoresSignals) {
  std::binary_semaphore gone(0);
  struct T_Last : T_Scripted {
    explicit T_Last(std::binary_semaphore* o_pGone) : m_pGone(o_pGone) {}
    SInt64 Run() override { return GetEvents() == kKillEvent ? -1 : 0; }
    ~T_Last() override {
      EXPECT_STREQ(Name(), "Dive_CIdleTask");
      Signal(kStartEvent);
      EXPECT_EQ(GetEvents(), 0u);
      m_pGone->release();
    }
    std::binary_semaphore* m_pGone;
  };
  const T_Threads threads(1);
  (new T_Last(&gone))->Signal(CTask::kKillEvent);
  gone.acquire();
}

TEST(Tasks, NamesAreMarkedLiveAndCut) {
  T_Scripted task;
  const std::string name(60, 'n');
  task.SetTaskName(name.c_str());
  task.SetTaskName(nullptr);
  EXPECT_EQ(task.Name(), "live_" + name.substr(0, 42));
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
    std::thread signallers[3];
    for (std::thread& signaller : signallers)
      signaller = std::thread([&] {
        for (T_Scripted& task : tasks) task.Signal(CTask::kReadEvent);
      });
    while (runs < u32Round) sched_yield();
    CTaskThreadPool::RemoveThreads();
    const UInt32 u32Runs = runs;
    for (std::thread& signaller : signallers) signaller.join();
    EXPECT_EQ(runs, u32Runs);
  }
}

TEST(IdleTimer, FiresOnceAtItsFirstDeadlineUnlessCancelled) {
  T_Scripted distant, cancelled, alarm, later;
  const T_Threads threads(1);
  const SInt64 s64Start = CTime::Milliseconds();
  distant.SetIdleTimer(SInt64{1} << 40);
  cancelled.SetIdleTimer(50);
  cancelled.CancelTimeout();
  alarm.SetIdleTimer(80);
  alarm.SetIdleTimer(10);
  later.SetIdleTimer(120);
  alarm.m_ran.acquire();
  EXPECT_GE(alarm.m_s64RanAt - s64Start, 80);
  alarm.CancelTimeout();
  later.m_ran.acquire();
  EXPECT_THAT(alarm.m_vecEvents, ElementsAre(CTask::kIdleEvent));
  EXPECT_EQ(cancelled.m_vecEvents.size() + distant.m_vecEvents.size(), 0u);
}

struct T_Scanner : CTimeoutTask {
  static SInt64 Scan() { return s_pThread.load()->Run(); }
};

// Without a pool signals only record their flags.
TEST(TimeoutScan, SignalsAnExpiredRecordsTaskUntilItIsSetAgain) {
  T_Scripted listener;
  CTimeoutTask sentinel(nullptr, -1, CTask::kTimeoutEvent);
  {
    CTimeoutTask record(&listener, -1, CTask::kTimeoutEvent);
    for (int scan = 0; scan < 2; ++scan) {
      EXPECT_EQ(T_Scanner::Scan(), 1000);
      EXPECT_EQ(listener.GetEvents(), CTask::kTimeoutEvent);
    }
    for (const SInt64 s64Ms : {60000, 0}) {
      record.SetTimeout(s64Ms);
      T_Scanner::Scan();
    }
    EXPECT_EQ(listener.GetEvents(), 0u);
    record.SetTimeout(-1);
  }
  T_Scanner::Scan();
  EXPECT_EQ(listener.GetEvents(), 0u);
}

TEST(TimeoutScan, WaitFollowsTheRecordsOneByOne) {
  CTimeoutTask disabled(nullptr, 0, CTask::kTimeoutEvent);
  CTimeoutTask longer(nullptr, 1200, CTask::kTimeoutEvent);
  EXPECT_EQ(T_Scanner::Scan(), 1000);
  CTimeoutTask shorter(nullptr, 900, CTask::kTimeoutEvent);
  CTimeoutTask last(nullptr, 1500, CTask::kTimeoutEvent);
  const SInt64 s64Most = last.GetTimeToTimeout() + 1000;
  const SInt64 s64Wait = T_Scanner::Scan();
  EXPECT_LE(s64Wait, s64Most);
  EXPECT_GE(s64Wait, last.GetTimeToTimeout() + 1000);
}

}  // namespace
