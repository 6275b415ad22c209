#include "common/osd/glyphs.h"

#include <ft2build.h>
#include FT_FREETYPE_H

#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "common/osd/font_file.h"
#include "framework/console.h"
#include "platform/platform.h"

namespace {

constexpr const char* kFontFile = "/usr/share/fonts/monos.ttf";
// A pixel of a glyph that is at least this grey is foreground: cells have hard edges.
constexpr UInt32 kThreshold = 128;
constexpr UInt32 kWord = T_MaskWords::kPixels;

// These lines go to standard output, not to the log. "falied", "s32Err" and "picel" are on purpose:
// whoever looks for them knows them like that.
void Print(const char* i_pText) { PrintAtOnce(STDOUT_FILENO, i_pText); }

UInt32 WholePixels(FT_Pos i_26Dot6) {
  return static_cast<UInt32>(std::max<FT_Pos>(i_26Dot6 >> 6, 0));
}

// Sets the bits of the foreground pixels of one bitmap row that starts at cell column i_u32Left.
// io_pMask is the row's first word, i_u32Step words before its next.
void MaskRow(const UInt8* i_pGrey, UInt32 i_u32Count, UInt32 i_u32Left, UInt32 i_u32Step,
             UInt32* io_pMask) {
  for (UInt32 column = 0; column < i_u32Count; ++column) {
    if (i_pGrey[column] < kThreshold) continue;
    const UInt32 u32X = i_u32Left + column;
    io_pMask[size_t{u32X / kWord} * i_u32Step] |= 1U << u32X % kWord;
  }
}

struct T_Closer {
  void operator()(FT_LibraryRec_* i_pLibrary) const { FT_Done_FreeType(i_pLibrary); }
  void operator()(FT_FaceRec_* i_pFace) const { FT_Done_Face(i_pFace); }
};

// A glyph that passes the cell's right edge or bottom is cut off; one that begins left of or above
// the cell is moved into it.
void FillMask(const T_FontSize& i_size, const FT_GlyphSlotRec& i_glyph, UInt32* io_pMask) {
  const T_Cell& cell = i_size.m_stCell;
  const FT_Bitmap& bitmap = i_glyph.bitmap;
  const UInt32 u32Left = static_cast<UInt32>(std::max(i_glyph.bitmap_left, 0));
  const UInt32 u32Top = static_cast<UInt32>(std::max(i_size.m_s32Ascender - i_glyph.bitmap_top, 0));
  const UInt32 u32Columns = std::min(bitmap.width, cell.m_u32W - std::min(u32Left, cell.m_u32W));
  const UInt32 u32Rows = std::min(bitmap.rows, cell.m_u32H - std::min(u32Top, cell.m_u32H));
  for (UInt32 row = 0; row < u32Rows; ++row)
    MaskRow(bitmap.buffer + static_cast<std::ptrdiff_t>(row) * bitmap.pitch, u32Columns, u32Left,
            cell.m_u32H, io_pMask + u32Top + row);
}

}  // namespace

// Destroyed from the last member up: the face, its library, and then the file that it reads.
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
  m_stLine.m_u64Number = 0;
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

std::optional<T_Cell> CGlyphs::SetFont(UInt32 i_u32Size) {
  if (m_pSize == nullptr || m_pSize->m_u32Size != i_u32Size || m_bGlyphFailed) {
    m_bGlyphFailed = false;
    m_stLine.m_u64Number = 0;
    if (!HaveFont() || !HaveSize(i_u32Size)) Release();
  }
  if (m_pSize == nullptr) return std::nullopt;
  return m_pSize->m_stCell;
}

std::optional<const UInt32*> CGlyphs::RenderMask(UInt8 i_u8Char, const char* i_pText) {
  if (!SetFaceSize(m_pSize->m_u32Size)) return std::nullopt;
  FT_Face const pFace = m_pFont->m_pFace.get();
  // Of a file that is being written to, half a glyph may have come without an error.
  if (FT_Load_Glyph(pFace, FT_Get_Char_Index(pFace, i_u8Char), FT_LOAD_DEFAULT) != 0 ||
      !m_pFont->m_objFile.IsUnchanged()) {
    Print("load char error!");
    return std::nullopt;
  }
  if (FT_Render_Glyph(pFace->glyph, FT_RENDER_MODE_NORMAL) != 0) {
    Print("render char failed!");
    return std::nullopt;
  }
  if (pFace->glyph->bitmap.pixel_mode != FT_PIXEL_MODE_GRAY) {
    char szText[64];
    std::snprintf(szText, sizeof(szText), "got wrong picel mode, not match, it is 0x%x\n",
                  pFace->glyph->bitmap.pixel_mode);
    Print(szText);
    return nullptr;
  }
  UInt32* const pMask = m_objSizes.AddMask(i_u8Char, i_pText);
  FillMask(*m_pSize, *pFace->glyph, pMask);
  return pMask;
}

const T_CellLine& CGlyphs::Cells(const char* i_pText) {
  T_CellLine& line = m_stLine;
  if (line.m_u64Number != 0 && std::strcmp(m_szText, i_pText) == 0) return line;
  line.m_u64Number = 0;
  line.m_u32Count = 0;
  // What is left of a font that was lost would only draw half of every text.
  if (m_pSize == nullptr || m_pFont == nullptr) return line;
  line.m_stCell = m_pSize->m_stCell;
  Bool bWhole = true;
  for (UInt32& count = line.m_u32Count; count < T_CellLine::kMaxCells; ++count) {
    const auto u8Char = static_cast<UInt8>(i_pText[count]);
    m_szText[count] = i_pText[count];
    if (u8Char == 0) break;
    line.m_apMask[count] = m_pSize->m_apMask[u8Char].get();
    if (line.m_apMask[count] != nullptr) continue;
    const std::optional<const UInt32*> mask = RenderMask(u8Char, i_pText);
    if (!mask) {
      m_bGlyphFailed = true;
      return line;
    }
    line.m_apMask[count] = *mask;
    bWhole = bWhole && *mask != nullptr;
  }
  m_szText[line.m_u32Count] = 0;
  if (bWhole) line.m_u64Number = ++m_u64Lines;
  return line;
}
