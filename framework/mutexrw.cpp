#include "framework/mutexrw.h"

#include "framework/clock.h"

void CMutexRW::LockRead() {
  CMutexLocker locker(&m_objInternal);
  ++m_s32ReadWaiters;
  while (m_s32State < 0 || m_s32WriteWaiters >= 1)
    m_objReaders.TimedWait(&m_objInternal, CTime::kLongestWait);
  ++m_s32State;
  m_s32ActiveReaders = m_s32State;
  --m_s32ReadWaiters;
}

void CMutexRW::LockWrite() {
  CMutexLocker locker(&m_objInternal);
  ++m_s32WriteWaiters;
  while (m_s32State > 0) m_objWriters.TimedWait(&m_objInternal, CTime::kLongestWait);
  m_s32State = -1;
  m_s32ActiveReaders = -1;
  --m_s32WriteWaiters;
}

void CMutexRW::Unlock() {
  CMutexLocker locker(&m_objInternal);
  if (m_s32State < 0)
    UnlockWrite();
  else
    UnlockRead();
  m_s32ActiveReaders = m_s32State;
}

void CMutexRW::UnlockWrite() {
  m_s32State = 0;
  if (m_s32WriteWaiters == 0)
    m_objReaders.Broadcast();
  else
    m_objWriters.Signal();
}

void CMutexRW::UnlockRead() {
  if (m_s32State > 1) {
    --m_s32State;
    return;
  }
  // Also reached at 0, by the second of two writers that held the lock together.
  m_s32State = 0;
  m_objWriters.Signal();
}
