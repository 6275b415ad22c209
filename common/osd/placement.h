// Where the lines of an item lie on a canvas: position codes, offsets and bounds. No state; any
// thread.
#pragma once

#include <optional>

#include "common/osd/cells.h"
#include "common/osd/disp_record.h"

// Of one item on one canvas. Each of its lines is drawn as a whole or not at all.
struct T_Layout {
  struct T_Line {
    UInt32 m_u32Length;  // characters
    Bool m_bTooLong;     // passes the canvas's right edge
    Bool m_bTooHigh;     // passes its bottom

    Bool IsDrawn() const { return !m_bTooLong && !m_bTooHigh; }
  };

  const T_DispRecord* m_pItem = nullptr;  // borrowed
  T_Cell m_stCell;
  UInt32 m_u32X = 0;  // px, the block's top left corner
  UInt32 m_u32Y = 0;
  // Where the block would have begun, when that is outside the canvas (2^32 more than a negative
  // value): it begins at the canvas's edge instead.
  std::optional<UInt32> m_outsideX;
  std::optional<UInt32> m_outsideY;
  T_Rect m_stBounds;  // the block around all lines that are drawn
  UInt32 m_u32Lines = 0;
  T_Line m_aLines[T_DispRecord::kMaxLines];  // as many as m_u32Lines are set

  const char* Text(UInt32 i_u32Line) const { return m_pItem->m_aText[i_u32Line]; }
  // The cells of line i_u32Line, which lie within the canvas; empty when it is not drawn.
  T_Rect LineRect(UInt32 i_u32Line) const {
    const T_Line& line = m_aLines[i_u32Line];
    if (!line.IsDrawn()) return {};
    return {m_u32X, m_u32Y + m_stCell.m_u32H * i_u32Line, m_stCell.m_u32W * line.m_u32Length,
            m_stCell.m_u32H};
  }
};

// Offsets and sizes are given on a grid of this size, whatever the canvas. In px, rounded down.
SInt64 AcrossGrid(UInt32 i_u32Offset, const T_Canvas& i_canvas);
SInt64 DownGrid(UInt32 i_u32Offset, const T_Canvas& i_canvas);

inline constexpr UInt32 kPositionCodes = 9;

// Places i_item, whose position code must be below kPositionCodes and which has at most kMaxLines
// terminated lines. The layout refers to it.
T_Layout Place(const T_DispRecord& i_item, const T_Cell& i_cell, const T_Canvas& i_canvas);
