// The inner loops of drawing cells, in vectors of 128, 256 or 512 bits: the masks of cells are
// joined to rows of bits, and each row of bits is painted from left to right.
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

  // Never the same for other masks; 0 when that cannot be said.
  UInt64 m_u64Line = 0;
  const UInt32* const* m_ppMask = nullptr;  // of the part's first cell, and of those right of it
  UInt32 m_u32CellW = 0;                    // px
  UInt32 m_u32CellH = 0;
  UInt32 m_u32X = 0;  // px, the part's top left corner within its first cell
  UInt32 m_u32Y = 0;
  UInt32 m_u32W = 0;  // px, 1 to kMaxW
  UInt32 m_u32H = 0;

  bool operator==(const T_CellPart&) const = default;
};

// What a row of so many pixels takes as bits: a word more before it, for what its first mask word
// has left of the part, and two behind it, which are looked at with its last.
constexpr UInt32 BitWords(UInt32 i_u32W) {
  return (i_u32W + T_MaskWords::kPixels - 1) / T_MaskWords::kPixels + 3;
}

// Rows of a part as bits: word i of row r is m_aWords[i * m_u32Stride + r], and bit 0 of word 1 is
// the part's first pixel. They are used again when the same part is drawn next: on another output,
// at another place, in other colours. Small enough to leave half of a first level cache to others.
struct T_BitRows {
  T_CellPart m_stPart;  // all of its rows are here
  UInt32 m_u32Stride = 0;
  alignas(64) UInt32 m_aWords[BitWords(T_CellPart::kMaxW) * (T_MaskWords::kSlack + 1)];
};

// Where a part is written, and how.
struct T_CellTarget {
  UInt32* m_pPixels;       // its top left one on the canvas
  UInt32 m_u32Pitch;       // px, from there to the next row
  UInt32 m_u32Foreground;  // ARGB8888
  UInt32 m_u32Background;
};

// The loops for one width of vectors.
struct T_CellLoops;
// Null when this processor has no vectors of so many bits.
const T_CellLoops* CellLoops(UInt32 i_u32Bits);
// For the widest ones that it has.
const T_CellLoops* WidestCellLoops();

// Writes every pixel of i_part once, in the order of addresses, and reads none.
void DrawPart(const T_CellPart& i_part, const T_CellTarget& i_target, const T_CellLoops& i_loops,
              T_BitRows& io_rows);
