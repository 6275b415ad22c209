// Where the lines of an item lie on a canvas: position codes, offsets and bounds. No state; the
// bounds that are broken are logged.
#pragma once

#include "common/osd/canvas.h"
#include "common/osd/disp_record.h"

enum EDrawMode : UInt32 { kModeErase = 0, kModeDraw = 1 };

struct T_Cell {
  UInt32 m_u32W;  // px
  UInt32 m_u32H;  // the line height
};

// Of one item on one canvas. Every line of a length above 0 lies within the canvas.
struct T_Layout {
  T_Cell m_stCell;
  UInt32 m_u32X;  // px, the block's top left corner
  UInt32 m_u32Y;
  UInt32 m_u32Lines;
  UInt32 m_aLength[T_DispRecord::kMaxLines];  // characters; 0 = nothing is drawn

  // The cells of line i_u32Line.
  T_Rect LineRect(UInt32 i_u32Line) const {
    return {m_u32X, m_u32Y + m_stCell.m_u32H * i_u32Line, m_stCell.m_u32W * m_aLength[i_u32Line],
            m_stCell.m_u32H};
  }
  // The block around all lines that are drawn.
  T_Rect Bounds() const;
};

// What the log is told about bounds that are broken: nothing, or in the words of an erasure or of
// a drawing.
enum ETold { kToldNothing, kToldErase, kToldDraw };

// Offsets and sizes are given on a grid of this size, whatever the canvas. In px, rounded down.
SInt64 AcrossGrid(UInt32 i_u32Offset, const T_Canvas& i_canvas);
SInt64 DownGrid(UInt32 i_u32Offset, const T_Canvas& i_canvas);

inline constexpr UInt32 kPositionCodes = 9;

// Places i_item, whose position code must be below kPositionCodes and which has at most
// kMaxLines terminated lines. A block that starts outside the canvas is pulled back to its edge;
// a line that does not fit gets the length 0.
T_Layout LayOut(const T_DispRecord& i_item, const T_Cell& i_cell, const T_Canvas& i_canvas,
                ETold i_eTold);
