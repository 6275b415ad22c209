// What became of the requests that were received lately. The endpoint opens an entry for each, and
// who finds out what became of it closes the entry; both know it by its number. Bounded, and nothing
// is allocated but by who reads it. Any thread; the lock is an innermost one.
#pragma once

#include <atomic>
#include <vector>

#include "framework/mutex.h"
#include "framework/thread_annotations.h"
#include "framework/types.h"

// Who asked: travels with a command, and stays with what it leads to.
struct T_Asker {
  UInt32 m_u32Entry = 0;  // number of the ledger's entry; 0 = nobody's request
  UInt32 m_u32Seq = 0;    // the peer's sequence number
  UInt32 m_u32Port = 0;   // the peer's

  bool operator==(const T_Asker&) const = default;
};

enum class ERequest : UInt8 { kWaiting, kDone, kRefused };

struct T_LedgerEntry {
  T_Asker m_stAsker;
  UInt32 m_u32MsgId = 0;
  ERequest m_eState = ERequest::kWaiting;
  SInt64 m_s64Opened = 0;  // ms on the monotonic clock
  char m_szWhy[256] = {};  // in words; of one that is done: what is missing all the same
};

class CLedger {
 public:
  static constexpr UInt32 kEntries = 256;

  // Makes an entry that waits; the oldest one goes.
  T_Asker Open(UInt32 i_u32Port, UInt32 i_u32Seq, UInt32 i_u32MsgId);

  // Ends the entry of i_asker, unless it was ended before or is gone. i_pWhy is cut at what the entry
  // holds.
  void Close(const T_Asker& i_asker, ERequest i_eState, const char* i_pWhy = "");

  // Something that can be asked about may have changed: calls i_pListener, if there is one. Whoever
  // changes it without closing an entry calls this. Called under locks: it must not want any.
  void NoteChange() {
    if (const auto pListener = m_pListener.load(std::memory_order_acquire)) pListener();
  }
  void SetListener(void (*i_pListener)()) {
    m_pListener.store(i_pListener, std::memory_order_release);
  }

  // All entries, the oldest first.
  std::vector<T_LedgerEntry> Entries();

 private:
  std::atomic<void (*)()> m_pListener{nullptr};
  CMutex m_objLock;
  T_LedgerEntry m_aEntries[kEntries] GUARDED_BY(m_objLock);
  UInt32 m_u32Last GUARDED_BY(m_objLock) = 0;  // the number given out last
};

// The process's one. Never destroyed: threads that nobody stops still use it while the process ends.
extern CLedger& g_objLedger;
