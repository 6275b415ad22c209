#include "common/osd/glyphs.h"

#include <ft2build.h>
#include FT_FREETYPE_H

#include <unistd.h>

#include <cstdio>

#include "common/osd/font_file.h"
#include "framework/console.h"
#include "platform/platform.h"

namespace {

constexpr const char* kFontFile = "/usr/share/fonts/monos.ttf";
// A grey value from here on is foreground: cells have hard edges.
constexpr UInt32 kThreshold = 128;
constexpr UInt32 kGroup = T_FontSize::kGroup;

// These lines go to standard output, not to the log.
void Print(const char* i_pText) { PrintAtOnce(STDOUT_FILENO, i_pText); }

UInt32 WholePixels(FT_Pos i_26Dot6) {
  return static_cast<UInt32>(std::max<FT_Pos>(i_26Dot6 >> 6, 0));
}

// Sets the bits of the foreground pixels of one bitmap row that starts at cell column i_u32Left.
void MaskRow(const UInt8* i_pGrey, UInt32 i_u32Count, UInt32 i_u32Left, UInt8* io_pMask) {
  for (UInt32 column = 0; column < i_u32Count; ++column) {
    if (i_pGrey[column] < kThreshold) continue;
    const UInt32 u32X = i_u32Left + column;
    io_pMask[u32X / kGroup] = static_cast<UInt8>(io_pMask[u32X / kGroup] | 1U << u32X % kGroup);
  }
}

// Cells of one line that are painted in whole groups.
struct T_Cells {
  const UInt8* const* m_ppMask;
  UInt32 m_u32Count;
  UInt32 m_u32CellW;
  UInt32 m_u32RowBytes;
  const T_FourPixels* m_pPaint;
};

// One row of pixels through all cells. A group is one load and one store of 16 bytes, whatever its
// bits are: no branch, and no arithmetic for each pixel. kRowBytes, unless 0, is m_u32RowBytes made
// known to the compiler.
template <UInt32 kRowBytes>
void PaintGroups(const T_Cells& i_cells, size_t i_rowOffset, UInt32* o_pPixels) {
  const T_Cells cells = i_cells;
  const UInt32 u32RowBytes = kRowBytes != 0 ? kRowBytes : cells.m_u32RowBytes;
  for (UInt32 cell = 0; cell < cells.m_u32Count; ++cell, o_pPixels += cells.m_u32CellW) {
    const UInt8* const pMask = cells.m_ppMask[cell] + i_rowOffset;
    for (size_t group = 0; group < u32RowBytes; ++group)
      std::memcpy(o_pPixels + group * kGroup, &cells.m_pPaint[pMask[group]], sizeof(T_FourPixels));
  }
}

using T_Painter = void (*)(const T_Cells&, size_t, UInt32*);
// By row bytes; wider cells take the first.
constexpr T_Painter kPainters[] = {PaintGroups<0>, PaintGroups<1>, PaintGroups<2>,
                                   PaintGroups<3>, PaintGroups<4>, PaintGroups<5>,
                                   PaintGroups<6>, PaintGroups<7>, PaintGroups<8>};

void PaintPixels(const UInt8* i_pMask, UInt32 i_u32Pixels, const T_FourPixels* i_pPaint,
                 UInt32* o_pPixels) {
  for (UInt32 pixel = 0; pixel < i_u32Pixels; ++pixel)
    o_pPixels[pixel] = i_pPaint[i_pMask[pixel / kGroup]].m_aPixel[pixel % kGroup];
}

struct T_Closer {
  void operator()(FT_LibraryRec_* i_pLibrary) const { FT_Done_FreeType(i_pLibrary); }
  void operator()(FT_FaceRec_* i_pFace) const { FT_Done_Face(i_pFace); }
};

// What passes the cell's right edge or bottom is cut off; what lies left of or above the cell is
// moved into it.
void FillMask(const T_FontSize& i_size, const FT_GlyphSlotRec& i_glyph, UInt8* io_pMask) {
  const T_Cell& cell = i_size.m_stCell;
  const FT_Bitmap& bitmap = i_glyph.bitmap;
  const UInt32 u32Left = static_cast<UInt32>(std::max(i_glyph.bitmap_left, 0));
  const UInt32 u32Top = static_cast<UInt32>(std::max(i_size.m_s32Ascender - i_glyph.bitmap_top, 0));
  const UInt32 u32Columns = std::min(bitmap.width, cell.m_u32W - std::min(u32Left, cell.m_u32W));
  const UInt32 u32Rows = std::min(bitmap.rows, cell.m_u32H - std::min(u32Top, cell.m_u32H));
  for (UInt32 row = 0; row < u32Rows; ++row)
    MaskRow(bitmap.buffer + static_cast<std::ptrdiff_t>(row) * bitmap.pitch, u32Columns, u32Left,
            io_pMask + size_t{u32Top + row} * i_size.RowBytes());
}

}  // namespace

