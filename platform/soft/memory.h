// The software screen's contiguous memory: pages of this process under made-up 32-bit physical
// addresses. Guarded by the device's mutex.
#pragma once

#include <map>
#include <optional>

#include "platform/platform.h"
#include "platform/soft/handles.h"

class CSoftMemory {
 public:
  static constexpr UInt64 kMaxBytes = UInt64{512} << 20;  // of all canvases together

  // i_u32Size bytes filled with a pattern, so that nobody counts on zeros. 0, or an errno: EINVAL for
  // no bytes; ENOMEM above kMaxBytes, or when no addresses are left; the system's, as mmap(2).
  SInt32 Alloc(UInt32 i_u32Size, T_ContiguousMemory* o_pMemory);

  // false for memory that Alloc did not give, or that was freed before.
  Bool Free(const T_ContiguousMemory& i_memory);

  // The canvas of at least i_size bytes that starts at i_u64Physical, or null.
  const UInt8* Find(UInt64 i_u64Physical, size_t i_size) const;

  // Canvases that were not freed.
  UInt32 Count() const { return static_cast<UInt32>(m_canvases.size()); }

 private:
  std::optional<UInt32> FreeAddress(UInt64 i_u64Span);

  std::map<UInt32, CMapping> m_canvases;  // by physical address
  UInt64 m_u64Bytes = 0;                  // of all of them
  UInt64 m_u64Next = 0;                   // an address is not given again before all others were
};
