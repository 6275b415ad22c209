// What the screen must show after a row of requests: a second, slow and plain implementation of the
// display list and of the drawing, pixel by pixel with FreeType.
#pragma once

#include <ft2build.h>

#include <algorithm>
#include <list>
#include <map>
#include FT_FREETYPE_H

#include "tests/system/daemon.h"

class COracle {
 public:
  explicit COracle(const std::string& i_font) {
    EXPECT_EQ(FT_Init_FreeType(&m_pLibrary), 0);
    EXPECT_EQ(FT_New_Face(m_pLibrary, i_font.c_str(), 0, &m_pFace), 0);
  }
  ~COracle() { FT_Done_FreeType(m_pLibrary); }
  COracle(const COracle&) = delete;
  COracle& operator=(const COracle&) = delete;

  // By output number.
  const std::map<SInt32, T_Picture>& Pictures() const { return m_pictures; }

  void Init(SInt32 i_s32VoDev, const T_Picture& i_empty) {
    m_pictures[i_s32VoDev] = i_empty;
    for (const T_Item& item : m_items)
      if (item.m_u16Vout == i_s32VoDev && !item.m_bHidden && item.m_u16Seq >> 8 != 2)
        Draw(item, false);
  }
  void DeInit(SInt32 i_s32VoDev) { m_pictures.erase(i_s32VoDev); }

  void Show(T_Text i_text) {
    if (m_items.size() > 64) return;
    i_text.m_text.resize(i_text.m_u32Flag & 0x10 ? std::min<size_t>(i_text.m_text.size(), 64) : 0);
    std::replace(i_text.m_text.begin(), i_text.m_text.end(), '\0', ' ');
    if (i_text.m_u32Ground == 0) i_text.m_u32Ground = 0x3F616161;
    const auto found = std::find_if(m_items.begin(), m_items.end(), [&](const T_Item& i_item) {
      return i_item.m_u16Seq == i_text.m_u16Seq;
    });
    const bool bNew = found == m_items.end();
    T_Item item{{0, i_text.m_u16Seq, 0, 0, 0, 0, 0, 0, 0}};
    if (!bNew) item = *found;
    if (!item.m_bHidden && item.m_text.size() != i_text.m_text.size()) Draw(item, true);
    Merge(&item, i_text);
    const bool bDrawn = Draw(item, false);
    if (!bNew) *found = item;
    if (bNew && bDrawn) m_items.push_back(item);
  }
  void Hide(UInt16 i_u16Vout, UInt16 i_u16Seq) {
    for (T_Item& item : m_items)
      if (item.m_u16Vout == i_u16Vout && Means(i_u16Seq, item.m_u16Seq, "\1\3\4")) Erase(&item);
  }
  void Delete(UInt16 i_u16Seq) {
    m_items.remove_if([&](T_Item& io_item) {
      if (!Means(i_u16Seq, io_item.m_u16Seq, "\1\3\4\5")) return false;
      Erase(&io_item);
      return true;
    });
  }
  // The item's time has run out.
  void Expire(UInt16 i_u16Seq) {
    for (T_Item& item : m_items)
      if (item.m_u16Seq == i_u16Seq) Erase(&item);
  }

 private:
  struct T_Item : T_Text {
    bool m_bHidden = false;
  };
  enum EPlace { kNear, kMiddle, kFar };

