#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>

#include "framework/taskpool.h"
#include "framework/timeouttask.h"

namespace {

// The timeout task is made while there is no pool, so nobody but a test ever runs its scan.
struct T_Environment : ::testing::Environment {
  void SetUp() override {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    CThread::Initialize(0x180000);
    CTimeoutTask::Initialize(100);
    CIdleTask::Initialize();
  }
};
const auto* const s_pEnvironment = ::testing::AddGlobalTestEnvironment(new T_Environment);

struct T_NoTimeouts : CTimeoutTask {
  static void Forget() { s_pThread = nullptr; }
};

// clang writes a blank before the asterisk of a pointer.
std::string LikeGcc(std::string i_text) {
  for (size_t at; (at = i_text.find(" *")) != std::string::npos;) i_text.erase(at, 1);
  return i_text;
}

auto IsLine(const std::string& i_place, const std::string& i_text) {
  return ::testing::ResultOf(
      LikeGcc, ::testing::HasSubstr(std::string(program_invocation_short_name) + ": " + i_place +
                                    ": Assertion `" + i_text + "' failed.\n"));
}

TEST(Misuse, AbortsWithItsLine) {
  CMutex mutex;
  for (int i = 0; i < 3; ++i) mutex.RecursiveLock();
  for (int i = 0; i < 3; ++i) mutex.RecursiveUnlock();
  EXPECT_DEATH(mutex.RecursiveUnlock(),
               IsLine("mutex:54: void CMutex::RecursiveUnlock()", "pthread_self() == m_stHolder"));
  CTaskThread thread(0, 0);
  thread.Join();
  EXPECT_DEATH(thread.Join(), IsLine("thread:139: void CThread::Join()", "!m_bJoined"));
  CQueue first, second;
  EXPECT_DEATH(
      {
        CQueueElem elem;
        first.EnQueue(&elem);
      },
      IsLine("queue.h:20: virtual CQueueElem::~CQueueElem()", "m_pQueue == NULL"));
  CQueueElem elem;
  first.EnQueue(&elem);
  EXPECT_DEATH(second.EnQueue(&elem),
               IsLine("queue:19: void CQueue::EnQueue(CQueueElem*)", "i_pElem->m_pQueue == NULL"));
  first.Remove(&elem);
  EXPECT_DEATH(
      CTaskThreadPool::AddThreads(0, 1, 0, 0),
      IsLine("task:348: static Bool CTaskThreadPool::AddThreads(UInt32, UInt32, SInt32, SInt32)",
             "s_pTaskThreadArray != NULL"));
  EXPECT_DEATH(
      {
        T_NoTimeouts::Forget();
        CTimeoutTask record(nullptr, 0, CTask::kTimeoutEvent);
      },
      IsLine("timeouttask:24: CTimeoutTask::CTimeoutTask(CTask*, SInt64, CTask::EventFlags)",
             "s_pThread != NULL"));
}

}  // namespace
