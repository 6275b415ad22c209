// Icons and the guide screen through the whole daemon, on two outputs of 1600 x 900 and 800 x 450:
// one pixel of theirs is ten or twenty of the grid.
#include <variant>

#include "tests/png_files.h"
#include "tests/system/oracle.h"

namespace {

// As it is asked for, and what it must look like on either output.
struct T_Icon {
  std::string m_path;
  T_Picture m_aLook[2];
  UInt16 m_u16Output = 0;
  UInt16 m_u16Seq = 0x110;
  UInt16 m_u16X = 0;
  UInt16 m_u16Y = 0;
  UInt16 m_u16W = 0;
  UInt16 m_u16H = 0;
  UInt16 m_u16Opacity = 255;

  Bytes Body() const {
    return Pack(m_u16Output, m_u16Seq, static_cast<UInt32>(m_path.size()), m_path, m_u16X, m_u16Y,
                m_u16W, m_u16H, m_u16Opacity);
  }
};

using T_Elements = std::vector<std::variant<T_Text, T_Icon>>;

// Each pixel of i_pixel's picture as a block of so many.
template <class Pixel>
T_Picture Drawn(UInt32 i_u32W, UInt32 i_u32H, UInt32 i_u32Block, Pixel i_pixel) {
  T_Picture picture{0, 0, i_u32W * i_u32Block, i_u32H * i_u32Block};
  for (UInt32 i = 0; i < picture.m_pixels.size(); ++i)
    picture.m_pixels[i] = i_pixel(i % picture.m_u32W / i_u32Block, i / picture.m_u32W / i_u32Block);
  return picture;
}

class Pictures : public CServedTest {
 protected:
  void SetUp() override {
    Request(kDelete, Pack(UInt16{9}, UInt16{0xFFFF}));
    HideImage(255, 0xFFFF);
    for (const UInt32 output : {0U, 1U})
      Request(kInit, Pack(output, output * 2, 10, -20, 1600 >> output, 900 >> output));
    // Every alpha and opaque corners; and blocks of two pixels that halve exactly.
    m_glass.m_aLook[0] = m_glass.m_aLook[1] = Drawn(64, 48, 1, [](UInt32 x, UInt32 y) {
      return (x < 8 ? 255 : (x + y * 64) / 12) << 24 | x * 4 << 16 | y * 5 << 8 | (x ^ y);
    });
    m_blocks.m_aLook[0] = Drawn(30, 20, 2, BlockColour);
    m_blocks.m_aLook[1] = Drawn(30, 20, 1, BlockColour);
    m_glass.m_path = WritePng(s_pRoot->Path("/glass.png"), m_glass.m_aLook[0]);
    m_blocks.m_path = WritePng(s_pRoot->Path("/blocks.jpg"), m_blocks.m_aLook[0]);
    m_blocks.m_u16W = 600;
  }
  static UInt32 BlockColour(UInt32 x, UInt32 y) {
    return (x + y) % 5 == 0 ? 0 : 0xFF000000 | x * 8 << 16 | y * 12 << 8 | 77;
  }
  void Request(UInt32 i_u32Id, const Bytes& i_body) {
    ASSERT_GT(s_pPeer->Request(i_u32Id, i_body), 0U);
  }
  void Ask(const T_Text& i_text) { Request(kText, i_text.Body()); }
  void Ask(const T_Icon& i_icon) { Request(kImage, i_icon.Body()); }
  void HideImage(UInt16 i_u16Output, UInt16 i_u16Seq) {
    Request(kImageHide, Pack(i_u16Output, i_u16Seq));
  }
  void Guide(UInt16 i_u16Output, UInt16 i_u16Seq, const std::string& i_path) {
    Request(kGuide, Pack(i_u16Output, i_u16Seq, static_cast<UInt32>(i_path.size()), i_path));
  }
  // Whether both outputs show i_elements, one over the other, over i_background.
  static void ExpectShown(const T_Elements& i_elements, const T_Picture* i_pBackground = nullptr) {
    for (const UInt32 output : {0U, 1U}) {
      T_Picture screen{10, -20, 1600U >> output, 900U >> output};
      if (i_pBackground != nullptr) screen.m_pixels = i_pBackground[output].m_pixels;
      for (const auto& element : i_elements)
        std::visit([&](const auto& i_item) { Draw(i_item, output, &screen); }, element);
      EXPECT_TRUE(s_pRoot->Shows(static_cast<SInt32>(output * 2), screen));
    }
  }
  static bool IsOn(UInt16 i_u16Output, UInt32 i_u32Output) {
    return i_u16Output == 255 || i_u16Output == i_u32Output;
  }
  static void Draw(const T_Text& i_text, UInt32 i_u32Output, T_Picture* io_pScreen) {
    if (IsOn(i_text.m_u16Output, i_u32Output))
      DrawItem(ItemOf(i_text), s_pRoot->Path("/usr/share/fonts/monos.ttf"), io_pScreen);
  }
  static void Draw(const T_Icon& i_icon, UInt32 i_u32Output, T_Picture* io_pScreen) {
    const UInt32 u32Units = 10U << i_u32Output;
    if (IsOn(i_icon.m_u16Output, i_u32Output))
      LayOver(i_icon.m_aLook[i_u32Output], i_icon.m_u16X / u32Units, i_icon.m_u16Y / u32Units,
              i_icon.m_u16Opacity, io_pScreen);
  }