// The face goes first, then its library, then the file that it reads.
struct CGlyphs::T_Font {
  static constexpr UInt32 kNoSize = ~0U;

  CFontFile m_objFile{SystemPath(kFontFile)};
  std::unique_ptr<FT_LibraryRec_, T_Closer> m_pLibrary;
  std::unique_ptr<FT_FaceRec_, T_Closer> m_pFace;
  UInt32 m_u32Size = kNoSize;  // what the face is set to
};

CGlyphs::CGlyphs() = default;

CGlyphs::~CGlyphs() = default;

void CGlyphs::Release() {
  m_pSize = nullptr;
  m_objSizes.Clear();
  m_pFont.reset();
}

Bool CGlyphs::OpenFont() {
  auto pFont = std::make_unique<T_Font>();
  FT_Library pLibrary = nullptr;
  if (FT_Init_FreeType(&pLibrary) != 0) {
    Print("can not init free type library!");
    return false;
  }
  pFont->m_pLibrary.reset(pLibrary);
  FT_Open_Args args{};
  args.flags = FT_OPEN_STREAM;
  args.stream = pFont->m_objFile.Stream();
  FT_Face pFace = nullptr;
  if (FT_Open_Face(pLibrary, &args, 0, &pFace) != 0) {
    Print("create new face falied!");
    return false;
  }
  pFont->m_pFace.reset(pFace);
  m_pFont = std::move(pFont);
  return true;
}

// After a failure no font is open.
Bool CGlyphs::SetFaceSize(UInt32 i_u32Size) {
  if (m_pFont->m_u32Size == i_u32Size) return true;
  if (FT_Set_Pixel_Sizes(m_pFont->m_pFace.get(), 0, i_u32Size) != 0) {
    Print("set font size s32Err!");
    m_pFont.reset();
    return false;
  }
  m_pFont->m_u32Size = i_u32Size;
  return true;
}

// The font that is there now: of another file nothing is kept.
Bool CGlyphs::HaveFont() {
  if (m_pFont != nullptr && m_pFont->m_objFile.IsCurrent()) return true;
  Release();
  return OpenFont();
}

Bool CGlyphs::HaveSize(UInt32 i_u32Size) {
  m_pSize = m_objSizes.Use(i_u32Size);
  if (m_pSize != nullptr) return true;
  if (!SetFaceSize(i_u32Size)) return false;
  const FT_Size_Metrics& metrics = m_pFont->m_pFace->size->metrics;
  const FT_Pos ascender = metrics.ascender >> 6;
  const FT_Pos height = std::max<FT_Pos>(ascender - (metrics.descender >> 6), 0);
  m_pSize = m_objSizes.Add(i_u32Size, static_cast<SInt32>(ascender),
                           {WholePixels(metrics.max_advance), static_cast<UInt32>(height)});
  return true;
}

void CGlyphs::SetColours(UInt32 i_u32Foreground, UInt32 i_u32Background) {
  m_u32Foreground = i_u32Foreground;
  m_u32Background = i_u32Background;
  for (UInt32 bits = 0; bits < m_aPaint.size(); ++bits)
    for (UInt32 pixel = 0; pixel < kGroup; ++pixel)
      m_aPaint[bits].m_aPixel[pixel] = bits >> pixel & 1 ? i_u32Foreground : i_u32Background;
}

Bool CGlyphs::SetFont(UInt32 i_u32Size, UInt32 i_u32Foreground, UInt32 i_u32Background) {
  if (i_u32Foreground != m_u32Foreground || i_u32Background != m_u32Background)
    SetColours(i_u32Foreground, i_u32Background);
  if (m_pSize != nullptr && m_pSize->m_u32Size == i_u32Size && !m_bGlyphFailed) return true;
  m_bGlyphFailed = false;
  if (!HaveFont() || !HaveSize(i_u32Size)) Release();
  return m_pSize != nullptr;
}

T_Cell CGlyphs::Cell() const { return m_pSize != nullptr ? m_pSize->m_stCell : T_Cell{}; }

CGlyphs::ECell CGlyphs::FindCell(UInt8 i_u8Char, const char* i_pText, const UInt8** o_ppMask) {
  *o_ppMask = m_pSize->m_apMask[i_u8Char].get();
  return *o_ppMask != nullptr ? kCellReady : RenderCell(i_u8Char, i_pText, o_ppMask);
}

