// One instance only: the pid file and its lock.
#pragma once

#include "framework/types.h"

// Whether somebody holds the lock of i_pPath at this moment; there is then a line on standard
// output. Nothing is created, emptied or kept locked. Main thread, before AcquirePidFile.
Bool IsPidFileLocked(const char* i_pPath);

// Waits as long as somebody holds that lock. false when it is another instance: the number in the
// file is a running process. Main thread, before AcquirePidFile.
Bool AwaitPidFile(const char* i_pPath);

// Creates or empties the file i_pPath, locks it for the life of the process and writes the process
// id. false when the daemon must not start: the file cannot be opened (an ERROR line) or another
// instance holds the lock (a line on standard output). A file that is locked but cannot be written
// is an ERROR line only. Main thread, once.
Bool AcquirePidFile(const char* i_pPath);
