#include <malloc.h>
#include <sys/stat.h>

#include <filesystem>

#include "clients/osd_client.h"
#include "common/osd/glyphs.h"
#include "tests/osd/scene.h"

namespace {

class Drawing : public Renderer {
 protected:
  ~Drawing() override { WriteFont(m_font); }

  static std::string FontFile() { return SystemPath("/usr/share/fonts/monos.ttf"); }
  static void WriteFont(const std::string& i_bytes) {
    std::filesystem::remove(FontFile());
    if (!i_bytes.empty()) std::ofstream(FontFile(), std::ios::binary) << i_bytes;
  }
  // Expects that i_record is shown with this result and this on standard output.
  void ExpectPrinted(const T_DispRecord& i_record, UInt32 i_u32Result, const std::string& i_text) {
    testing::internal::CaptureStdout();
    EXPECT_EQ(Show(i_record), i_u32Result);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), i_text);
  }

  const std::string m_font = ReadFile(FontFile());
};

constexpr char kNoFont[] = "create new face falied!";

TEST_F(Drawing, WhatLiesOutsideTheCanvasIsPulledBackOrLeftOut) {
  Init(0, 0, 320, 40);
  const std::string wide(33, 'w');
  T_DispRecord item = Text(0x101, "0123456789", 6, 0, 8999);
  item.m_u16FontSize = 192;
  AddLine(item, wide);
  AddLine(item, "too high");
  AddLine(item, wide);
  EXPECT_EQ(Show(item), 1u);
  EXPECT_TRUE(m_log.Has("ERROR DrawOsdInfo wb=4294967286 >= maxW=320 err, set wb=0"));
  EXPECT_TRUE(m_log.Has("ERROR DrawOsdInfo hb=4294967221 >= maxH=40 err, set hb=0"));
  EXPECT_TRUE(m_log.Has("ERROR font<w=10>,wb<0>,maxW<320>,disp len<33><" + wide + "> to long"));
  EXPECT_TRUE(m_log.Has("ERROR font<h=19>,hb<0>,maxH<40>,disp len<0><> to high"));
  EXPECT_TRUE(Shows({item}, '0', 320, 40));
  Send(T_OsdDelete{0x101});
  EXPECT_TRUE(m_log.Has("ERROR font<h=19>,hb<0>,maxH<40>,cancel len<8><too high> to high"));
  EXPECT_TRUE(Shows({}, '0', 320, 40));
}

TEST_F(Drawing, PeersCanTellTheWidthOfATextBeforehand) {
  CGlyphs glyphs;
  for (const UInt32 canvas : {320U, 1366U, 1920U, 7680U})
    for (UInt32 size = 1; size < 256; ++size)
      ASSERT_EQ(glyphs.SetFont(size * canvas / 3840)->m_u32W * 64,
                osd_text_width(&osd_dejavu_sans_mono, size, canvas, 70))
          << size << " on " << canvas;
}

TEST_F(Drawing, AFailingRefreshIsMadeUpForByTheNext) {
  const T_DispRecord items[] = {Text(0x101, "first"), Text(0x102, "second", 4),
                                Text(0x103, "third", 6)};
  EXPECT_EQ(Init() + Show(items[0]), 2u);
  SoftFail(kFbRefresh, 1, EIO);
  EXPECT_EQ(Show(items[1]), 1u);
  EXPECT_TRUE(m_log.Has("ERROR FBIO_REFRESH failed!"));
  EXPECT_TRUE(Shows({items[0]}));
  const int before = Refreshes('0');
  EXPECT_EQ(Show(items[2]), 1u);
  EXPECT_EQ(Refreshes('0'), before + 1);
  EXPECT_TRUE(Shows({items[0], items[1], items[2]}));
}

TEST_F(Drawing, AMissingFontFailsUntilItIsThere) {
  WriteFont("");
  testing::internal::CaptureStdout();
  m_osd.emplace();
  EXPECT_EQ(testing::internal::GetCapturedStdout(), kNoFont);
  ExpectPrinted(Text(0x101, "nowhere", 9), 0, "");  // its position fails first, also on no layer
  Init();
  ExpectPrinted(Text(0x101, "nowhere", 9), 0, "");
  ExpectPrinted(Text(0x101, "item"), 0, kNoFont);
  WriteFont(m_font);
  ExpectPrinted(Text(0x101, "item"), 1, "");
  EXPECT_TRUE(Shows({Text(0x101, "item")}));
}

TEST_F(Drawing, AChangeOfSizeLooksWhichFontIsThere) {
  Init();
  T_DispRecord small = Text(0x101, "small");
  T_DispRecord large = Text(0x102, "large", 4);
  large.m_u16FontSize = 96;
  EXPECT_EQ(Show(Text(0x101, "smell")) + Show(large) + Show(small), 3u);
  EXPECT_EQ(Show(large) + Show(small), 2u);
  EXPECT_TRUE(Shows({small, large}));
  WriteFont(ReadFile("/usr/share/fonts/truetype/dejavu/DejaVuSansMono-Bold.ttf"));
  EXPECT_EQ(Show(large) + Show(small), 2u);
  EXPECT_TRUE(Shows({small, large}));
  WriteFont("");
  ExpectPrinted(small, 1, "");
  ExpectPrinted(large, 0, kNoFont);
  ASSERT_EQ(mkfifo(FontFile().c_str(), 0600), 0);
  ExpectPrinted(small, 0, kNoFont);
  WriteFont(m_font);
  ExpectPrinted(small, 1, "");
}

TEST_F(Drawing, AFontThatIsCutWhileItIsInUseFailsUntilItIsWhole) {
  Init();
  EXPECT_EQ(Show(Text(0x101, "seen")), 1u);
  std::filesystem::resize_file(FontFile(), 100000);
  ExpectPrinted(Text(0x101, "sees"), 1, "");
  ExpectPrinted(Text(0x102, "unseen", 4), 0, "load char error!");
  ExpectPrinted(Text(0x102, "unseen", 4), 0, kNoFont);
  std::ofstream(FontFile(), std::ios::binary) << m_font;
  ExpectPrinted(Text(0x102, "unseen", 4), 1, "");
  EXPECT_TRUE(Shows({Text(0x101, "sees"), Text(0x102, "unseen", 4)}));
}

TEST_F(Drawing, ManyLargeTextsAreDrawnRightInLittleMemory) {
  Init(0, 0, 3840, 1200);
  const auto heap = [] { return mallinfo2().uordblks + mallinfo2().hblkhd; };
  const size_t before = heap();
  // More than is kept: in many sizes, then in one size, then in the first again.
  for (UInt32 i = 0; i <= 40; ++i) {
    T_DispRecord item = Text(0x101, "");
    item.m_u16FontSize = static_cast<UInt16>(i < 24 ? 300 + 24 * i : i < 40 ? 900 : 300);
    for (UInt32 c = 0; c < 6; ++c) item.m_aText[0][c] = static_cast<char>('!' + i % 15 * 6 + c);
    EXPECT_EQ(Show(item), 1u);
    EXPECT_TRUE(i % 3 != 0 || Shows({item}, '0', 3840, 1200));
    EXPECT_LT(heap() - before, size_t{9} << 20);
    Send(T_OsdDelete{0x101});
  }
}

}  // namespace
