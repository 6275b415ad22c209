// The inner loops of drawing cells, in vectors of 128, 256 or 512 bits: the masks of cells are
// joined to rows of bits, and each row of bits is painted from left to right. No state; any thread.
#pragma once

#include <cstddef>

#include "framework/types.h"

// How a cell's mask is kept: in columns of words. Word y of column c holds the pixels 32 * c to
// 32 * c + 31 of row y, bit 0 the leftmost; bits beyond the cell are 0. Behind the last column come
// kSlack words, whatever they are, so that rows can be read by whole vectors.
struct T_MaskWords {
  static constexpr UInt32 kPixels = 32;
  static constexpr UInt32 kSlack = 15;
};

// A part of cells that lie side by side.
struct T_CellPart {
  static constexpr UInt32 kMaxW = 8960;  // px

  const UInt32* const* m_ppMask;  // of the part's first cell, and of those right of it
  UInt32 m_u32CellW;              // px
  UInt32 m_u32CellH;
  UInt32 m_u32X;  // px, the part's top left corner within its first cell
  UInt32 m_u32Y;
  UInt32 m_u32W;  // px, 1 to kMaxW
  UInt32 m_u32H;
  UInt32 m_u32Foreground;  // ARGB8888
  UInt32 m_u32Background;
  UInt32* m_pPixels;  // that corner on the canvas
  UInt32 m_u32Pitch;  // px, from there to the next row
};

// Writes every pixel of the part once, in the order of addresses, and reads none.
using T_DrawPart = void (*)(const T_CellPart&);

// With vectors of i_u32Bits; null when this processor has none of that width.
T_DrawPart PartDrawer(UInt32 i_u32Bits);
// With the widest ones that it has.
T_DrawPart WidestPartDrawer();
