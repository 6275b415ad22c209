// Lays out the lines of one item of the display list, and draws or erases them on a canvas. Owned
// by the painter and used under the renderer's mutexes; writes to nothing but the canvas that it is
// given.
#pragma once

#include <optional>

#include "common/osd/glyphs.h"
#include "common/osd/placement.h"

enum class EDrawMode : UInt32 { kErase = 0, kDraw = 1 };

class CTextDrawer {
 public:
  // Loads the font at its usual size; when that fails, the first item that is laid out tries again.
  CTextDrawer();

  // Where i_item's lines lie on i_canvas, in its font, which is the one to draw with from now on.
  // None for an unknown position code, and when the font could not be had in that size (told on
  // standard output).
  std::optional<T_Layout> LayOut(const T_DispRecord& i_item, const T_Canvas& i_canvas);

  // The only writer of text cells: draws the lines of i_layout, the last one that LayOut returned,
  // on its canvas, or clears their cells, as far as they lie in i_clip. False when a glyph could
  // not be had (told on standard output): the cells before it and the other lines are drawn.
  Bool DrawOsdInfo(const T_Layout& i_layout, EDrawMode i_eMode, const T_Canvas& i_canvas,
                   const T_Rect& i_clip);

 private:
  CGlyphs m_objGlyphs;
  T_CellColours m_stColours;
  T_BitRows m_stRows;
};
