#include "common/osd/pictures/picture.h"

#include <sys/mman.h>

#include <new>

namespace {

constexpr size_t kHugePage = size_t{2} << 20;
constexpr size_t kMostWasted = kHugePage / 8;

}  // namespace

// In huge pages, where the system has them, a large picture comes into memory by some faults
// instead of thousands. A mapping of whole ones lies where they may; its last one is huge, too,
// unless the picture leaves much of it free.
CPicture::CPicture(const T_Extent& i_extent) : m_stExtent(i_extent) {
  const size_t mapped = (Bytes() / kHugePage + 1) * kHugePage;
  void* const pPixels =
      mmap(nullptr, mapped, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (pPixels == MAP_FAILED) throw std::bad_alloc();
  m_pPixels = {static_cast<UInt32*>(pPixels), {mapped}};
  madvise(pPixels, mapped - Bytes() <= kMostWasted ? mapped : Bytes(), MADV_HUGEPAGE);
}

void CPicture::T_Unmap::operator()(UInt32* i_pPixels) const { munmap(i_pPixels, m_bytes); }
