#include "common/osd/cells.h"

void DrawCells(const T_CellLine& i_line, const T_CellColours& i_colours, const T_Canvas& i_canvas,
               const T_Rect& i_place, const T_Rect& i_clip, T_BitRows& io_rows,
               const T_CellLoops& i_loops) {
  const auto [u32CellW, u32CellH] = i_line.m_stCell;
  for (UInt32 begin = 0, end = 0; begin < i_line.m_u32Count; begin = end + 1) {
    end = begin;
    while (end < i_line.m_u32Count && i_line.m_apMask[end] != nullptr) ++end;
    const T_Rect place{i_place.m_u32X + begin * u32CellW, i_place.m_u32Y, (end - begin) * u32CellW,
                       u32CellH};
    const T_Rect part = Intersect(place, i_clip);
    for (UInt32 done = 0; done < part.m_u32W; done += T_CellPart::kMaxW) {
      const UInt32 u32X = part.m_u32X - place.m_u32X + done;
      const T_CellPart cells{.m_u64Line = i_line.m_u64Number,
                             .m_ppMask = i_line.m_apMask + begin + u32X / u32CellW,
                             .m_u32CellW = u32CellW,
                             .m_u32CellH = u32CellH,
                             .m_u32X = u32X % u32CellW,
                             .m_u32Y = part.m_u32Y - place.m_u32Y,
                             .m_u32W = std::min(T_CellPart::kMaxW, part.m_u32W - done),
                             .m_u32H = part.m_u32H};
      DrawPart(cells,
               {.m_pPixels = i_canvas.Row(part.m_u32Y) + part.m_u32X + done,
                .m_u32Pitch = i_canvas.m_u32W,
                .m_u32Foreground = i_colours.m_u32Foreground,
                .m_u32Background = i_colours.m_u32Background},
               i_loops, io_rows);
    }
  }
}
