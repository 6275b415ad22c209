#include "framework/log_writer.h"

#include <cerrno>
#include <ctime>

#include "framework/clock.h"
#include "framework/crash.h"

namespace {

constexpr long kGatherNs = 20 * 1000000L;  // for what usually follows a line, to be written with it

}  // namespace

CLogWriter& CLogWriter::Get() {
  static CLogWriter& s_writer = *new CLogWriter;
  return s_writer;
}

CLogWriter::CLogWriter() { sem_init(&m_stWake, 0, 0); }

void CLogWriter::Start(void (*i_pTellDropped)()) {
  if (m_pRunner != nullptr) return;
  BeforeCrash(WriteBeforeCrash);
  {
    const CMutexLocker lock(&m_objWriting);
    m_pTellDropped = i_pTellDropped;
  }
  m_pRunner = std::make_unique<CRunner>(*this);
  m_pRunner->Start();
  const CMutexLocker lock(&m_objPutting);
  m_bThreaded = true;
}

void CLogWriter::Stop() {
  if (m_pRunner == nullptr) return;
  {
    const CMutexLocker lock(&m_objPutting);
    m_bThreaded = false;
  }
  m_pRunner->RequestStop();
  sem_post(&m_stWake);
  m_pRunner.reset();
  WriteWaiting();
}

void CLogWriter::Follow(CLogFile& io_file) {
  const CMutexLocker lock(&m_objWriting);
  io_file.Follow();
}

char* CLogWriter::AwaitRoom(size_t i_most, Bool i_bMayWait) {
  char* pRoom = m_ring.Reserve(i_most);
  if (pRoom != nullptr || !i_bMayWait || m_ring.Released() == m_u32GaveUpAt) return pRoom;
  const SInt64 s64Until = CTime::Milliseconds() + kMostWaitMs - 1;
  while (pRoom == nullptr && CTime::Milliseconds() < s64Until) {
    m_objPutting.RecursiveUnlock();
    CThread::Sleep(1);
    m_objPutting.RecursiveLock();
    pRoom = m_ring.Reserve(i_most);
  }
  if (pRoom == nullptr) m_u32GaveUpAt = m_ring.Released();
  return pRoom;
}

void CLogWriter::WakeWhenDue() {
  const Bool bHurry = !m_bHurried && m_ring.IsHalfFull();
  m_bHurried |= bHurry;
  if (m_bAsleep || bHurry) sem_post(&m_stWake);
  m_bAsleep = false;
}

void CLogWriter::AwaitLines(const CThread& i_thread) {
  Bool bNoLine = false;
  {
    const CMutexLocker lock(&m_objPutting);
    bNoLine = m_ring.Put() == m_ring.Released();
    m_bAsleep = bNoLine;
    m_bHurried = false;
  }
  while (bNoLine && sem_wait(&m_stWake) != 0 && errno == EINTR) {
  }
  if (i_thread.IsStopRequested()) return;
  timespec stUntil{};
  clock_gettime(CLOCK_MONOTONIC, &stUntil);
  stUntil.tv_nsec += kGatherNs;
  stUntil.tv_sec += stUntil.tv_nsec / 1000000000;
  stUntil.tv_nsec %= 1000000000;
  sem_clockwait(&m_stWake, CLOCK_MONOTONIC, &stUntil);
}

void CLogWriter::CRunner::Entry() {
  SetThreadName("osdlog");
  while (!IsStopRequested()) {
    m_writer.AwaitLines(*this);
    m_writer.WriteWaiting();
  }
}

void CLogWriter::WriteWaiting() {
  void (*pTellDropped)() = nullptr;
  {
    const CMutexLocker lock(&m_objWriting);
    const UInt32 u32Until = m_ring.Put();
    while (static_cast<SInt32>(u32Until - m_ring.Released()) > 0) {
      const CLogRing::T_Batch batch = m_ring.Oldest();
      batch.m_lines.front().m_pFile->Write(batch);
      m_ring.Release(batch.m_lines.size());
    }
    if (m_u32Dropped.load(std::memory_order_relaxed) != 0) pTellDropped = m_pTellDropped;
  }
  if (pTellDropped != nullptr) pTellDropped();
}

void CLogWriter::WriteBeforeCrash() {
  CLogWriter& writer = Get();
  writer.m_bCrashing.store(true, std::memory_order_relaxed);
  for (UInt32 u32Ms = 0; u32Ms < kMostCrashMs; ++u32Ms) {
    if (writer.m_ring.Put() == writer.m_ring.Released()) return;
    sem_post(&writer.m_stWake);
    CThread::Sleep(1);
  }
}
