// What a process still does when it dies of SIGSEGV, SIGABRT (a failed assertion), SIGBUS or SIGFPE.
#pragma once

#include <cstddef>

// From now on i_pLastDeed, which must be async-signal-safe, runs on the thread that gets such a
// signal; then the signal does what it did before this call. One thread at a time; the first one to
// call it has a CCrashStack from then on.
void BeforeCrash(void (*i_pLastDeed)());

// While it lives, the handler of the thread that made it runs also when the thread's stack is used
// up. Takes memory only when that happens: it lies at the start of a thread's own stack.
class CCrashStack {
 public:
  CCrashStack();
  ~CCrashStack();
  CCrashStack(const CCrashStack&) = delete;
  CCrashStack& operator=(const CCrashStack&) = delete;

 private:
  static constexpr size_t kBytes = 16384;  // the processor's registers take most of it
  char m_aBytes[kBytes];                   // never cleared
};
