#include <chrono>
#include <optional>
#include <random>

#include "tests/system/daemon.h"
#include "tests/system/oracle.h"

namespace {

// As whatever number is wanted.
struct T_Number {
  UInt32 m_u32Value;
  template <class T>
  operator T() const {
    return static_cast<T>(m_u32Value);
  }
};

// Every request goes to the daemon and to the oracle.
class Drawing : public CServedTest {
 protected:
  void SetUp() override {
    Delete(0xFFFF);
    Init(0, 1920, 1080);
  }
  void Request(UInt32 i_u32Id, const Bytes& i_body) {
    ASSERT_GT(s_pPeer->Request(i_u32Id, i_body), 0U);
  }
  void Init(SInt32 i_s32VoDev, UInt32 i_u32W, UInt32 i_u32H, SInt32 i_s32X = 0, SInt32 i_s32Y = 0) {
    Request(kInit, Pack(i_s32VoDev, LayerOf(i_s32VoDev), i_s32X, i_s32Y, i_u32W, i_u32H));
    m_oracle.Init(i_s32VoDev, {i_s32X, i_s32Y, i_u32W, i_u32H});
  }
  void DeInit(SInt32 i_s32VoDev) {
    Request(kDeInit, Pack(i_s32VoDev));
    m_oracle.DeInit(i_s32VoDev);
  }
  void Show(const T_Text& i_text) {
    Request(kText, i_text.Body());
    m_oracle.Show(i_text);
  }
  void Hide(UInt16 i_u16Vout, UInt32 i_u32Seq) {
    Request(kHide, Pack(i_u16Vout, static_cast<UInt16>(i_u32Seq)));
    m_oracle.Hide(i_u16Vout, static_cast<UInt16>(i_u32Seq));
  }
  void Delete(UInt32 i_u32Seq) {
    Request(kDelete, Pack(UInt16{9}, static_cast<UInt16>(i_u32Seq)));
    m_oracle.Delete(static_cast<UInt16>(i_u32Seq));
  }
  void Compare(const std::string& i_what, SInt32 i_s32LastVoDev = 2) {
    for (const auto& [s32VoDev, picture] : m_oracle.Pictures()) {
      if (s32VoDev > i_s32LastVoDev) continue;
      ASSERT_TRUE(s_pRoot->Shows(LayerOf(s32VoDev), picture)) << i_what;
    }
  }
  // Outputs and layers are numbered apart.
  static SInt32 LayerOf(SInt32 i_s32VoDev) { return i_s32VoDev * 2; }

