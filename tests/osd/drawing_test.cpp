#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "tests/osd/scene.h"

namespace {

class Drawing : public Renderer {
 protected:
  ~Drawing() override { WriteFont(m_font); }

  std::string FontFile() { return SystemPath("/usr/share/fonts/monos.ttf"); }
  std::string FontBytes() {
    std::ifstream file(FontFile(), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  void WriteFont(const std::string& i_bytes) {
    std::filesystem::remove(FontFile());
    if (!i_bytes.empty()) std::ofstream(FontFile(), std::ios::binary) << i_bytes;
  }
  // What is printed on standard output while i_record is shown.
  std::string Printed(const T_DispRecord& i_record, UInt32 i_u32Result) {
    testing::internal::CaptureStdout();
    EXPECT_EQ(Show(i_record), i_u32Result);
    return testing::internal::GetCapturedStdout();
  }
  std::string PrintedByConstruction() {
    testing::internal::CaptureStdout();
    m_osd.emplace();
    return testing::internal::GetCapturedStdout();
  }

  const std::string m_font = FontBytes();
};

constexpr char kNoFont[] = "create new face falied!";

TEST_F(Drawing, EveryPlaceAndSizeIsThatOfTheOracle) {
  for (const UInt32 u32W : {kW, 683u})
    for (const int font : {0, 6, 12, 37, 200})
      for (UInt32 position = 0; position < 9; ++position) {
        Init(0, 0, u32W, 384);
        T_DispRecord item = Text(0x101, "AWj|_ \xC4\xE5\x80\xFF", position, 700, 501);
        PutLine(item, 1, "@gQ,");
        item.m_u16Line = 2;
        item.m_u16FontSize = static_cast<UInt16>(font);
        ASSERT_EQ(Show(item), 1u);
        EXPECT_TRUE(COracle(u32W, 384).Draw(item).IsShown())
            << u32W << " " << font << " " << position;
        Delete(0x101);
        EXPECT_TRUE(COracle(u32W, 384).IsShown());
      }
}

TEST_F(Drawing, AlternatingSizesOnLayersOfTwoWidthsStayRight) {
  Init(0, 0);
  Init(1, 1, 640, 360);
  COracle left;
  COracle right(640, 360);
  for (const char* pText : {"abc", "bcd", "cde", "xyz"})
    for (const int font : {64, 80, 96}) {
      const UInt32 u32Offset = static_cast<UInt32>(font) * 50;
      T_DispRecord item = Text(0x101, pText, 1, u32Offset, u32Offset);
      item.m_u16VoSeq = T_DispRecord::kAllOutputs;
      item.m_u16FontSize = static_cast<UInt16>(font);
      ASSERT_EQ(Show(item), 1u);
      EXPECT_TRUE(left.Draw(item).IsShown('0'));
      EXPECT_TRUE(right.Draw(item).IsShown('1'));
    }
}

TEST_F(Drawing, WhatLiesOutsideTheCanvasIsPulledBackOrLeftOut) {
  Init(0, 0, 320, 40);
  const std::string wide(33, 'w');
  T_DispRecord item = Text(0x101, "0123456789", 6, 0, 8999);
  item.m_u16FontSize = 192;
  PutLine(item, 1, wide);
  PutLine(item, 2, "too high");
  item.m_u16Line = 3;
  EXPECT_EQ(Show(item), 1u);
  EXPECT_TRUE(m_log.Has("ERROR DrawOsdInfo wb=4294967286 >= maxW=320 err, set wb=0"));
  EXPECT_TRUE(m_log.Has("ERROR DrawOsdInfo hb=4294967240 >= maxH=40 err, set hb=0"));
  EXPECT_TRUE(m_log.Has("ERROR font<w=10>,wb<0>,maxW<320>,disp len<33><" + wide + "> to long"));
  EXPECT_TRUE(m_log.Has("ERROR font<h=19>,hb<0>,maxH<40>,disp len<8><too high> to high"));
  EXPECT_TRUE(COracle(320, 40).Draw(item).IsShown());
  Delete(0x101);
  EXPECT_TRUE(m_log.Has("ERROR font<h=19>,hb<0>,maxH<40>,cancel len<8><too high> to high"));
  EXPECT_TRUE(COracle(320, 40).IsShown());
}

TEST_F(Drawing, AnUnknownPositionFailsAndAFailingRefreshDoesNot) {
  EXPECT_EQ(Show(Text(0x101, "nowhere", 9)), 0u) << "also without a layer";
  Init();
  EXPECT_EQ(Show(Text(0x101, "nowhere", 9)), 0u);
  COracle oracle = COracle().Draw(Text(0x101, "first"));
  Show(Text(0x101, "first"));
  SoftFail(kFbRefresh, 1, EIO);
  EXPECT_EQ(Show(Text(0x102, "second", 4)), 1u);
  EXPECT_TRUE(m_log.Has("ERROR FBIO_REFRESH failed!"));
  EXPECT_TRUE(oracle.IsShown());
  const UInt64 u64Before = Header().m_u64Sequence;
  Show(Text(0x103, "third", 6));
  EXPECT_EQ(Header().m_u64Sequence, u64Before + 2)
      << "one refresh, which makes up for the lost one";
  EXPECT_TRUE(oracle.Draw(Text(0x102, "second", 4)).Draw(Text(0x103, "third", 6)).IsShown());
}

TEST_F(Drawing, AMissingFontFailsUntilItIsThere) {
  WriteFont("");
  EXPECT_EQ(PrintedByConstruction(), kNoFont);
  Init();
  EXPECT_EQ(Printed(Text(0x101, "item"), 0), kNoFont);
  WriteFont(m_font);
  EXPECT_EQ(Printed(Text(0x101, "item"), 1), "");
  EXPECT_TRUE(COracle().Draw(Text(0x101, "item")).IsShown());

  // Lost while another size is open: what is known can still be drawn, until something is missed.
  T_DispRecord large = Text(0x102, "large", 4);
  large.m_u16FontSize = 100;
  Show(large);
  WriteFont("");
  EXPECT_EQ(Printed(Text(0x101, "time"), 1), "");
  EXPECT_EQ(Printed(Text(0x103, "meti#", 6), 0), kNoFont);
  EXPECT_EQ(Printed(Text(0x101, "time"), 0), kNoFont);
}

TEST_F(Drawing, ADamagedGlyphEndsItsString) {
  Init();
  const COracle expected = COracle().Draw(Text(0x101, "   "));
  const auto word = [&](size_t i_at) {  // big-endian
    UInt32 u32Word;
    std::memcpy(&u32Word, &m_font[i_at], sizeof(u32Word));
    return size_t{be32toh(u32Word)};
  };
  const size_t row = m_font.find("glyf") + 8;  // offset and length of the outlines
  WriteFont(std::string(m_font).replace(word(row), word(row + 4), word(row + 4), '\xFF'));
  EXPECT_EQ(Printed(Text(0x101, "   A "), 0), "load char error!");
  EXPECT_TRUE(expected.IsShown());
}

// One size, one glyph, one bit a pixel.
constexpr char kBitmapFont[] =
    "STARTFONT 2.1\nFONT -t-t-m-r-n--16-160-72-72-c-80-iso10646-1\nSIZE 16 72 72\n"
    "FONTBOUNDINGBOX 8 16 0 -4\nSTARTPROPERTIES 3\nFONT_ASCENT 12\nFONT_DESCENT 4\n"
    "PIXEL_SIZE 16\nENDPROPERTIES\nCHARS 1\nSTARTCHAR A\nENCODING 65\nSWIDTH 500 0\nDWIDTH 8 0\n"
    "BBX 8 2 0 0\nBITMAP\nFF\nFF\nENDCHAR\nENDFONT\n";

TEST_F(Drawing, UngreyGlyphsLeaveTheirCellsAndOneLayerWithoutItsSizeNotTheOthers) {
  WriteFont(kBitmapFont);
  EXPECT_EQ(PrintedByConstruction(), "set font size s32Err!");
  Init(0, 0, 640, 360);
  Init(1, 1);
  T_DispRecord item = Text(0x101, "AA");
  item.m_u16VoSeq = 1;
  const std::string twice =
      "got wrong picel mode, not match, it is 0x1\ngot wrong picel mode, not match, it is 0x1\n";
  EXPECT_EQ(Printed(item, 1), twice);
  item.m_u16VoSeq = T_DispRecord::kAllOutputs;
  EXPECT_EQ(Printed(item, 0), "set font size s32Err!" + twice);
  EXPECT_TRUE(COracle().IsShown('1'));
}

}  // namespace
