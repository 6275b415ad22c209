// Lines on their way to log files, in bounded memory, each in one piece. Those who put lines in
// hold one lock, the one who takes them out another: the two sides meet in two counters alone, so
// neither ever waits for the other. While no line waits the ring begins at its start again, so that
// an idle log touches few of its pages.
#pragma once

#include <atomic>
#include <cstddef>
#include <span>

#include "framework/types.h"

class CLogFile;

class CLogRing {
 public:
  static constexpr UInt32 kBytes = 256 * 1024;  // a power of two, as kLines is
  static constexpr UInt32 kLines = 4096;

  struct T_Line {
    CLogFile* m_pFile;
    UInt32 m_u32At;  // counts on beyond kBytes
    UInt32 m_u32Size;
  };
  // Lines of one file that lie side by side.
  struct T_Batch {
    std::span<const T_Line> m_lines;
    const char* m_pBytes;
  };

  CLogRing() = default;
  CLogRing(const CLogRing&) = delete;
  CLogRing& operator=(const CLogRing&) = delete;

  // The putting side. Room for i_size bytes, or null when the ring is too full; nothing is waiting
  // in it until Commit, with the bytes that were used.
  char* Reserve(size_t i_size);
  void Commit(CLogFile* i_pFile, size_t i_size);
  Bool IsHalfFull() const;

  // The taking side. The oldest lines, some at least; at least one must wait. They stay where they
  // are until they are released.
  T_Batch Oldest() const;
  void Release(size_t i_lines);

  // How many lines were ever put in and released, modulo 2^32. Any thread, any signal handler.
  UInt32 Put() const { return m_u32Put.load(std::memory_order_acquire); }
  UInt32 Released() const { return m_u32Released.load(std::memory_order_acquire); }

 private:
  const T_Line& Line(UInt32 i_u32Number) const { return m_aLines[i_u32Number % kLines]; }

  std::atomic<UInt32> m_u32Put{0};
  std::atomic<UInt32> m_u32Released{0};
  UInt32 m_u32Reserved = 0;  // where; the putting side's
  T_Line m_aLines[kLines];
  char m_aBytes[kBytes];
};