  COracle m_oracle{s_pRoot->Path("/usr/share/fonts/monos.ttf")};
};

TEST_F(Drawing, NinePositionsSurviveANewSize) {
  constexpr UInt8 kSizes[] = {48, 0, 255, 16, 97, 60, 32, 5, 129};
  for (const auto& [w, h] : {std::pair<UInt32, UInt32>{1920, 1080}, {1366, 768}}) {
    Init(0, w, h, 10, -20);
    Compare("after init");
    for (UInt8 code = 0; code < 9; ++code) {
      T_Text text{0, static_cast<UInt16>(0x101 + code), 0x3F, code, 801, 603, kSizes[code]};
      text.m_u32Ground = code % 2 ? 0 : 0x80FF0000U;
      text.m_text = "Agj|" + std::to_string(w);
      Show(text);
    }
    Compare("after nine texts");
  }
}

TEST_F(Drawing, EveryByteHasItsCellAndTextsEndAfterSixtyFour) {
  std::string bytes;
  for (UInt32 byte = 0; byte < 256; ++byte) bytes += static_cast<char>(byte);
  for (UInt16 part = 0; part < 4; ++part)
    Show({.m_u16Seq = part,
          .m_u16Y = static_cast<UInt16>(part * 1000),
          .m_text = bytes.substr(part * 64U, 64)});
  const std::string nul(3, '\0');
  Show({.m_u16Seq = 0x401, .m_u16Y = 5000, .m_text = nul + std::string(99, 'y')});
  Show({.m_u16Seq = 0x402, .m_u16Y = 6000, .m_text = ""});
  Show({.m_u16Seq = 0x403, .m_u32Flag = 0x31, .m_u16Y = 7000, .m_text = "default size, colours"});
  Show({.m_u16Seq = 0x404, .m_u32Flag = 0x33, .m_u16Y = 8000, .m_text = "size without colours"});
  Compare("bytes");
}

TEST_F(Drawing, OutputsAreDrawnApartAndTogether) {
  Show({.m_u16Vout = 1, .m_text = "before its output"});
  Init(1, 800, 600, -5, 7);
  Show({.m_u16Vout = 0x4401, .m_u16Seq = 0x102, .m_u16Y = 2000, .m_text = "low byte counts"});
  Show({.m_u16Vout = 255, .m_u16Seq = 0x103, .m_u8Align = 8, .m_text = "everywhere"});
  Compare("two outputs");
  Init(1, 1024, 768);
  Compare("what is everywhere comes back with its update alone");
  Show({.m_u16Vout = 0, .m_u16Seq = 0x103, .m_u32Flag = 0x30, .m_text = "everywhere"});
  Compare("moved to one output");
  DeInit(1);
  Show({.m_u16Vout = 1, .m_u16Seq = 0x102, .m_u16Y = 3000, .m_text = "while it was away"});
  EXPECT_TRUE(Eventually([] { return ReadFile(s_pRoot->Path("/dev/fb2")).at(32) == 0; }));
  Init(1, 640, 480);
  Compare("gone and back");
  DeInit(1);
}

TEST_F(Drawing, UpdatesKeepWhatTheyDoNotNameAndGhostsStay) {
  Show({.m_u8Align = 4, .m_u16X = 500, .m_u16Y = 400, .m_text = "first"});
  Show({.m_u32Flag = 0x34, .m_u32Colour = 0xFFFF0000, .m_text = "again"});
  Compare("same length, other colour");
  Show({.m_u32Flag = 0x31, .m_u16X = 3000, .m_u16Y = 3000, .m_text = "moved"});
  Compare("the old cells stay after a move of the same length");
  Show({.m_u32Flag = 0x32, .m_u8Size = 90, .m_text = "longer than before"});
  Compare("another length erases");
  Show({.m_u32Flag = 0x21, .m_u16X = 9000, .m_u16Y = 6000});
  Compare("without a text the old one is erased and drawn at its new place");
}

TEST_F(Drawing, HideAndDeleteByNumberClassAndAll) {
  const auto showAll = [this] {
    for (UInt32 item = 0; item < 18; ++item)
      Show({.m_u16Vout = item % 3 == 2,
            .m_u16Seq = static_cast<UInt16>(item / 3 * 256 + item % 3),
            .m_u16Y = static_cast<UInt16>(item * 450),
            .m_text = "item " + std::to_string(item)});
    Compare("all items");
  };
  Init(1, 640, 360);
  showAll();
  for (const UInt32 seq : {0x0101U, 0x03FFU, 0x00FFU, 0x02FFU, 0x0500U, 0xFFFFU}) {
    Hide(0, seq);
    Compare("hide " + std::to_string(seq));
  }
  Init(0, 1280, 720);
  Compare("hidden items stay away");
  showAll();
  for (const UInt32 seq : {0x0101U, 0x04FFU, 0x00FFU, 0x0201U, 0x05FFU, 0xFFFFU}) {
    Delete(seq);
    Compare("delete " + std::to_string(seq));
  }
  DeInit(1);
}

TEST_F(Drawing, TextsThatDoNotFitAreNamedAndLeftOut) {
  Show({.m_u16X = 15000, .m_text = "to the edge"});
  Show({.m_u16Seq = 0x102, .m_u16Y = 8990, .m_text = "down"});
  Show({.m_u16Seq = 0x103, .m_u16X = 20000, .m_u16Y = 9000, .m_text = "back to the corner"});
  Show({.m_u16Seq = 0x104, .m_u8Align = 3, .m_u16X = 15990, .m_u16Y = 2000, .m_text = "pulled in"});
  Show({.m_u16Seq = 0x105, .m_u8Align = 9, .m_text = "nowhere"});
  Show({.m_u16Seq = 0x106, .m_u8Align = 0, .m_u8Size = 255, .m_text = std::string(64, 'W')});
  Compare("what fits");
  EXPECT_TRUE(s_pRoot->Logs(",wb<1800>,maxW<1920>,disp len<11><to the edge> to long"));
  EXPECT_TRUE(s_pRoot->Logs(",hb<1078>,maxH<1080>,disp len<4><down> to high"));
  EXPECT_TRUE(s_pRoot->Logs("ERROR DrawOsdInfo wb=2400 >= maxW=1920 err, set wb=0"));
  EXPECT_TRUE(s_pRoot->Logs("ERROR DrawOsdInfo hb=1080 >= maxH=1080 err, set hb=0"));
}

TEST_F(Drawing, TheSixtySixthItemIsRefused) {
  for (UInt32 item = 0; item < 66; ++item) {
    Show({.m_u16Seq = static_cast<UInt16>(0x300 + item),
          .m_u16X = static_cast<UInt16>(item * 200),
          .m_u16Y = static_cast<UInt16>(item * 130),
          .m_text = std::to_string(item)});
    if (item % 16 == 0) Compare("within the renderer's queue");
  }
  EXPECT_TRUE(s_pRoot->Logs("ERROR too many osd info to disp, current size<65>"));
  Delete(0x0340);
  Show({.m_u16Seq = 0x400, .m_u16Y = 8100, .m_text = "room again"});
  Compare("sixty-five");
}

TEST_F(Drawing, ATimedTextGoesAfterTenSecondsOfRandomWork) {
  using Clock = std::chrono::steady_clock;
  Init(2, 320, 240);
  Show({.m_u16Vout = 2, .m_u16Seq = 0x001, .m_u32Flag = 0x1F, .m_text = "ten seconds"});
  Show({.m_u16Vout = 2, .m_u16Seq = 0x200, .m_u32Flag = 0x1F, .m_u16Y = 5000, .m_text = "class 2"});
  Compare("timed");
  const Clock::time_point start = Clock::now();

  std::mt19937 random(20261121);
  const auto below = [&](UInt32 i_u32End) {
    return T_Number{static_cast<UInt32>(random() % i_u32End)};
  };
  const auto goesOn = [&] { return Clock::now() - start < std::chrono::seconds(9); };
  for (UInt32 step = 0; step < 300 && goesOn() && !HasFatalFailure(); ++step) {
    const UInt32 u32Kind = below(20);
    const UInt16 u16Vout = below(2);
    const UInt32 u32Class = UInt32{below(6)} << 8;
    const UInt32 u32Seq = u32Class | (u32Kind % 3 ? 10 + UInt32{below(3)} : 0xFF);
    if (u32Kind < 13) {
      T_Text text{u16Vout,
                  T_Number{u32Class + 10 + UInt32{below(3)}},
                  0x20 | UInt32{below(32)},
                  below(10),
                  below(16500),
                  below(9300),
                  below(120),
                  below(~0U),
                  below(~0U)};
      for (UInt32 rest = below(25); rest > 0; --rest) text.m_text += char{below(256)};
      Show(text);
    }
    if (u32Kind == 13) Init(u16Vout, 400 + UInt32{below(900)}, 300 + UInt32{below(500)});
    if (u32Kind == 14) DeInit(u16Vout);
    if (u32Kind == 15) Hide(u16Vout, 0xFFFF);
    if (u32Kind > 15 && u32Kind < 18) Delete(u32Seq);
    if (u32Kind > 17) Hide(u16Vout, u32Seq);
    if (step % 5 == 0) Compare("step " + std::to_string(step), 1);
  }

  m_oracle.Expire(0x001);
  Compare("expired");
  EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(8900));
  Show({.m_u16Vout = 2, .m_u16Seq = 0x001, .m_u32Flag = 0x30, .m_text = "ten seconds"});
  Compare("shown again");
}

}  // namespace
