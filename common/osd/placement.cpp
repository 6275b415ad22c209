#include "common/osd/placement.h"

#include <cstring>

#include "framework/log.h"

namespace {

enum EPlace { kNear, kMiddle, kFar };

struct T_Place {
  EPlace m_eAcross;
  EPlace m_eDown;
};

// By position code.
constexpr T_Place kPlaces[] = {
    {kMiddle, kMiddle},                                   // centre
    {kNear, kNear},     {kMiddle, kNear}, {kFar, kNear},  // top
    {kNear, kFar},      {kMiddle, kFar},  {kFar, kFar},   // bottom
    {kNear, kMiddle},   {kFar, kMiddle},                  // middle rows at the sides
};
static_assert(sizeof(kPlaces) / sizeof(kPlaces[0]) == kPositionCodes);

constexpr UInt64 kGridW = 16000;
constexpr UInt64 kGridH = 9000;

// Negative when the block is longer than the canvas.
SInt64 Along(EPlace i_ePlace, SInt64 i_s64Canvas, SInt64 i_s64Margin, SInt64 i_s64Block) {
  if (i_ePlace == kNear) return i_s64Margin;
  if (i_ePlace == kFar) return i_s64Canvas - i_s64Margin - i_s64Block;
  return (i_s64Canvas - i_s64Block) >> 1;
}

UInt32 MeasureLines(const T_DispRecord& i_item, T_Layout& o_layout) {
  UInt32 u32Longest = 0;
  o_layout.m_u32Lines = i_item.m_u16Line;
  for (UInt32 line = 0; line < o_layout.m_u32Lines; ++line) {
    o_layout.m_aLength[line] = static_cast<UInt32>(std::strlen(i_item.m_aText[line]));
    u32Longest = std::max(u32Longest, o_layout.m_aLength[line]);
  }
  return u32Longest;
}

// Compared as unsigned: what is left of or above the canvas counts as too far, too.
void PullBack(SInt64 i_s64X, SInt64 i_s64Y, const T_Canvas& i_canvas, ETold i_eTold,
              T_Layout& io_layout) {
  io_layout.m_u32X = static_cast<UInt32>(i_s64X);
  io_layout.m_u32Y = static_cast<UInt32>(i_s64Y);
  if (static_cast<UInt64>(i_s64X) >= i_canvas.m_u32W) {
    if (i_eTold != kToldNothing)
      LOG_ERROR("DrawOsdInfo wb=%u >= maxW=%u err, set wb=0", io_layout.m_u32X, i_canvas.m_u32W);
    io_layout.m_u32X = 0;
  }
  if (static_cast<UInt64>(i_s64Y) >= i_canvas.m_u32H) {
    if (i_eTold != kToldNothing)
      LOG_ERROR("DrawOsdInfo hb=%u >= maxH=%u err, set hb=0", io_layout.m_u32Y, i_canvas.m_u32H);
    io_layout.m_u32Y = 0;
  }
}

Bool FitsAcross(const T_Layout& i_layout, UInt32 i_u32Line, const char* i_pText,
                const T_Canvas& i_canvas, ETold i_eTold) {
  const UInt32 u32Length = i_layout.m_aLength[i_u32Line];
  const UInt32 u32CellW = i_layout.m_stCell.m_u32W;
  if (i_layout.m_u32X + UInt64{u32CellW} * u32Length <= i_canvas.m_u32W) return true;
  if (i_eTold == kToldDraw)
    LOG_ERROR("font<w=%d>,wb<%d>,maxW<%d>,disp len<%d><%s> to long", u32CellW, i_layout.m_u32X,
              i_canvas.m_u32W, u32Length, i_pText);
  if (i_eTold == kToldErase)
    LOG_ERROR("font<w=%d>,wb<%d>,maxW<%d>,cancel len<%d><%s> to long", u32CellW, i_layout.m_u32X,
              i_canvas.m_u32W, u32Length, i_pText);
  return false;
}

Bool FitsDown(const T_Layout& i_layout, UInt32 i_u32Line, const char* i_pText,
              const T_Canvas& i_canvas, ETold i_eTold) {
  const UInt32 u32Length = i_layout.m_aLength[i_u32Line];
  const UInt32 u32CellH = i_layout.m_stCell.m_u32H;
  if (i_layout.m_u32Y + UInt64{u32CellH} * (i_u32Line + 1) <= i_canvas.m_u32H) return true;
  if (i_eTold == kToldDraw)
    LOG_ERROR("font<h=%d>,hb<%d>,maxH<%d>,disp len<%d><%s> to high", u32CellH, i_layout.m_u32Y,
              i_canvas.m_u32H, u32Length, i_pText);
  if (i_eTold == kToldErase)
    LOG_ERROR("font<h=%d>,hb<%d>,maxH<%d>,cancel len<%d><%s> to high", u32CellH, i_layout.m_u32Y,
              i_canvas.m_u32H, u32Length, i_pText);
  return false;
}

}  // namespace

SInt64 AcrossGrid(UInt32 i_u32Offset, const T_Canvas& i_canvas) {
  return static_cast<SInt64>(UInt64{i_u32Offset} * i_canvas.m_u32W / kGridW);
}

SInt64 DownGrid(UInt32 i_u32Offset, const T_Canvas& i_canvas) {
  return static_cast<SInt64>(UInt64{i_u32Offset} * i_canvas.m_u32H / kGridH);
}

T_Rect T_Layout::Bounds() const {
  T_Rect bounds;
  for (UInt32 line = 0; line < m_u32Lines; ++line) bounds = Union(bounds, LineRect(line));
  return bounds;
}

T_Layout LayOut(const T_DispRecord& i_item, const T_Cell& i_cell, const T_Canvas& i_canvas,
                ETold i_eTold) {
  T_Layout layout;
  layout.m_stCell = i_cell;
  const SInt64 s64BlockW = SInt64{i_cell.m_u32W} * MeasureLines(i_item, layout);
  const SInt64 s64BlockH = SInt64{i_cell.m_u32H} * layout.m_u32Lines;
  const T_Place& place = kPlaces[i_item.m_u32Position];
  PullBack(Along(place.m_eAcross, i_canvas.m_u32W, AcrossGrid(i_item.m_u32X, i_canvas), s64BlockW),
           Along(place.m_eDown, i_canvas.m_u32H, DownGrid(i_item.m_u32Y, i_canvas), s64BlockH),
           i_canvas, i_eTold, layout);
  for (UInt32 line = 0; line < layout.m_u32Lines; ++line) {
    const char* pText = i_item.m_aText[line];
    if (!FitsAcross(layout, line, pText, i_canvas, i_eTold)) {
      // Cleared, and told so when it is too high as well.
      layout.m_aLength[line] = 0;
      pText = "";
    }
    if (!FitsDown(layout, line, pText, i_canvas, i_eTold)) layout.m_aLength[line] = 0;
  }
  return layout;
}
