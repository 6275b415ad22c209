#include "common/osd/cells.h"

namespace {

constexpr UInt32 kGroup = T_Cell::kGroup;

// One row of pixels through some whole cells.
struct T_RowOfCells {
  const UInt8* const* m_ppMask;
  UInt32 m_u32Count;
  UInt32 m_u32CellW;
  UInt32 m_u32RowBytes;
  const T_FourPixels* m_pPaint;
};

// A group is one load and one store of 16 bytes, whatever its bits are: no branch, and no
// arithmetic for each pixel. kRowBytes, unless 0, is m_u32RowBytes made known to the compiler.
template <UInt32 kRowBytes>
void PaintGroups(const T_RowOfCells& i_cells, size_t i_rowOffset, UInt32* o_pPixels) {
  const T_RowOfCells cells = i_cells;
  const UInt32 u32RowBytes = kRowBytes != 0 ? kRowBytes : cells.m_u32RowBytes;
  for (UInt32 cell = 0; cell < cells.m_u32Count; ++cell, o_pPixels += cells.m_u32CellW) {
    const UInt8* const pMask = cells.m_ppMask[cell] + i_rowOffset;
    for (size_t group = 0; group < u32RowBytes; ++group)
      std::memcpy(o_pPixels + group * kGroup, &cells.m_pPaint[pMask[group]], sizeof(T_FourPixels));
  }
}

using T_PaintRow = void (*)(const T_RowOfCells&, size_t, UInt32*);
// By row bytes; wider cells take the first.
constexpr T_PaintRow kPaintRow[] = {PaintGroups<0>, PaintGroups<1>, PaintGroups<2>,
                                    PaintGroups<3>, PaintGroups<4>, PaintGroups<5>,
                                    PaintGroups<6>, PaintGroups<7>, PaintGroups<8>};

// Those columns of a cell's row, in groups as far as they have all of one; o_pPixels is column 0.
void PaintColumns(const UInt8* i_pMask, UInt32 i_u32From, UInt32 i_u32To,
                  const T_FourPixels* i_pPaint, UInt32* o_pPixels) {
  UInt32 x = i_u32From;
  for (; x < i_u32To && x % kGroup != 0; ++x)
    o_pPixels[x] = i_pPaint[i_pMask[x / kGroup]].m_aPixel[x % kGroup];
  for (; x + kGroup <= i_u32To; x += kGroup)
    std::memcpy(o_pPixels + x, &i_pPaint[i_pMask[x / kGroup]], sizeof(T_FourPixels));
  for (; x < i_u32To; ++x) o_pPixels[x] = i_pPaint[i_pMask[x / kGroup]].m_aPixel[x % kGroup];
}

// Cells at i_place that all have masks, as far as they lie in i_part, which is a part of it.
void DrawRun(const UInt8* const* i_ppMask, const T_Cell& i_cell, const T_FourPixels* i_pPaint,
             const T_Canvas& i_canvas, const T_Rect& i_place, const T_Rect& i_part) {
  const UInt32 u32CellW = i_cell.m_u32W;
  const UInt32 u32RowBytes = i_cell.RowBytes();
  const UInt32 u32From = i_part.m_u32X - i_place.m_u32X;
  const UInt32 u32To = u32From + i_part.m_u32W;
  // Whole groups may run over into the next cell, which is written later, but not beyond the part.
  const UInt32 u32Span = u32RowBytes * kGroup;
  const UInt32 u32First = (u32From + u32CellW - 1) / u32CellW;
  const UInt32 u32End = std::max(u32First, u32To < u32Span ? 0 : (u32To - u32Span) / u32CellW + 1);
  const UInt32 u32Left = u32First * u32CellW;
  const T_RowOfCells whole{i_ppMask + u32First, u32End - u32First, u32CellW, u32RowBytes, i_pPaint};
  const T_PaintRow pPaintRow = kPaintRow[u32RowBytes < std::size(kPaintRow) ? u32RowBytes : 0];
  // Row by row over all cells, so that the canvas is written in the order of its addresses.
  for (UInt32 row = 0; row < i_part.m_u32H; ++row) {
    UInt32* const pPixels = i_canvas.Row(i_part.m_u32Y + row) + i_place.m_u32X;
    const size_t offset = size_t{i_part.m_u32Y - i_place.m_u32Y + row} * u32RowBytes;
    if (u32From < u32Left)  // a cell that is cut at its left
      PaintColumns(i_ppMask[u32First - 1] + offset, u32From + u32CellW - u32Left,
                   std::min(u32CellW, u32To + u32CellW - u32Left), i_pPaint,
                   pPixels + u32Left - u32CellW);
    pPaintRow(whole, offset, pPixels + u32Left);
    for (UInt32 cell = u32End; cell * u32CellW < u32To; ++cell)
      PaintColumns(i_ppMask[cell] + offset, 0, std::min(u32CellW, u32To - cell * u32CellW),
                   i_pPaint, pPixels + size_t{cell} * u32CellW);
  }
}

}  // namespace

void CCellPaint::Set(UInt32 i_u32Foreground, UInt32 i_u32Background) {
  if (i_u32Foreground == m_u32Foreground && i_u32Background == m_u32Background) return;
  m_u32Foreground = i_u32Foreground;
  m_u32Background = i_u32Background;
  for (UInt32 bits = 0; bits < m_aGroups.size(); ++bits)
    for (UInt32 pixel = 0; pixel < kGroup; ++pixel)
      m_aGroups[bits].m_aPixel[pixel] = bits >> pixel & 1 ? i_u32Foreground : i_u32Background;
}

void DrawCells(const T_CellLine& i_line, const CCellPaint& i_paint, const T_Canvas& i_canvas,
               const T_Rect& i_place, const T_Rect& i_clip) {
  const T_Cell& cell = i_line.m_stCell;
  for (UInt32 begin = 0, end = 0; begin < i_line.m_u32Count; begin = end + 1) {
    end = begin;
    while (end < i_line.m_u32Count && i_line.m_apMask[end] != nullptr) ++end;
    const T_Rect place{i_place.m_u32X + begin * cell.m_u32W, i_place.m_u32Y,
                       (end - begin) * cell.m_u32W, cell.m_u32H};
    const T_Rect part = Intersect(place, i_clip);
    if (!part.IsEmpty())
      DrawRun(i_line.m_apMask + begin, cell, i_paint.Groups(), i_canvas, place, part);
  }
}
