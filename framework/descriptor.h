// Move-only owner of a file descriptor. Used by one thread at a time.
#pragma once

#include <unistd.h>

#include <utility>

#include "framework/types.h"

class CDescriptor {
 public:
  // Takes over i_s32Fd; a negative one is "none".
  explicit CDescriptor(SInt32 i_s32Fd = -1) : m_s32Fd(i_s32Fd) {}
  // The other one has none afterwards; with an assignment, what this one had.
  CDescriptor(CDescriptor&& io_other) noexcept : m_s32Fd(std::exchange(io_other.m_s32Fd, -1)) {}
  CDescriptor& operator=(CDescriptor&& io_other) noexcept {
    std::swap(m_s32Fd, io_other.m_s32Fd);
    return *this;
  }
  ~CDescriptor() {
    if (m_s32Fd >= 0) close(m_s32Fd);
  }

  // -1 when there is none. It stays this object's: not to be closed.
  SInt32 Get() const { return m_s32Fd; }

 private:
  SInt32 m_s32Fd;
};
