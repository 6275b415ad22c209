// The process-wide list of pending entries, and the idle task that empties it once, a period after
// its start. The daemon creates the task but never starts it, so the list stays as it is.
#pragma once

#include "framework/idletask.h"

class CTimeoutList : public CIdleTask {
 public:
  // i_pPeriod is decimal text in ms, as a parameter store has it; it outlives the task. Without a
  // store it is empty, which is 0.
  explicit CTimeoutList(const char* i_pPeriod = "");

  // -1 after kKillEvent (the framework then deletes the task), else 0.
  SInt64 Run() override;

  // Adds an entry. It carries nothing that the daemon reads; i_u32Id is its owner's. Any thread.
  static void Insert(UInt32 i_u32Id);

  // Entries that wait at this moment. Any thread.
  static UInt32 PendingCount();

 private:
  const char* const m_pPeriod;
};
