// Character cells: the masks that glyphs are kept as, and how a line of them is written on a
// canvas.
#pragma once

#include "common/osd/canvas.h"
#include "common/osd/cell_bits.h"

// The size of a character cell. Its mask, kept as T_MaskWords says, tells which of its pixels have
// the foreground colour.
struct T_Cell {
  UInt32 m_u32W = 0;  // px
  UInt32 m_u32H = 0;  // px, the line height

  size_t MaskWords() const {
    const UInt32 u32Columns = (m_u32W + T_MaskWords::kPixels - 1) / T_MaskWords::kPixels;
    return size_t{u32Columns} * m_u32H + T_MaskWords::kSlack;
  }
};

// Cells that lie side by side, from left to right.
struct T_CellLine {
  static constexpr UInt32 kMaxCells = 64;

  T_Cell m_stCell;
  UInt32 m_u32Count = 0;
  UInt64 m_u64Number = 0;  // as T_CellPart::m_u64Line
  // Borrowed. Null: the cell stays as it is on the canvas.
  const UInt32* m_apMask[kMaxCells];
};

// ARGB8888.
struct T_CellColours {
  UInt32 m_u32Foreground = 0;
  UInt32 m_u32Background = 0;
};

// Writes i_line with its first cell's top left corner at that of i_place, as far as it lies in
// i_clip, which lies within the canvas. Each row is written once, from left to right, and nothing is
// read from the canvas. io_rows is for the caller to keep.
void DrawCells(const T_CellLine& i_line, const T_CellColours& i_colours, const T_Canvas& i_canvas,
               const T_Rect& i_place, const T_Rect& i_clip, T_BitRows& io_rows,
               const T_CellLoops& i_loops = *WidestCellLoops());
