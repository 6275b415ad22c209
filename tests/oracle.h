// What an item must look like: a second, slow and plain implementation, pixel by pixel with
// FreeType, that shares nothing with the renderer but the item's record.
#pragma once

#include <ft2build.h>

#include <cstdlib>
#include FT_FREETYPE_H

#include "common/osd/disp_record.h"
#include "tests/layer_picture.h"

enum EPlace { kNear, kMiddle, kFar };

inline SInt64 StartOf(EPlace i_ePlace, SInt64 i_s64Side, SInt64 i_s64Length, SInt64 i_s64Margin) {
  SInt64 s64Start = i_s64Margin;
  if (i_ePlace == kMiddle) s64Start = (i_s64Side - i_s64Length) >> 1;
  if (i_ePlace == kFar) s64Start = i_s64Side - i_s64Margin - i_s64Length;
  return s64Start < 0 || s64Start >= i_s64Side ? 0 : s64Start;
}

// Of the cell of the glyph that i_face has loaded.
inline bool IsInk(const FT_FaceRec& i_face, SInt64 i_s64Column, SInt64 i_s64Row) {
  const FT_GlyphSlotRec& glyph = *i_face.glyph;
  const SInt64 s64Ascender = i_face.size->metrics.ascender >> 6;
  const SInt64 column = i_s64Column - std::max(glyph.bitmap_left, 0);
  const SInt64 row = i_s64Row - std::max<SInt64>(s64Ascender - glyph.bitmap_top, 0);
  return column >= 0 && column < glyph.bitmap.width && row >= 0 && row < glyph.bitmap.rows &&
         glyph.bitmap.buffer[row * glyph.bitmap.pitch + column] >= 128;
}

inline void DrawItem(const T_DispRecord& i_item, const std::string& i_font,
                     T_Picture* io_pPicture) {
  constexpr EPlace kX[] = {kMiddle, kNear, kMiddle, kFar, kNear, kMiddle, kFar, kNear, kFar};
  constexpr EPlace kY[] = {kMiddle, kNear, kNear, kNear, kFar, kFar, kFar, kMiddle, kMiddle};
  const SInt64 w = io_pPicture->m_u32W;
  const SInt64 h = io_pPicture->m_u32H;
  const bool bOwn = i_item.m_u16FontSize != 0;
  const UInt32 u32Colour = bOwn ? i_item.m_u32TextColour : 0xFFFFFFFF;
  const UInt32 u32Ground = bOwn ? i_item.m_u32Background : 0x3F000000;
  FT_Library library;
  FT_Face face;
  if (FT_Init_FreeType(&library) != 0 || FT_New_Face(library, i_font.c_str(), 0, &face) != 0 ||
      FT_Set_Pixel_Sizes(face, 0, UInt32(w * (bOwn ? i_item.m_u16FontSize : 32) / 3840)) != 0)
    std::abort();
  const FT_Size_Metrics& metrics = face->size->metrics;
  const SInt64 cw = metrics.max_advance >> 6;
  const SInt64 lh = (metrics.ascender >> 6) - (metrics.descender >> 6);
  const std::vector<std::string> lines(i_item.m_aText, i_item.m_aText + i_item.m_u16Line);
  SInt64 longest = 0;
  for (const std::string& line : lines) longest = std::max(longest, std::ssize(line));
  const SInt64 left = StartOf(kX[i_item.m_u32Position], w, cw * longest, i_item.m_u32X * w / 16000);
  SInt64 top =
      StartOf(kY[i_item.m_u32Position], h, lh * i_item.m_u16Line, i_item.m_u32Y * h / 9000);
  for (const std::string& line : lines) {
    const bool bFits = left + cw * std::ssize(line) <= w && top + lh <= h;
    for (size_t cell = 0; bFits && cell < line.size(); ++cell) {
      const FT_UInt index = FT_Get_Char_Index(face, static_cast<UInt8>(line[cell]));
      if (FT_Load_Glyph(face, index, FT_LOAD_RENDER) != 0) std::abort();
      for (SInt64 i = 0; i < cw * lh; ++i) {
        const SInt64 at = (top + i / cw) * w + left + SInt64(cell) * cw + i % cw;
        io_pPicture->m_pixels[size_t(at)] = IsInk(*face, i % cw, i / cw) ? u32Colour : u32Ground;
      }
    }
    top += lh;
  }
  FT_Done_FreeType(library);
}
