// Character cells: the masks that glyphs are kept as, and how a line of them is written on a
// canvas. No state; any thread.
#pragma once

#include <array>

#include "common/osd/canvas.h"

// The size of a character cell. Its mask says which of its pixels have the foreground colour: one
// byte for each group of four pixels of a row, bit 0 for the leftmost. Every row begins with a new
// byte; bits beyond the cell are 0.
struct T_Cell {
  static constexpr UInt32 kGroup = 4;

  UInt32 m_u32W = 0;  // px
  UInt32 m_u32H = 0;  // px, the line height

  UInt32 RowBytes() const { return (m_u32W + kGroup - 1) / kGroup; }
  size_t MaskBytes() const { return size_t{RowBytes()} * m_u32H; }
};

// Cells that lie side by side, from left to right.
struct T_CellLine {
  static constexpr UInt32 kMaxCells = 64;

  T_Cell m_stCell;
  UInt32 m_u32Count = 0;
  // Borrowed. Null: the cell stays as it is on the canvas.
  const UInt8* m_apMask[kMaxCells];
};

struct alignas(16) T_FourPixels {
  UInt32 m_aPixel[T_Cell::kGroup];
};

// A foreground and a background colour (ARGB8888), made ready for masks. Both are transparent until
// they are set.
class CCellPaint {
 public:
  void Set(UInt32 i_u32Foreground, UInt32 i_u32Background);

  // The pixels of a group, by the bits of its mask.
  const T_FourPixels* Groups() const { return m_aGroups.data(); }

 private:
  UInt32 m_u32Foreground = 0;
  UInt32 m_u32Background = 0;
  std::array<T_FourPixels, 1U << T_Cell::kGroup> m_aGroups{};
};

// Writes i_line with its first cell's top left corner at that of i_place, as far as it lies in
// i_clip, which lies within the canvas.
void DrawCells(const T_CellLine& i_line, const CCellPaint& i_paint, const T_Canvas& i_canvas,
               const T_Rect& i_place, const T_Rect& i_clip);
