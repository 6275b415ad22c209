// What a process still does when it dies of SIGSEGV, SIGABRT (a failed assertion), SIGBUS or SIGFPE.
#pragma once

// From now on i_pLastDeed, which must be async-signal-safe, runs on the thread that gets such a
// signal; then the signal does what it did before this call. One thread at a time; calls
// GiveCrashStack for it.
void BeforeCrash(void (*i_pLastDeed)());

// Lets the calling thread's handler run also when the thread's stack is used up.
void GiveCrashStack();
