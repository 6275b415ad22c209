#include "framework/log_ring.h"

#include <algorithm>

namespace {

constexpr UInt32 kMostInBatch =
    64 * 1024;  // bytes beyond the first line: so much gets free at once

}  // namespace

char* CLogRing::Reserve(size_t i_size) {
  const UInt32 u32Put = m_u32Put.load(std::memory_order_relaxed);
  const UInt32 u32Released = Released();
  if (i_size > kBytes || u32Put - u32Released == kLines) return nullptr;
  UInt32 u32At = 0;
  if (u32Put != u32Released) {
    const T_Line& last = Line(u32Put - 1);
    u32At = last.m_u32At + last.m_u32Size;
    const UInt32 u32ToEnd = kBytes - u32At % kBytes;
    if (i_size > u32ToEnd) u32At += u32ToEnd;
    const UInt32 u32End = u32At + static_cast<UInt32>(i_size);
    if (u32End - Line(u32Released).m_u32At > kBytes) return nullptr;
  }
  m_u32Reserved = u32At;
  return m_aBytes + u32At % kBytes;
}

void CLogRing::Commit(CLogFile* i_pFile, size_t i_size) {
  const UInt32 u32Put = m_u32Put.load(std::memory_order_relaxed);
  m_aLines[u32Put % kLines] = {i_pFile, m_u32Reserved, static_cast<UInt32>(i_size)};
  m_u32Put.store(u32Put + 1, std::memory_order_release);
}

Bool CLogRing::IsHalfFull() const {
  const UInt32 u32Put = m_u32Put.load(std::memory_order_relaxed);
  const UInt32 u32Released = Released();
  return u32Put - u32Released > kLines / 2 ||
         (u32Put != u32Released &&
          Line(u32Put - 1).m_u32At - Line(u32Released).m_u32At > kBytes / 2);
}

CLogRing::T_Batch CLogRing::Oldest() const {
  const UInt32 u32First = m_u32Released.load(std::memory_order_relaxed);
  const T_Line& first = Line(u32First);
  const UInt32 u32Most = std::min(Put() - u32First, kLines - u32First % kLines);
  UInt32 u32Count = 1;
  UInt32 u32End = first.m_u32At + first.m_u32Size;
  for (; u32Count < u32Most; ++u32Count) {
    const T_Line& line = Line(u32First + u32Count);
    if (line.m_pFile != first.m_pFile || line.m_u32At != u32End || line.m_u32At % kBytes == 0 ||
        u32End - first.m_u32At > kMostInBatch)
      break;
    u32End += line.m_u32Size;
  }
  return {{&first, u32Count}, m_aBytes + first.m_u32At % kBytes};
}

void CLogRing::Release(size_t i_lines) {
  m_u32Released.store(m_u32Released.load(std::memory_order_relaxed) + static_cast<UInt32>(i_lines),
                      std::memory_order_release);
}
