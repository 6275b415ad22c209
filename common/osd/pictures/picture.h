// A picture in memory: ARGB8888 in native 32-bit words, straight (not premultiplied) alpha, rows
// without padding. Made by one thread; once it is shared it does not change any more.
#pragma once

#include <memory>

#include "common/osd/pictures/extent.h"

// A rectangle of pixels within a larger picture, whose memory is borrowed.
struct T_Part {
  UInt32* m_pFirst;
  size_t m_stride;  // px from row to row
  T_Extent m_stExtent;

  UInt32* Row(UInt32 i_u32Y) const { return m_pFirst + i_u32Y * m_stride; }
};

class CPicture {
 public:
  static constexpr UInt32 kMaxSide = 8192;  // px
  static constexpr size_t kMaxPixels = size_t{64} << 20;

  // Its pixels are 0 at first and take memory from then on that they are written; all of it goes
  // back to the system in the end. Throws std::bad_alloc.
  explicit CPicture(const T_Extent& i_extent);

  const T_Extent& Extent() const { return m_stExtent; }
  size_t Bytes() const { return m_stExtent.Pixels() * sizeof(UInt32); }
  UInt32* Row(UInt32 i_u32Y) { return m_pPixels.get() + size_t{i_u32Y} * m_stExtent.m_u32W; }
  const UInt32* Row(UInt32 i_u32Y) const {
    return m_pPixels.get() + size_t{i_u32Y} * m_stExtent.m_u32W;
  }

  // The part of that size in the middle; i_stExtent is at most its own.
  T_Part Middle(const T_Extent& i_stExtent) {
    const UInt32 u32X = (m_stExtent.m_u32W - i_stExtent.m_u32W) / 2;
    const UInt32 u32Y = (m_stExtent.m_u32H - i_stExtent.m_u32H) / 2;
    return {Row(u32Y) + u32X, m_stExtent.m_u32W, i_stExtent};
  }

  // Whether every pixel is known to have alpha 255.
  Bool IsOpaque() const { return m_bOpaque; }
  void SetOpaque(Bool i_bOpaque) { m_bOpaque = i_bOpaque; }

 private:
  struct T_Unmap {
    size_t m_bytes;
    void operator()(UInt32* i_pPixels) const;
  };

  T_Extent m_stExtent;
  std::unique_ptr<UInt32[], T_Unmap> m_pPixels;
  Bool m_bOpaque = false;
};