  T_Icon m_glass;
  T_Icon m_blocks;
  const T_Text m_below{.m_u16Output = 255, .m_u16X = 1000, .m_u16Y = 1000, .m_text = "below"};
  const T_Text m_above{.m_u16Output = 255,
                       .m_u16Seq = 0x102,
                       .m_u16X = 1300,
                       .m_u16Y = 1200,
                       .m_u32Ground = 0x80FF0000,
                       .m_text = "above"};
};

TEST_F(Pictures, LieInTheOrderOfTheirFirstRequests) {
  m_glass.m_u16Output = 255;
  m_glass.m_u16X = 1195;
  m_glass.m_u16Y = 1100;
  Ask(m_below);
  Ask(m_glass);
  ExpectShown({m_below, m_glass});
  Ask(m_above);
  ExpectShown({m_below, m_glass, m_above});
  T_Text later = m_below;
  later.m_text = "BELOW";
  Ask(later);
  ExpectShown({later, m_glass, m_above});  // drawn anew, but still beneath
  m_glass.m_u16X = 1500;
  m_glass.m_u16Opacity = 90;
  Ask(m_glass);
  ExpectShown({later, m_glass, m_above});  // moved
  Request(kHide, Pack(UInt16{255}, UInt16{0x102}));
  ExpectShown({later, m_glass});
}

TEST_F(Pictures, AreReplacedHiddenAndDeletedAsAWhole) {
  m_glass.m_u16Output = m_blocks.m_u16Output = 255;
  m_glass.m_u16X = 1500;
  m_glass.m_u16Y = m_blocks.m_u16Y = 1100;
  Ask(m_below);
  Ask(m_glass);
  m_blocks.m_u16X = 15800;  // the right half is cut off
  m_blocks.m_u16Opacity = 999;
  Ask(m_blocks);
  m_blocks.m_u16Opacity = 255;
  ExpectShown({m_below, m_blocks});  // another picture, rescaled on the second output
  m_blocks.m_u16Output = 1;
  m_blocks.m_u16X = 1300;
  Ask(m_blocks);
  ExpectShown({m_below, m_blocks});  // gone from the first output
  m_glass.m_u16Seq = 0x211;
  Ask(m_glass);
  ExpectShown({m_below, m_blocks, m_glass});
  HideImage(1, 0x211);  // it was shown on all outputs
  HideImage(0, 0x101);  // no icon
  HideImage(0x0101, 0x110);
  ExpectShown({m_below, m_glass});
  HideImage(255, 0xFFFF);
  ExpectShown({m_below});
  Ask(m_glass);
  m_blocks.m_u16Output = 0;
  Ask(m_blocks);
  ExpectShown({m_below, m_blocks, m_glass});  // its hide took the one of class 2 off the list
  Request(kDelete, Pack(UInt16{0}, UInt16{0x1FF}));
  ExpectShown({m_glass});
}

TEST_F(Pictures, TheGuideLiesBehindEverything) {
  const auto bars = [](UInt32 i_u32Pillar) {
    return [=](UInt32 x, UInt32) {
      return x < i_u32Pillar || x >= i_u32Pillar * 7 ? 0xFF000000 : 0xFF6E3714;
    };
  };
  const T_Picture aNarrow[] = {Drawn(1600, 900, 1, bars(200)), Drawn(800, 450, 1, bars(100))};
  // 4:3 and half transparent: on black, between black bars.
  const std::string path = WritePng(s_pRoot->Path("/guide.png"),
                                    Drawn(40, 30, 1, [](UInt32, UInt32) { return 0x80DC6E28; }));
  m_glass.m_u16X = 1500;
  Ask(m_below);
  Ask(m_glass);
  Guide(255, 0x2FE, path);
  ExpectShown({m_below, m_glass}, aNarrow);
  Ask(m_above);
  EXPECT_TRUE(
      s_pRoot->Logs("osd disp: bGS<1>,seq<0x102>,rect<1300,1200>,line<1>,time<65535>,"
                    "str<above>,hide<0>,voseq<0xff>"));
  ExpectShown({m_below, m_glass, m_above}, aNarrow);
  Request(kHide, Pack(UInt16{255}, UInt16{0x101}));
  HideImage(255, 0x110);
  ExpectShown({m_above}, aNarrow);  // the guide is there again
  Request(kInit, Pack(0, 0, 10, -20, 1600, 900));
  Ask(m_above);
  ExpectShown({m_above}, aNarrow);  // and on a new layer, too
  HideImage(255, 0x2FD);
  HideImage(0, 0x2FE);
  const T_Picture aSecond[] = {T_Picture{0, 0, 1600, 900}, aNarrow[1]};
  ExpectShown({m_above}, aSecond);
}

TEST_F(Pictures, TheDevicesOwnGuideHasItsBadgeInTheMiddle) {
  Ask(m_above);
  T_Picture own = Drawn(800, 450, 2, [](UInt32 x, UInt32 y) { return 0xFF000000 | x << 8 | y; });
  WritePng(s_pRoot->Path("/usr/local/share/guidescreen.png"), own);
  WritePng(s_pRoot->Path("/usr/local/share/image_overlay1.png"), m_glass.m_aLook[0]);
  LayOver(m_glass.m_aLook[0], 768, 426, 255, &own);
  const T_Picture aOwn[] = {own, T_Picture{0, 0, 800, 450}};
  Guide(0, 7, "");
  ExpectShown({m_above}, aOwn);
  HideImage(255, 0xFFFF);
  ExpectShown({m_above});
}

}  // namespace
