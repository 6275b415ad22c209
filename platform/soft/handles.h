// Move-only owner of a memory mapping, beside that of a descriptor. Used by one thread at a time.
#pragma once

#include <sys/mman.h>

#include <cstddef>
#include <utility>

#include "framework/descriptor.h"
#include "framework/types.h"

class CMapping {
 public:
  CMapping() = default;

  // i_size bytes, readable and writable: of the file i_s32Fd from its start, shared; or with -1
  // fresh memory of the process. Not Valid(), with errno, when the system refuses.
  CMapping(SInt32 i_s32Fd, size_t i_size) : m_size(i_size) {
    const int flags = i_s32Fd < 0 ? MAP_PRIVATE | MAP_ANONYMOUS : MAP_SHARED;
    m_pStart = mmap(nullptr, i_size, PROT_READ | PROT_WRITE, flags, i_s32Fd, 0);
  }
  CMapping(CMapping&& io_other) noexcept
      : m_pStart(std::exchange(io_other.m_pStart, MAP_FAILED)), m_size(io_other.m_size) {}
  CMapping& operator=(CMapping&& io_other) noexcept {
    std::swap(m_pStart, io_other.m_pStart);
    std::swap(m_size, io_other.m_size);
    return *this;
  }
  ~CMapping() {
    if (Valid()) munmap(m_pStart, m_size);
  }

  // Whether there is a mapping; Bytes() is its start, Size() its length in bytes.
  Bool Valid() const { return m_pStart != MAP_FAILED; }
  UInt8* Bytes() const { return static_cast<UInt8*>(m_pStart); }
  size_t Size() const { return m_size; }

 private:
  void* m_pStart = MAP_FAILED;
  size_t m_size = 0;
};
