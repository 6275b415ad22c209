#include "framework/crash.h"

#include <csignal>

#include "framework/types.h"

namespace {

struct T_Crash {
  SInt32 m_s32Signal;
  struct sigaction m_stBefore;
};
T_Crash s_aCrashes[] = {{SIGABRT, {}}, {SIGBUS, {}}, {SIGFPE, {}}, {SIGSEGV, {}}};
void (*s_pLastDeed)() = nullptr;

// A fault happens again when the handler returns; a signal that was sent is sent again.
void Die(SInt32 i_s32Signal, siginfo_t* i_pInfo, void* /*i_pContext*/) {
  s_pLastDeed();
  for (const T_Crash& stCrash : s_aCrashes)
    if (stCrash.m_s32Signal == i_s32Signal) sigaction(i_s32Signal, &stCrash.m_stBefore, nullptr);
  if (i_pInfo->si_code <= 0) raise(i_s32Signal);
}

}  // namespace

void BeforeCrash(void (*i_pLastDeed)()) {
  static CCrashStack s_objStack;
  s_pLastDeed = i_pLastDeed;
  struct sigaction stAction {};
  stAction.sa_sigaction = Die;
  stAction.sa_flags = SA_SIGINFO | SA_ONSTACK;
  for (T_Crash& stCrash : s_aCrashes) {
    struct sigaction stBefore {};
    sigaction(stCrash.m_s32Signal, &stAction, &stBefore);
    if (stBefore.sa_sigaction != Die) stCrash.m_stBefore = stBefore;
  }
}

CCrashStack::CCrashStack() {
  stack_t stNow{};
  if (sigaltstack(nullptr, &stNow) != 0 || (stNow.ss_flags & SS_DISABLE) == 0) return;
  stNow = {.ss_sp = m_aBytes, .ss_flags = 0, .ss_size = sizeof(m_aBytes)};
  sigaltstack(&stNow, nullptr);
}

CCrashStack::~CCrashStack() {
  stack_t stNow{};
  if (sigaltstack(nullptr, &stNow) != 0 || stNow.ss_sp != m_aBytes) return;
  stNow.ss_flags = SS_DISABLE;
  sigaltstack(&stNow, nullptr);
}
