#include "platform/soft/memory.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace {

constexpr UInt64 kPage = 4096;
constexpr UInt64 kFirstAddress = 0x40000000;
constexpr UInt64 kEndAddress = UInt64{1} << 32;
constexpr int kPattern = 0xA5;

// What a canvas occupies: whole pages, and one more that tells neighbours apart.
UInt64 Span(UInt64 i_u64Size) { return (i_u64Size + kPage - 1) / kPage * kPage + kPage; }

}  // namespace

// Walks over the occupied ranges from the last address given, and once more from the start.
std::optional<UInt32> CSoftMemory::FreeAddress(UInt64 i_u64Span) {
  for (UInt64 u64Candidate : {std::max(m_u64Next, kFirstAddress), kFirstAddress}) {
    for (const auto& [u32Physical, canvas] : m_canvases) {
      const UInt64 u64End = u32Physical + Span(canvas.Size());
      if (u64End > u64Candidate && u32Physical < u64Candidate + i_u64Span) u64Candidate = u64End;
    }
    if (u64Candidate + i_u64Span > kEndAddress) continue;
    m_u64Next = u64Candidate + i_u64Span;
    return static_cast<UInt32>(u64Candidate);
  }
  return std::nullopt;
}

SInt32 CSoftMemory::Alloc(UInt32 i_u32Size, T_ContiguousMemory* o_pMemory) {
  if (i_u32Size == 0) return EINVAL;
  if (m_u64Bytes + i_u32Size > kMaxBytes) return ENOMEM;
  const std::optional<UInt32> physical = FreeAddress(Span(i_u32Size));
  if (!physical) return ENOMEM;
  CMapping canvas(-1, i_u32Size);
  if (!canvas.Valid()) return errno;
  std::memset(canvas.Bytes(), kPattern, canvas.Size());
  *o_pMemory = {*physical, canvas.Bytes()};
  m_canvases.emplace(*physical, std::move(canvas));
  m_u64Bytes += i_u32Size;
  return 0;
}

Bool CSoftMemory::Free(const T_ContiguousMemory& i_memory) {
  const auto found = m_canvases.find(i_memory.m_u32Physical);
  if (found == m_canvases.end() || found->second.Bytes() != i_memory.m_pVirtual) return false;
  m_u64Bytes -= found->second.Size();
  m_canvases.erase(found);
  return true;
}

const UInt8* CSoftMemory::Find(UInt64 i_u64Physical, size_t i_size) const {
  if (i_u64Physical >= kEndAddress) return nullptr;
  const auto found = m_canvases.find(static_cast<UInt32>(i_u64Physical));
  if (found == m_canvases.end() || found->second.Size() < i_size) return nullptr;
  return found->second.Bytes();
}
