#include "common/osd/textdrawer.h"

namespace {

constexpr UInt32 kDefaultSize = 32;
constexpr UInt32 kDefaultForeground = 0xFFFFFFFF;
constexpr UInt32 kDefaultBackground = 0x3F000000;
// Font sizes are given for a screen of this width.
constexpr UInt32 kFontScreenW = 3840;
// The font library takes nothing larger, and nothing larger fits any canvas.
constexpr UInt64 kMaxPixelSize = 0xFFFF;

}  // namespace

CTextDrawer::CTextDrawer() {
  m_objGlyphs.SetFont(kDefaultSize, kDefaultForeground, kDefaultBackground);
}

Bool CTextDrawer::SetItemFont(const T_DispRecord& i_item, UInt32 i_u32CanvasW) {
  const Bool bOwn = i_item.m_u16FontSize != 0;
  const UInt64 u64Size =
      UInt64{i_u32CanvasW} * (bOwn ? i_item.m_u16FontSize : kDefaultSize) / kFontScreenW;
  return m_objGlyphs.SetFont(static_cast<UInt32>(std::min(u64Size, kMaxPixelSize)),
                             bOwn ? i_item.m_u32TextColour : kDefaultForeground,
                             bOwn ? i_item.m_u32Background : kDefaultBackground);
}

std::optional<T_Layout> CTextDrawer::LayOutItem(const T_DispRecord& i_item,
                                                const T_Canvas& i_canvas, ETold i_eTold) {
  if (i_item.m_u32Position >= kPositionCodes || !SetItemFont(i_item, i_canvas.m_u32W)) return {};
  return LayOut(i_item, m_objGlyphs.Cell(), i_canvas, i_eTold);
}

std::optional<T_Rect> CTextDrawer::Measure(const T_DispRecord& i_item, const T_Canvas& i_canvas,
                                           ETold i_eTold) {
  const std::optional<T_Layout> layout = LayOutItem(i_item, i_canvas, i_eTold);
  if (!layout) return {};
  return layout->Bounds();
}

// A cell without a glyph leaves what is there, so that comes along.
Bool CTextDrawer::DrawLine(const char* i_pText, const T_Rect& i_line, const T_Canvas& i_canvas,
                           const T_Rect& i_part) {
  if (i_part == i_line)
    return m_objGlyphs.DrawString(i_pText, i_canvas, i_line.m_u32Y, i_line.m_u32X);
  m_vecLine.resize(size_t{i_line.m_u32W} * i_line.m_u32H);
  const T_Canvas line{m_vecLine.data(), i_line.m_u32W, i_line.m_u32H};
  const T_Rect part{i_part.m_u32X - i_line.m_u32X, i_part.m_u32Y - i_line.m_u32Y, i_part.m_u32W,
                    i_part.m_u32H};
  CopyRect(i_canvas, i_part, line, part);
  const Bool bDrawn = m_objGlyphs.DrawString(i_pText, line, 0, 0);
  CopyRect(line, part, i_canvas, i_part);
  return bDrawn;
}

Bool CTextDrawer::DrawOsdInfo(const T_DispRecord& i_item, EDrawMode i_eMode,
                              const T_Canvas& i_canvas, const T_Rect& i_clip) {
  const std::optional<T_Layout> layout = LayOutItem(i_item, i_canvas, kToldNothing);
  if (!layout) return false;
  Bool bDrawn = true;
  for (UInt32 line = 0; line < layout->m_u32Lines; ++line) {
    const T_Rect rect = layout->LineRect(line);
    const T_Rect part = Intersect(rect, i_clip);
    if (part.IsEmpty()) continue;
    if (i_eMode == kModeErase)
      ClearRect(i_canvas, part);
    else if (!DrawLine(i_item.m_aText[line], rect, i_canvas, part))
      bDrawn = false;
  }
  return bDrawn;
}
