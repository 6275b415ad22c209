#include <ft2build.h>
#include FT_FREETYPE_H

#include <algorithm>
#include <cmath>
#include <cstring>
#include <fstream>

#include "tests/osd/scene.h"

namespace {

void ReadLayer(char i_digit, std::streamoff i_offset, void* o_pBytes, size_t i_size) {
  std::ifstream file(SystemPath("/dev/fb") + i_digit, std::ios::binary);
  file.seekg(i_offset).read(static_cast<char*>(o_pBytes), static_cast<std::streamsize>(i_size));
}

SInt64 Halved(SInt64 i_s64) {
  return static_cast<SInt64>(std::floor(static_cast<double>(i_s64) / 2));
}

}  // namespace

T_LayerHeader Header(char i_digit) {
  T_LayerHeader header{};
  ReadLayer(i_digit, 0, &header, sizeof(header));
  return header;
}

Bool COracle::IsShown(char i_digit) const {
  std::vector<UInt32> pixels(m_pixels.size());
  ReadLayer(i_digit, T_LayerHeader::kPixelOffset, pixels.data(), pixels.size() * 4);
  return Header(i_digit).m_u32Width == m_s64W && Header(i_digit).m_u32Height == m_s64H &&
         pixels == m_pixels;
}

COracle& COracle::Draw(const T_DispRecord& i_item) {
  const SInt64 font = i_item.m_u16FontSize;
  FT_Library library;
  FT_Face face;
  if (FT_Init_FreeType(&library) != 0 ||
      FT_New_Face(library, SystemPath("/usr/share/fonts/monos.ttf").c_str(), 0, &face) != 0 ||
      FT_Set_Pixel_Sizes(face, 0, static_cast<FT_UInt>(m_s64W * (font != 0 ? font : 32) / 3840)))
    std::abort();
  const SInt64 ascender = face->size->metrics.ascender >> 6;
  const SInt64 lh = ascender - (face->size->metrics.descender >> 6);
  const SInt64 cw = face->size->metrics.max_advance >> 6;
  size_t longest = 0;
  for (UInt32 i = 0; i < i_item.m_u16Line; ++i)
    longest = std::max(longest, strlen(i_item.m_aText[i]));
  const SInt64 w = cw * static_cast<SInt64>(longest);
  const SInt64 h = lh * i_item.m_u16Line;
  const SInt64 mx = i_item.m_u32X * m_s64W / 16000;
  const SInt64 my = i_item.m_u32Y * m_s64H / 9000;
  const SInt64 midX = Halved(m_s64W - w), midY = Halved(m_s64H - h);
  const SInt64 farX = m_s64W - mx - w, farY = m_s64H - my - h;
  const SInt64 aX[] = {midX, mx, midX, farX, mx, midX, farX, mx, farX};
  const SInt64 aY[] = {midY, my, my, my, farY, farY, farY, midY, midY};
  const SInt64 x = aX[i_item.m_u32Position], y = aY[i_item.m_u32Position];
  const SInt64 left = x < 0 || x >= m_s64W ? 0 : x;
  SInt64 top = y < 0 || y >= m_s64H ? 0 : y;
  for (UInt32 line = 0; line < i_item.m_u16Line; ++line, top += lh) {
    const std::string text = i_item.m_aText[line];
    if (left + cw * static_cast<SInt64>(text.size()) > m_s64W || top + lh > m_s64H) continue;
    SInt64 cell = left;
    for (const char code : text) {
      FT_Load_Glyph(face, FT_Get_Char_Index(face, static_cast<UInt8>(code)), FT_LOAD_DEFAULT);
      FT_Render_Glyph(face->glyph, FT_RENDER_MODE_NORMAL);
      const FT_Bitmap& bitmap = face->glyph->bitmap;
      for (SInt64 i = 0; i < cw * lh; ++i) {
        const SInt64 column = i % cw - std::max(face->glyph->bitmap_left, 0);
        const SInt64 row = i / cw - std::max<SInt64>(ascender - face->glyph->bitmap_top, 0);
        const Bool bInk = column >= 0 && column < bitmap.width && row >= 0 && row < bitmap.rows &&
                          bitmap.buffer[row * bitmap.pitch + column] >= 128;
        m_pixels[static_cast<size_t>((top + i / cw) * m_s64W + cell + i % cw)] =
            bInk ? (font != 0 ? i_item.m_u32TextColour : 0xFFFFFFFF)
                 : (font != 0 ? i_item.m_u32Background : 0x3F000000);
      }
      cell += cw;
    }
  }
  FT_Done_FreeType(library);
  return *this;
}