CGlyphs::ECell CGlyphs::RenderCell(UInt8 i_u8Char, const char* i_pText, const UInt8** o_ppMask) {
  if (!SetFaceSize(m_pSize->m_u32Size)) return kCellFailed;
  FT_Face const pFace = m_pFont->m_pFace.get();
  // Of a file that is being written to, half a glyph may have come without an error.
  if (FT_Load_Glyph(pFace, FT_Get_Char_Index(pFace, i_u8Char), FT_LOAD_DEFAULT) != 0 ||
      !m_pFont->m_objFile.IsUnchanged()) {
    Print("load char error!");
    return kCellFailed;
  }
  if (FT_Render_Glyph(pFace->glyph, FT_RENDER_MODE_NORMAL) != 0) {
    Print("render char failed!");
    return kCellFailed;
  }
  if (pFace->glyph->bitmap.pixel_mode != FT_PIXEL_MODE_GRAY) {
    char szText[64];
    std::snprintf(szText, sizeof(szText), "got wrong picel mode, not match, it is 0x%x\n",
                  pFace->glyph->bitmap.pixel_mode);
    Print(szText);
    return kCellUntouched;
  }
  UInt8* const pMask = m_objSizes.AddMask(i_u8Char, i_pText);
  FillMask(*m_pSize, *pFace->glyph, pMask);
  *o_ppMask = pMask;
  return kCellReady;
}

Bool CGlyphs::DrawString(const char* i_pText, const T_Canvas& i_canvas, UInt32 i_u32Top,
                         UInt32 i_u32Left) {
  if (m_pSize == nullptr) return *i_pText == '\0';
  const UInt32 u32CellW = m_pSize->m_stCell.m_u32W;
  T_Run run;
  run.m_u32Left = i_u32Left;
  ECell eCell = kCellReady;
  for (const char* pChar = i_pText; *pChar != '\0' && eCell != kCellFailed; ++pChar) {
    eCell = FindCell(static_cast<UInt8>(*pChar), i_pText, &run.m_apMask[run.m_u32Count]);
    if (eCell == kCellReady && ++run.m_u32Count < T_Run::kMaxCells) continue;
    DrawRun(run, i_canvas, i_u32Top);
    run.m_u32Left += u32CellW * (run.m_u32Count + (eCell == kCellUntouched ? 1 : 0));
    run.m_u32Count = 0;
  }
  DrawRun(run, i_canvas, i_u32Top);
  if (eCell != kCellFailed) return true;
  m_bGlyphFailed = true;
  // The font itself is gone; what is left of it would only draw half of every text.
  if (m_pFont == nullptr) Release();
  return false;
}

// Row by row over all cells, so that the canvas is written in the order of its addresses.
void CGlyphs::DrawRun(const T_Run& i_run, const T_Canvas& i_canvas, UInt32 i_u32Top) const {
  const T_FontSize& size = *m_pSize;
  const UInt32 u32CellW = size.m_stCell.m_u32W;
  if (i_run.m_u32Left >= i_canvas.m_u32W || i_u32Top >= i_canvas.m_u32H || u32CellW == 0) return;
  const UInt32 u32Rows = std::min(size.m_stCell.m_u32H, i_canvas.m_u32H - i_u32Top);
  const UInt32 u32Width = std::min(u32CellW * i_run.m_u32Count, i_canvas.m_u32W - i_run.m_u32Left);
  const UInt32 u32RowBytes = size.RowBytes();
  // Whole groups may run over into the next cell, which is written later, but not beyond the run.
  const UInt32 u32Span = u32RowBytes * kGroup;
  const UInt32 u32Whole = u32Width < u32Span ? 0 : (u32Width - u32Span) / u32CellW + 1;
  const T_Cells cells{i_run.m_apMask, u32Whole, u32CellW, u32RowBytes, m_aPaint.data()};
  const T_Painter pPaint = kPainters[u32RowBytes < std::size(kPainters) ? u32RowBytes : 0];
  for (UInt32 row = 0; row < u32Rows; ++row) {
    UInt32* const pPixels = i_canvas.Row(i_u32Top + row) + i_run.m_u32Left;
    const size_t offset = size_t{row} * u32RowBytes;
    pPaint(cells, offset, pPixels);
    for (UInt32 cell = u32Whole; cell * u32CellW < u32Width; ++cell)
      PaintPixels(i_run.m_apMask[cell] + offset, std::min(u32CellW, u32Width - cell * u32CellW),
                  m_aPaint.data(), pPixels + size_t{cell} * u32CellW);
  }
}
