// The glyph drawer: a monospaced font, and character cells written with two colours. One instance
// lives in the renderer and is used under the renderer's mutex. Cells are rendered once for each
// character and size and kept as masks, so that a text that was drawn before needs no font.
#pragma once

#include <array>
#include <memory>

#include "common/osd/canvas.h"
#include "common/osd/font_sizes.h"

struct alignas(16) T_FourPixels {
  UInt32 m_aPixel[4];
};

class CGlyphs {
 public:
  CGlyphs();
  ~CGlyphs();
  CGlyphs(const CGlyphs&) = delete;
  CGlyphs& operator=(const CGlyphs&) = delete;

  // Sets the pixel size and the colours (ARGB8888) for what is drawn from now on. A change of size
  // looks whether the font's file is still the same, and starts anew with another. False when the
  // font cannot be had in that size, with the reason on standard output: everything is released
  // then, and the next call tries again, whatever its size.
  Bool SetFont(UInt32 i_u32Size, UInt32 i_u32Foreground, UInt32 i_u32Background);

  // Cell width and line height in px of the size that is set; zeros when none is.
  T_Cell Cell() const;

  // Draws i_pText (its bytes are the character codes) into consecutive cells; the first one's top
  // left corner is at column i_u32Left and row i_u32Top. What passes the canvas's right or bottom
  // edge is cut off. False when a glyph could not be had: the cells before it are drawn.
  Bool DrawString(const char* i_pText, const T_Canvas& i_canvas, UInt32 i_u32Top, UInt32 i_u32Left);

 private:
  struct T_Font;
  // Consecutive cells of one line.
  struct T_Run {
    static constexpr UInt32 kMaxCells = 64;
    UInt32 m_u32Left = 0;
    UInt32 m_u32Count = 0;
    const UInt8* m_apMask[kMaxCells];
  };
  enum ECell { kCellReady, kCellUntouched, kCellFailed };

  Bool OpenFont();
  Bool SetFaceSize(UInt32 i_u32Size);
  Bool HaveFont();
  Bool HaveSize(UInt32 i_u32Size);
  void Release();
  void SetColours(UInt32 i_u32Foreground, UInt32 i_u32Background);
  ECell FindCell(UInt8 i_u8Char, const char* i_pText, const UInt8** o_ppMask);
  ECell RenderCell(UInt8 i_u8Char, const char* i_pText, const UInt8** o_ppMask);
  void DrawRun(const T_Run& i_run, const T_Canvas& i_canvas, UInt32 i_u32Top) const;

  std::unique_ptr<T_Font> m_pFont;
  CFontSizes m_objSizes;
  // The size that is set, the one in use; null when none is.
  T_FontSize* m_pSize = nullptr;
  // A glyph could not be had: the next request looks at the file, also when its size is the same.
  Bool m_bGlyphFailed = false;
  UInt32 m_u32Foreground = 0;
  UInt32 m_u32Background = 0;
  // By four mask bits, in the colours that are set; bit 0 is the leftmost pixel.
  std::array<T_FourPixels, 16> m_aPaint{};
};
