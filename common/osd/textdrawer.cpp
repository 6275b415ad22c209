#include "common/osd/textdrawer.h"

namespace {

constexpr UInt32 kDefaultSize = 32;
constexpr UInt32 kDefaultForeground = 0xFFFFFFFF;
constexpr UInt32 kDefaultBackground = 0x3F000000;
// Font sizes are given for a screen of this width.
constexpr UInt32 kFontScreenW = 3840;
// The font library takes nothing larger, and nothing larger fits any canvas.
constexpr UInt64 kMaxPixelSize = 0xFFFF;

static_assert(T_DispRecord::kLineChars <= T_CellLine::kMaxCells);

}  // namespace

CTextDrawer::CTextDrawer() { m_objGlyphs.SetFont(kDefaultSize); }

std::optional<T_Layout> CTextDrawer::LayOut(const T_DispRecord& i_item, const T_Canvas& i_canvas) {
  if (i_item.m_u32Position >= kPositionCodes) return std::nullopt;
  const Bool bOwn = i_item.m_u16FontSize != 0;
  const UInt64 u64Size =
      UInt64{i_canvas.m_u32W} * (bOwn ? i_item.m_u16FontSize : kDefaultSize) / kFontScreenW;
  const std::optional<T_Cell> cell =
      m_objGlyphs.SetFont(static_cast<UInt32>(std::min(u64Size, kMaxPixelSize)));
  if (!cell) return std::nullopt;
  m_stColours = {bOwn ? i_item.m_u32TextColour : kDefaultForeground,
                 bOwn ? i_item.m_u32Background : kDefaultBackground};
  return Place(i_item, *cell, i_canvas);
}

Bool CTextDrawer::DrawOsdInfo(const T_Layout& i_layout, EDrawMode i_eMode, const T_Canvas& i_canvas,
                              const T_Rect& i_clip) {
  Bool bDrawn = true;
  for (UInt32 line = 0; line < i_layout.m_u32Lines; ++line) {
    const T_Rect place = i_layout.LineRect(line);
    const T_Rect part = Intersect(place, i_clip);
    if (part.IsEmpty()) continue;
    if (i_eMode == EDrawMode::kErase) {
      ClearRect(i_canvas, part);
      continue;
    }
    const T_CellLine& cells = m_objGlyphs.Cells(i_layout.Text(line));
    DrawCells(cells, m_stColours, i_canvas, place, part, m_stRows);
    if (cells.m_u32Count < i_layout.m_aLines[line].m_u32Length) bDrawn = false;
  }
  return bDrawn;
}
