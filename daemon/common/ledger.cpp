#include "daemon/common/ledger.h"

#include <cstdio>

#include "framework/clock.h"

CLedger& g_objLedger = *new CLedger;

// Numbers wrap past 0, which is nobody's.
T_Asker CLedger::Open(UInt32 i_u32Port, UInt32 i_u32Seq, UInt32 i_u32MsgId) {
  const SInt64 s64Now = CTime::Milliseconds();
  CMutexLocker locker(&m_objLock);
  if (++m_u32Last == 0) m_u32Last = kEntries;
  T_LedgerEntry& entry = m_aEntries[m_u32Last % kEntries];
  entry = {{m_u32Last, i_u32Seq, i_u32Port}, i_u32MsgId, ERequest::kWaiting, s64Now, {}};
  return entry.m_stAsker;
}

void CLedger::Close(const T_Asker& i_asker, ERequest i_eState, const char* i_pWhy) {
  if (i_asker.m_u32Entry == 0) return;
  {
    CMutexLocker locker(&m_objLock);
    T_LedgerEntry& entry = m_aEntries[i_asker.m_u32Entry % kEntries];
    if (entry.m_stAsker != i_asker || entry.m_eState != ERequest::kWaiting) return;
    entry.m_eState = i_eState;
    std::snprintf(entry.m_szWhy, sizeof(entry.m_szWhy), "%s", i_pWhy);
  }
  NoteChange();
}

std::vector<T_LedgerEntry> CLedger::Entries() {
  std::vector<T_LedgerEntry> entries;
  entries.reserve(kEntries);
  CMutexLocker locker(&m_objLock);
  for (UInt32 i = 1; i <= kEntries; ++i) {
    const T_LedgerEntry& entry = m_aEntries[(m_u32Last + i) % kEntries];
    if (entry.m_stAsker.m_u32Entry != 0) entries.push_back(entry);
  }
  return entries;
}
