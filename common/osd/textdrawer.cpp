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

CTextDrawer::CTextDrawer(T_LayerMap* io_pLayers) : m_pLayers(io_pLayers) {
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

Bool CTextDrawer::DrawOnLayer(const T_DispRecord& i_item, EDrawMode i_eMode, CLayer& io_layer) {
  const T_Canvas canvas = io_layer.Canvas();
  if (!SetItemFont(i_item, canvas.m_u32W)) return false;
  const T_Layout layout = LayOut(i_item, m_objGlyphs.Cell(), canvas, i_eMode);
  Bool bDrawn = true;
  T_Rect touched;
  for (UInt32 line = 0; line < layout.m_u32Lines; ++line) {
    const T_Rect rect = layout.LineRect(line);
    if (rect.IsEmpty()) continue;
    touched = Union(touched, rect);
    if (i_eMode == kModeErase)
      ClearRect(canvas, rect);
    else if (!m_objGlyphs.DrawString(i_item.m_aText[line], canvas, rect.m_u32Y, rect.m_u32X))
      bDrawn = false;
  }
  io_layer.Refresh(touched);
  return bDrawn;
}

Bool CTextDrawer::DrawOsdInfo(const T_DispRecord& i_item, EDrawMode i_eMode) {
  if (i_item.m_u32Position >= kPositionCodes) return false;
  Bool bDrawn = true;
  for (auto& [s32VoDev, layer] : *m_pLayers) {
    if (i_item.m_u16VoSeq != T_DispRecord::kAllOutputs && i_item.m_u16VoSeq != s32VoDev) continue;
    if (!DrawOnLayer(i_item, i_eMode, layer)) bDrawn = false;
  }
  return bDrawn;
}
