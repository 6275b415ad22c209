// The glyphs of a monospaced font, as masks of character cells. A mask is made once for each
// character and size and kept, so that a text that was drawn before needs no font. One object lives
// in the text drawer and is used under the renderer's mutexes.
#pragma once

#include <memory>
#include <optional>

#include "common/osd/cells.h"
#include "common/osd/font_sizes.h"

class CGlyphs {
 public:
  CGlyphs();
  ~CGlyphs();
  CGlyphs(const CGlyphs&) = delete;
  CGlyphs& operator=(const CGlyphs&) = delete;

  // Sets the size of what is asked for from now on, in px, and returns its cell. A change of size,
  // and a glyph that could not be had, make it look whether the font's file is still the same;
  // with another file everything starts anew. None when there is no font that can be read or it
  // cannot be had in that size, with the reason on standard output: everything is released then,
  // and the next call tries again, whatever its size.
  std::optional<T_Cell> SetFont(UInt32 i_u32Size);

  // The cells of i_pText, whose bytes are the character codes, kMaxCells of them at most. Their
  // masks are good until the next call. When a glyph cannot be had, with the reason on standard
  // output, its cell and those behind it are missing. A line has the same number as the one before
  // when it is the same.
  const T_CellLine& Cells(const char* i_pText);

 private:
  struct T_Font;

  Bool OpenFont();
  Bool SetFaceSize(UInt32 i_u32Size);
  Bool HaveFont();
  Bool HaveSize(UInt32 i_u32Size);
  void Release();
  // None when there is no glyph; null when it cannot become a mask.
  std::optional<const UInt32*> RenderMask(UInt8 i_u8Char, const char* i_pText);

  std::unique_ptr<T_Font> m_pFont;
  CFontSizes m_objSizes;
  // The size that is set, the one in use; null when none is.
  T_FontSize* m_pSize = nullptr;
  T_CellLine m_stLine;
  UInt64 m_u64Lines = 0;
  char m_szText[T_CellLine::kMaxCells + 1];  // of m_stLine, when that has a number
  // A glyph could not be had: the next SetFont looks at the file, also when its size is the same.
  Bool m_bGlyphFailed = false;
};
