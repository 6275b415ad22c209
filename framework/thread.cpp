#include "framework/thread.h"

#include <grp.h>
#include <pwd.h>
#include <sched.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "framework/assert.h"
#include "framework/console.h"
#include "framework/crash.h"

namespace {

// Written once, by Initialize, before any thread that reads it is started.
struct T_ThreadDefaults {
  Bool m_bReady = false;
  pthread_attr_t m_stAttr;
  pthread_key_t m_stCurrentKey;
};
T_ThreadDefaults s_stDefaults;

// Whom the threads turn into. Empty: they stay who they are.
char s_szGroupName[128] = "";
char s_szUserName[128] = "";

void PrintProcessors(const cpu_set_t& i_stMask, const char* i_pTag) {
  const long s64Configured = sysconf(_SC_NPROCESSORS_CONF);
  std::string strTag;
  if (i_pTag != nullptr) strTag.append("[").append(i_pTag).append("] ");
  for (SInt32 s32Cpu = 0; s32Cpu < s64Configured; ++s32Cpu)
    if (CPU_ISSET(static_cast<size_t>(s32Cpu), &i_stMask))
      PrintAtOnce(STDOUT_FILENO, strTag + "thread " + std::to_string(gettid()) +
                                     " run on processor " + std::to_string(s32Cpu) + "\n");
}

}  // namespace

void CThread::Initialize(UInt32 i_u32StackSize) {
  if (s_stDefaults.m_bReady) return;
  pthread_key_create(&s_stDefaults.m_stCurrentKey, nullptr);
  pthread_attr_init(&s_stDefaults.m_stAttr);
  pthread_attr_setscope(&s_stDefaults.m_stAttr, PTHREAD_SCOPE_SYSTEM);
  pthread_attr_setstacksize(&s_stDefaults.m_stAttr, i_u32StackSize);
  s_stDefaults.m_bReady = true;
}

CThread::CThread() = default;

CThread::CThread(SInt32 i_s32Policy, SInt32 i_s32Priority)
    : m_s32Policy(i_s32Policy), m_s32Priority(i_s32Priority) {}

CThread::~CThread() { StopAndWaitForThread(); }

void CThread::Start() {
  pthread_t stThreadID{};
  const SInt32 s32Err = s_stDefaults.m_bReady
                            ? pthread_create(&stThreadID, &s_stDefaults.m_stAttr, Run, this)
                            : EINVAL;
  OSD_ASSERT(0 == s32Err, "0 == s32Err", "thread", 132);
  // The thread stores it too, but perhaps not before its owner wants to join it.
  m_stThreadID.store(stThreadID, std::memory_order_release);
}

void CThread::Join() {
  OSD_ASSERT(!m_bJoined, "!m_bJoined", "thread", 139);
  m_bJoined = true;
  const pthread_t stThreadID = m_stThreadID.load(std::memory_order_acquire);
  if (stThreadID != 0) pthread_join(stThreadID, nullptr);
}

void CThread::StopAndWaitForThread() {
  RequestStop();
  if (!m_bJoined) Join();
}

CThread* CThread::GetCurrent() {
  if (!s_stDefaults.m_bReady) return nullptr;
  return static_cast<CThread*>(pthread_getspecific(s_stDefaults.m_stCurrentKey));
}

void CThread::Sleep(UInt32 i_u32Milliseconds) {
  const timespec stWait{static_cast<time_t>(i_u32Milliseconds / 1000),
                        static_cast<long>(i_u32Milliseconds % 1000) * 1000000};
  nanosleep(&stWait, nullptr);
}

void CThread::SetThreadName(const char* i_pName) {
  if (i_pName != nullptr) prctl(PR_SET_NAME, i_pName);
}

void CThread::BindToProcessor(UInt32 i_u32Cpu, const char* i_pTag) {
  cpu_set_t stMask;
  CPU_ZERO(&stMask);
  CPU_SET(i_u32Cpu, &stMask);
  if (sched_setaffinity(0, sizeof(stMask), &stMask) != 0) {
    PrintAtOnce(STDOUT_FILENO, "sched_setaffinity failed ");
    return;
  }
  if (sched_getaffinity(0, sizeof(stMask), &stMask) != 0) {
    PrintAtOnce(STDOUT_FILENO, "sched_getaffinity failed");
    return;
  }
  PrintProcessors(stMask, i_pTag);
}

void* CThread::Run(void* i_pThread) {
  auto* pThread = static_cast<CThread*>(i_pThread);
  const CCrashStack stack;
  pThread->m_stThreadID.store(pthread_self(), std::memory_order_release);
  sched_param stParam{};
  stParam.sched_priority = pThread->m_s32Priority;
  pthread_setschedparam(pthread_self(), pThread->m_s32Policy, &stParam);
  pthread_setspecific(s_stDefaults.m_stCurrentKey, pThread);
  SwitchPersonality();
  pThread->Entry();
  return nullptr;
}

void CThread::SwitchPersonality() {
  if (s_szGroupName[0] != '\0') {
    const group* pGroup = getgrnam(s_szGroupName);
    if (pGroup == nullptr || setgid(pGroup->gr_gid) != 0) return;
  }
  if (s_szUserName[0] == '\0') return;
  const passwd* pUser = getpwnam(s_szUserName);
  if (pUser == nullptr || setuid(pUser->pw_uid) != 0) return;
}
