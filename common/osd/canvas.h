// The surface that is drawn on; no state, any thread. Pixels are ARGB8888 in native 32-bit words
// (alpha in bits 24 to 31), rows follow one another without padding. A rectangle includes its left
// and top edge and excludes its right and bottom edge; the functions below want it to lie within
// the canvas.
#pragma once

#include <algorithm>
#include <cstring>

#include "common/osd/pictures/extent.h"

struct T_Rect {
  UInt32 m_u32X = 0;  // px
  UInt32 m_u32Y = 0;
  UInt32 m_u32W = 0;
  UInt32 m_u32H = 0;

  Bool IsEmpty() const { return m_u32W == 0 || m_u32H == 0; }
  bool operator==(const T_Rect&) const = default;
};

// The pixels are borrowed: they belong to the layer, or to whoever else made them.
struct T_Canvas {
  UInt32* m_pPixels = nullptr;
  UInt32 m_u32W = 0;  // px; also the distance from row to row
  UInt32 m_u32H = 0;
  // The row that m_pPixels begin with: some rows of a canvas may be somewhere else for a while.
  UInt32 m_u32Top = 0;

  UInt32* Row(UInt32 i_u32Y) const { return m_pPixels + size_t{i_u32Y - m_u32Top} * m_u32W; }
  T_Extent Extent() const { return {m_u32W, m_u32H}; }
  T_Rect Whole() const { return {0, 0, m_u32W, m_u32H}; }
};

// Makes every pixel of i_rect fully transparent.
inline void ClearRect(const T_Canvas& i_canvas, const T_Rect& i_rect) {
  for (UInt32 row = 0; row < i_rect.m_u32H; ++row)
    std::memset(i_canvas.Row(i_rect.m_u32Y + row) + i_rect.m_u32X, 0,
                size_t{i_rect.m_u32W} * sizeof(UInt32));
}

// The pixels of i_rect, from one canvas to another of its size.
inline void CopyRect(const T_Canvas& i_from, const T_Canvas& i_to, const T_Rect& i_rect) {
  for (UInt32 y = i_rect.m_u32Y; y < i_rect.m_u32Y + i_rect.m_u32H; ++y)
    std::memcpy(i_to.Row(y) + i_rect.m_u32X, i_from.Row(y) + i_rect.m_u32X,
                size_t{i_rect.m_u32W} * sizeof(UInt32));
}

// What lies in both.
inline T_Rect Intersect(const T_Rect& i_a, const T_Rect& i_b) {
  const UInt32 left = std::max(i_a.m_u32X, i_b.m_u32X);
  const UInt32 top = std::max(i_a.m_u32Y, i_b.m_u32Y);
  const UInt32 right = std::min(i_a.m_u32X + i_a.m_u32W, i_b.m_u32X + i_b.m_u32W);
  const UInt32 bottom = std::min(i_a.m_u32Y + i_a.m_u32H, i_b.m_u32Y + i_b.m_u32H);
  if (left >= right || top >= bottom) return {};
  return {left, top, right - left, bottom - top};
}

// The smallest rectangle that holds both; an empty one counts for nothing.
inline T_Rect Union(const T_Rect& i_a, const T_Rect& i_b) {
  if (i_a.IsEmpty()) return i_b;
  if (i_b.IsEmpty()) return i_a;
  const UInt32 left = std::min(i_a.m_u32X, i_b.m_u32X);
  const UInt32 top = std::min(i_a.m_u32Y, i_b.m_u32Y);
  const UInt32 right = std::max(i_a.m_u32X + i_a.m_u32W, i_b.m_u32X + i_b.m_u32W);
  const UInt32 bottom = std::max(i_a.m_u32Y + i_a.m_u32H, i_b.m_u32Y + i_b.m_u32H);
  return {left, top, right - left, bottom - top};
}
