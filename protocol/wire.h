// Bounded access to the bytes of a datagram. Everything but the header's magic is little-endian
// and unaligned on the wire, as in the memory of the processors that this runs on: values are
// copied, not converted.
#pragma once

#include <algorithm>
#include <bit>
#include <cstring>
#include <memory>
#include <new>

#include "framework/types.h"

static_assert(std::endian::native == std::endian::little, "wire values are copied as they lie");

// The longest datagram in either direction, bytes.
inline constexpr UInt32 kMaxDatagram = 4096;

// Bytes of a datagram that may be read: all that can arrive, and a 0 behind the longest one.
inline constexpr UInt32 kMaxReadable = kMaxDatagram + 1;

// Reads a message whose sender may have left out its end: bytes that may be read and were not
// received are 0.
class CWireReader {
 public:
  // i_pBytes stays the caller's; nothing past its first i_u32Received bytes is touched. Texts may
  // reach to i_u32Readable, which counts from i_pBytes, too.
  CWireReader(const UInt8* i_pBytes, UInt32 i_u32Received, UInt32 i_u32Readable)
      : m_pBytes(i_pBytes),
        m_u32Received(std::min(i_u32Received, i_u32Readable)),
        m_u32Readable(i_u32Readable) {}

  // The next i_u32Count bytes; those that were not received come out as 0.
  void Bytes(void* o_pTo, UInt32 i_u32Count) {
    if (UInt64{m_u32Next} + i_u32Count > m_u32Received) [[unlikely]]
      return BytesPastEnd(static_cast<UInt8*>(o_pTo), i_u32Count);
    std::memcpy(o_pTo, m_pBytes + m_u32Next, i_u32Count);
    m_u32Next += i_u32Count;
  }

  // A copy of the next i_u32Length bytes with i_u32Zeros NULs behind them. Null, and the message
  // is refused, when they pass the end of what may be read or there is no memory.
  std::unique_ptr<char[]> Text(UInt32 i_u32Length, UInt32 i_u32Zeros) {
    std::unique_ptr<char[]> pText;
    if (i_u32Length <= Left()) pText.reset(new (std::nothrow) char[i_u32Length + i_u32Zeros]);
    if (!pText) {
      Refuse();
      return pText;
    }
    Bytes(pText.get(), i_u32Length);
    std::fill_n(pText.get() + i_u32Length, i_u32Zeros, '\0');
    return pText;
  }

  // Bytes that may still be read, received or not.
  UInt32 Left() const { return m_u32Readable - m_u32Next; }

  // Notes that the message cannot be decoded; reading goes on all the same.
  void Refuse() { m_bRefused = true; }
  Bool Refused() const { return m_bRefused; }

 private:
  void BytesPastEnd(UInt8* o_pTo, UInt32 i_u32Count) {
    const UInt32 u32There = m_u32Received - std::min(m_u32Next, m_u32Received);
    if (u32There != 0) std::memcpy(o_pTo, m_pBytes + m_u32Next, u32There);
    std::memset(o_pTo + u32There, 0, i_u32Count - u32There);
    m_u32Next += std::min(i_u32Count, Left());
  }

  const UInt8* m_pBytes;
  UInt32 m_u32Received;  // at most m_u32Readable
  UInt32 m_u32Readable;
  UInt32 m_u32Next = 0;  // at most m_u32Readable
  Bool m_bRefused = false;
};

class CWireWriter {
 public:
  // Writes into i_u32Capacity bytes at o_pBuf; a null buffer of capacity 0 only counts.
  constexpr CWireWriter(UInt8* o_pBuf, UInt32 i_u32Capacity)
      : m_pBuf(o_pBuf), m_u32Capacity(i_u32Capacity) {}

  // Appends; what passes the capacity is counted and not written.
  constexpr void Bytes(const void* i_pFrom, UInt32 i_u32Count) {
    if (m_u64Length < m_u32Capacity) {
      const UInt32 u32Written = static_cast<UInt32>(m_u64Length);
      std::memcpy(m_pBuf + u32Written, i_pFrom, std::min(i_u32Count, m_u32Capacity - u32Written));
    }
    m_u64Length += i_u32Count;
  }

  // Bytes appended, whether they fitted or not.
  constexpr UInt64 Length() const { return m_u64Length; }

 private:
  UInt8* m_pBuf;
  UInt32 m_u32Capacity;
  UInt64 m_u64Length = 0;
};