  // Whether a command for i_u16Seq, which reaches i_classes, means the item i_u16Item.
  static bool Means(UInt16 i_u16Seq, UInt16 i_u16Item, const std::string& i_classes) {
    if ((i_u16Seq & 0xFF) != 0xFF && i_u16Item != i_u16Seq) return false;
    const auto wanted = static_cast<char>(i_u16Seq >> 8);
    return i_u16Seq >> 8 == 0xFF ||
           (i_u16Seq >> 8 == i_u16Item >> 8 && i_classes.find(wanted) != std::string::npos);
  }
  static void Merge(T_Item* io_pItem, const T_Text& i_text) {
    io_pItem->m_u16Vout = i_text.m_u16Vout & 0xFF;
    io_pItem->m_bHidden = false;
    const auto take = [&](UInt32 i_u32Bit, auto T_Text::*i_pField) {
      if (i_text.m_u32Flag & i_u32Bit) io_pItem->*i_pField = i_text.*i_pField;
    };
    take(0x01, &T_Text::m_u8Align);
    take(0x01, &T_Text::m_u16X);
    take(0x01, &T_Text::m_u16Y);
    take(0x02, &T_Text::m_u8Size);
    take(0x04, &T_Text::m_u32Colour);
    take(0x08, &T_Text::m_u32Ground);
    take(0x10, &T_Text::m_text);
  }
  void Erase(T_Item* io_pItem) {
    if (!io_pItem->m_bHidden) Draw(*io_pItem, true);
    io_pItem->m_bHidden = true;
  }
  bool Draw(const T_Item& i_item, bool i_bErase) {
    if (i_item.m_u8Align > 8) return false;
    for (auto& [s32VoDev, picture] : m_pictures)
      if (i_item.m_u16Vout == 255 || i_item.m_u16Vout == s32VoDev)
        DrawOn(picture, i_item, i_bErase);
    return true;
  }
  static SInt64 Place(EPlace i_ePlace, SInt64 i_s64Side, SInt64 i_s64Length, SInt64 i_s64Margin) {
    SInt64 s64Start = i_s64Margin;
    if (i_ePlace == kMiddle) s64Start = (i_s64Side - i_s64Length) >> 1;
    if (i_ePlace == kFar) s64Start = i_s64Side - i_s64Margin - i_s64Length;
    return s64Start < 0 || s64Start >= i_s64Side ? 0 : s64Start;
  }
  void DrawOn(T_Picture& io_picture, const T_Item& i_item, bool i_bErase) {
    constexpr EPlace kX[] = {kMiddle, kNear, kMiddle, kFar, kNear, kMiddle, kFar, kNear, kFar};
    constexpr EPlace kY[] = {kMiddle, kNear, kNear, kNear, kFar, kFar, kFar, kMiddle, kMiddle};
    const SInt64 w = io_picture.m_u32W;
    const SInt64 h = io_picture.m_u32H;
    const bool bSized = i_item.m_u8Size != 0;
    const SInt64 s64Size = w * (bSized ? i_item.m_u8Size : 32) / 3840;
    EXPECT_EQ(FT_Set_Pixel_Sizes(m_pFace, 0, static_cast<UInt32>(s64Size)), 0);
    const FT_Size_Metrics& metrics = m_pFace->size->metrics;
    const SInt64 s64CellW = metrics.max_advance >> 6;
    const SInt64 s64CellH = (metrics.ascender >> 6) - (metrics.descender >> 6);
    const SInt64 s64Length = s64CellW * static_cast<SInt64>(i_item.m_text.size());
    SInt64 x = Place(kX[i_item.m_u8Align], w, s64Length, i_item.m_u16X * w / 16000);
    const SInt64 y = Place(kY[i_item.m_u8Align], h, s64CellH, i_item.m_u16Y * h / 9000);
    if (x + s64Length > w || y + s64CellH > h) return;
    const UInt32 u32Colour = bSized ? i_item.m_u32Colour : 0xFFFFFFFF;
    const UInt32 u32Ground = bSized ? i_item.m_u32Ground : 0x3F000000;
    for (const char letter : i_item.m_text) {
      if (i_bErase)
        DrawCell(io_picture, x, y, ' ', 0, 0);
      else
        DrawCell(io_picture, x, y, static_cast<UInt8>(letter), u32Colour, u32Ground);
      x += s64CellW;
    }
  }
  void DrawCell(T_Picture& io_picture, SInt64 i_s64X, SInt64 i_s64Y, UInt8 i_u8Char,
                UInt32 i_u32Colour, UInt32 i_u32Ground) {
    EXPECT_EQ(FT_Load_Glyph(m_pFace, FT_Get_Char_Index(m_pFace, i_u8Char), FT_LOAD_DEFAULT), 0);
    EXPECT_EQ(FT_Render_Glyph(m_pFace->glyph, FT_RENDER_MODE_NORMAL), 0);
    const FT_Bitmap& bitmap = m_pFace->glyph->bitmap;
    const FT_Size_Metrics& metrics = m_pFace->size->metrics;
    const SInt64 s64Ascender = metrics.ascender >> 6;
    const SInt64 s64Left = std::max(m_pFace->glyph->bitmap_left, 0);
    const SInt64 s64Top = std::max<SInt64>(s64Ascender - m_pFace->glyph->bitmap_top, 0);
    for (SInt64 row = 0; row < s64Ascender - (metrics.descender >> 6); ++row)
      for (SInt64 column = 0; column < metrics.max_advance >> 6; ++column) {
        const bool bInk = row >= s64Top && row < s64Top + bitmap.rows && column >= s64Left &&
                          column < s64Left + bitmap.width &&
                          bitmap.buffer[(row - s64Top) * bitmap.pitch + column - s64Left] >= 128;
        const SInt64 s64At = (i_s64Y + row) * io_picture.m_u32W + i_s64X + column;
        io_picture.m_pixels[static_cast<size_t>(s64At)] = bInk ? i_u32Colour : i_u32Ground;
      }
  }

  FT_LibraryRec_* m_pLibrary = nullptr;
  FT_FaceRec_* m_pFace = nullptr;
  std::map<SInt32, T_Picture> m_pictures;
  std::list<T_Item> m_items;
};
