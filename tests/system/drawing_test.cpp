#include "tests/system/oracle.h"

namespace {

using T_Texts = std::vector<T_Text>;

class Drawing : public CServedTest {
 protected:
  void SetUp() override { Request(kDelete, Pack(UInt16{9}, UInt16{0xFFFF})); }
  void Request(UInt32 i_u32Id, const Bytes& i_body) {
    ASSERT_GT(s_pPeer->Request(i_u32Id, i_body), 0U);
  }
  // Outputs and layers are numbered apart.
  void Init(UInt32 i_u32Output, UInt32 i_u32W, UInt32 i_u32H) {
    Request(kInit, Pack(i_u32Output, i_u32Output * 2, 10, -20, i_u32W, i_u32H));
  }
  void Show(const T_Texts& i_texts) {
    for (const T_Text& text : i_texts) Request(kText, text.Body());
  }
  static testing::AssertionResult Shows(SInt32 i_s32Output, UInt32 i_u32W, UInt32 i_u32H,
                                        const T_Texts& i_texts) {
    return s_pRoot->Shows(i_s32Output * 2, Screen(*s_pRoot, i_u32W, i_u32H, i_texts));
  }
};

TEST_F(Drawing, NinePositionsSurviveANewSize) {
  constexpr UInt8 kSizes[] = {48, 0, 255, 16, 97, 60, 32, 5, 129};
  T_Texts texts;
  for (UInt8 code = 0; code < 9; ++code)
    texts.push_back({0, UInt16(0x101 + code), 0x3F, code, 801, 603, kSizes[code], 0xFFFFFFFF,
                     code % 2 ? 0 : 0x80FF0000U, std::string("A\0gj|\xC4\xFF", 7)});
  Init(0, 1920, 1080);
  Show(texts);
  EXPECT_TRUE(Shows(0, 1920, 1080, texts));
  Init(0, 1366, 767);
  EXPECT_TRUE(Shows(0, 1366, 767, texts));
}

TEST_F(Drawing, OutputsAreDrawnApartAndTogetherAndUpdatesLeaveGhosts) {
  const T_Text early{.m_u16Output = 1, .m_u16Seq = 0x102, .m_text = "before its output"};
  const T_Text both{.m_u16Output = 255, .m_u16Seq = 0x103, .m_u8Align = 8, .m_text = "everywhere"};
  const T_Text text{.m_u16Output = 0x4400, .m_u16X = 900, .m_u16Y = 4000, .m_text = "low byte"};
  Init(0, 800, 600);
  Show({early, both, text});
  Init(1, 640, 360);
  EXPECT_TRUE(Shows(1, 640, 360, {early})) << "what is everywhere comes back with its update alone";
  Show({both});
  EXPECT_TRUE(Shows(1, 640, 360, {early, both}));
  EXPECT_TRUE(Shows(0, 800, 600, {both, text}));
  T_Text moved{.m_u32Flag = 0x35, .m_u16X = 5000, .m_u32Colour = 0xFFFF0000, .m_text = "by bytes"};
  Show({moved});
  EXPECT_TRUE(Shows(0, 800, 600, {both, text, moved})) << "cells of the same length stay";
  Show({{.m_u32Flag = 0x22, .m_u8Size = 90}});
  moved.m_u8Size = 90;
  EXPECT_TRUE(Shows(0, 800, 600, {both, text, moved})) << "another size";
  Show({{.m_u32Flag = 0x38, .m_u32Ground = 0xFF00FF00, .m_text = "longer than before"}});
  moved.m_u32Ground = 0xFF00FF00;
  moved.m_text = "longer than before";
  EXPECT_TRUE(Shows(0, 800, 600, {both, text, moved}));
}

TEST_F(Drawing, HideAndDeleteGoByNumberClassAndAll) {
  Init(0, 1280, 720);
  for (const bool bHide : {true, false}) {
    T_Texts left;
    for (UInt32 item = 0; item < 18; ++item)
      left.push_back({.m_u16Seq = UInt16(item / 3 * 256 + item % 3),
                      .m_u16Y = UInt16(item * 450),
                      .m_text = "item " + std::to_string(item)});
    Show(left);
    for (const UInt32 seq :
         {0x101U, 0x3FFU, 0xFFU, 0x2FFU, 0x4FFU, 0x201U, 0x501U, 0x1FFU, 0xFFFFU}) {
      const std::string classes = bHide ? "\1\3\4" : "\1\3\4\5";
      std::erase_if(left, [&](const T_Text& i_text) {
        const bool bClass = seq >> 8 == i_text.m_u16Seq >> 8 &&
                            classes.find(static_cast<char>(seq >> 8)) != std::string::npos;
        return seq == 0xFFFF || (bClass && ((seq & 0xFF) == 0xFF || seq == i_text.m_u16Seq));
      });
      Request(bHide ? kHide : kDelete, Pack(UInt16{0}, UInt16(seq)));
      EXPECT_TRUE(Shows(0, 1280, 720, left)) << (bHide ? "hide " : "delete ") << seq;
    }
  }
}

TEST_F(Drawing, TheSixtySixthItemIsRefused) {
  T_Texts texts;
  for (UInt32 item = 0; item < 66; ++item)
    texts.push_back({.m_u16Seq = UInt16(0x300 + item),
                     .m_u16X = UInt16(item * 200),
                     .m_u16Y = UInt16(item * 130),
                     .m_text = std::to_string(item)});
  Init(0, 1280, 720);
  Show(texts);
  EXPECT_TRUE(s_pRoot->Logs("ERROR too many osd info to disp, current size<65>"));
  texts.pop_back();
  EXPECT_TRUE(Shows(0, 1280, 720, texts));
}

TEST_F(Drawing, ATimedTextGoesTenSecondsAfterItsLastUpdate) {
  const T_Text timed{.m_u32Flag = 0x1F, .m_text = "ten seconds"};
  Init(0, 320, 240);
  Show({{.m_text = "for ever at first"}});
  const auto start = std::chrono::steady_clock::now();
  Show({timed});
  EXPECT_TRUE(Shows(0, 320, 240, {timed}));
  EXPECT_TRUE(Shows(0, 320, 240, {}));
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(8900));
  Show({{.m_u32Flag = 0x30, .m_text = "ten seconds"}});
  EXPECT_TRUE(Shows(0, 320, 240, {timed})) << "hidden, not forgotten";
}

}  // namespace
