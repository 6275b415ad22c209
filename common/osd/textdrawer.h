// Draws and erases the lines of one item of the display list on a canvas. Owned by the renderer
// and used under its mutexes; writes to nothing but the canvas that it is given.
#pragma once

#include <optional>
#include <vector>

#include "common/osd/glyphs.h"
#include "common/osd/placement.h"

class CTextDrawer {
 public:
  // Loads the font at its usual size; when that fails, the first item that is drawn tries again.
  CTextDrawer();

  // The block that i_item's lines cover on i_canvas, empty when none fits. Broken bounds are logged
  // as i_eTold says. None for an unknown position code, or when the font could not be had.
  std::optional<T_Rect> Measure(const T_DispRecord& i_item, const T_Canvas& i_canvas,
                                ETold i_eTold);

  // The only writer of text cells: draws i_item, or clears its cells, as far as they lie in i_clip.
  // False as Measure's none, and when a glyph could not be had: the cells before it are drawn.
  Bool DrawOsdInfo(const T_DispRecord& i_item, EDrawMode i_eMode, const T_Canvas& i_canvas,
                   const T_Rect& i_clip);

 private:
  std::optional<T_Layout> LayOutItem(const T_DispRecord& i_item, const T_Canvas& i_canvas,
                                     ETold i_eTold);
  Bool SetItemFont(const T_DispRecord& i_item, UInt32 i_u32CanvasW);
  Bool DrawLine(const char* i_pText, const T_Rect& i_line, const T_Canvas& i_canvas,
                const T_Rect& i_part);

  CGlyphs m_objGlyphs;
  // A line of which only a part is to be seen is drawn here first.
  std::vector<UInt32> m_vecLine;
};
