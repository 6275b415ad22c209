#include "common/osd/placement.h"

#include <cstring>

namespace {

enum class EPlace { kNear, kMiddle, kFar };
using enum EPlace;

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

// Their lengths; the longest of them.
UInt32 MeasureLines(T_Layout& io_layout) {
  UInt32 u32Longest = 0;
  for (UInt32 line = 0; line < io_layout.m_u32Lines; ++line) {
    const auto u32Length = static_cast<UInt32>(std::strlen(io_layout.Text(line)));
    io_layout.m_aLines[line].m_u32Length = u32Length;
    u32Longest = std::max(u32Longest, u32Length);
  }
  return u32Longest;
}

// Compared as unsigned: what is left of or above the canvas counts as too far, too.
UInt32 PullBack(SInt64 i_s64Start, UInt32 i_u32Canvas, std::optional<UInt32>& o_outside) {
  const auto u32Start = static_cast<UInt32>(i_s64Start);
  if (static_cast<UInt64>(i_s64Start) < i_u32Canvas) return u32Start;
  o_outside = u32Start;
  return 0;
}

}  // namespace

SInt64 AcrossGrid(UInt32 i_u32Offset, const T_Canvas& i_canvas) {
  return static_cast<SInt64>(UInt64{i_u32Offset} * i_canvas.m_u32W / kGridW);
}

SInt64 DownGrid(UInt32 i_u32Offset, const T_Canvas& i_canvas) {
  return static_cast<SInt64>(UInt64{i_u32Offset} * i_canvas.m_u32H / kGridH);
}

T_Layout Place(const T_DispRecord& i_item, const T_Cell& i_cell, const T_Canvas& i_canvas) {
  T_Layout layout;
  layout.m_pItem = &i_item;
  layout.m_stCell = i_cell;
  layout.m_u32Lines = i_item.m_u16Line;
  const SInt64 s64BlockW = SInt64{i_cell.m_u32W} * MeasureLines(layout);
  const SInt64 s64BlockH = SInt64{i_cell.m_u32H} * layout.m_u32Lines;
  const T_Place& place = kPlaces[i_item.m_u32Position];
  layout.m_u32X = PullBack(
      Along(place.m_eAcross, i_canvas.m_u32W, AcrossGrid(i_item.m_u32X, i_canvas), s64BlockW),
      i_canvas.m_u32W, layout.m_outsideX);
  layout.m_u32Y =
      PullBack(Along(place.m_eDown, i_canvas.m_u32H, DownGrid(i_item.m_u32Y, i_canvas), s64BlockH),
               i_canvas.m_u32H, layout.m_outsideY);
  for (UInt32 line = 0; line < layout.m_u32Lines; ++line) {
    T_Layout::T_Line& placed = layout.m_aLines[line];
    placed.m_bTooLong =
        layout.m_u32X + UInt64{i_cell.m_u32W} * placed.m_u32Length > i_canvas.m_u32W;
    placed.m_bTooHigh = layout.m_u32Y + UInt64{i_cell.m_u32H} * (line + 1) > i_canvas.m_u32H;
    layout.m_stBounds = Union(layout.m_stBounds, layout.LineRect(line));
  }
  return layout;
}
