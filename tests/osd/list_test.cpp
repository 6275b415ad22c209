#include "tests/osd/scene.h"

namespace {

using testing::ElementsAre;

class List : public Renderer {
 protected:
  List() {
    Init();
    m_log.Take();
  }
  // The list's size, as it is told after a delete request.
  std::string SizeAfterDelete(UInt32 i_u32Seq) {
    EXPECT_EQ(Delete(i_u32Seq), 1u);
    return m_log.Take().back();
  }
  void ShowAll(const std::vector<T_DispRecord>& i_items) {
    for (const T_DispRecord& item : i_items) EXPECT_EQ(Show(item), 1u);
  }
};

TEST_F(List, AnUpdateTakesWhatItsMaskNamesAndErasesWhenTheLengthChanges) {
  const T_DispRecord first = Text(0x101, "12345", 1, 1000, 1000);
  T_DispRecord update = Text(0x101, "abcde", 8);
  update.m_u16FontSize = 128;
  update.m_u32Mask = kMaskText | kMaskFontSize | kMaskForever;
  Show(first);
  m_log.Take();
  Show(update);
  EXPECT_EQ(m_log.Take().back(),
            "INFO osd disp: bGS<0>,seq<0x101>,rect<1000,1000>,line<1>,time<65535>,str<abcde>,"
            "hide<0>,voseq<0>");
  T_DispRecord merged = Text(0x101, "abcde", 1, 1000, 1000);
  merged.m_u16FontSize = 128;
  COracle ghost = COracle().Draw(first).Draw(merged);
  EXPECT_TRUE(ghost.IsShown());
  update.m_u32Mask = kMaskPosition;  // without a text counts as empty, but keeps the stored one
  Show(update);
  merged.m_u32Position = 8;
  merged.m_u32X = merged.m_u32Y = 0;
  EXPECT_FALSE(ghost.Draw(merged).IsShown());
  EXPECT_TRUE(COracle().Draw(merged).IsShown());
}

TEST_F(List, ATimedTextIsGoneAfterTenTicksAndCanComeBack) {
  const T_DispRecord timed = Text(0x101, "timed");
  T_DispRecord forever = Text(0x102, "for ever", 4);
  forever.m_u16Time = T_DispRecord::kForever;
  const T_DispRecord image = Text(0x203, "class 2", 6);
  ShowAll({timed, forever, image});
  m_log.Take();
  Tick(9);
  EXPECT_TRUE(COracle().Draw(timed).Draw(forever).Draw(image).IsShown());
  Tick(21);
  EXPECT_THAT(m_log.Take(), ElementsAre("INFO HandleTimerMsg voseq<0> str<timed> time<0> hide<1>"));
  EXPECT_TRUE(COracle().Draw(forever).Draw(image).IsShown());
  Show(timed);
  EXPECT_TRUE(COracle().Draw(timed).Draw(forever).Draw(image).IsShown());
  Tick(10);
  EXPECT_EQ(SizeAfterDelete(0xFFFF), "INFO m_listDispInfo.size=0");
  EXPECT_TRUE(COracle().IsShown());
}

TEST_F(List, DeleteGoesByNumberByClassAndByAll) {
  for (const UInt32 u32Seq : {0x101u, 0x105u, 0x201u, 0x301u, 0x401u, 0x501u, 0x601u})
    Show(Text(u32Seq, "item"));
  T_DispRecord twin = Text(0x105, "twin");  // by its id, the only way to a seq that is taken
  twin.m_u32Id = 1;
  Show(twin, kOsdShowById);
  const std::pair<UInt32, char> kSteps[] = {
      {0x105, '7'}, {0x105, '6'}, {0x105, '6'}, {0x201, '6'}, {0x2FF, '6'},  {0x6FF, '6'},
      {0x1FF, '5'}, {0x3FF, '4'}, {0x4FF, '3'}, {0x5FF, '2'}, {0xFF01, '2'}, {0xFFFF, '0'}};
  for (const auto& [u32Seq, size] : kSteps)
    EXPECT_EQ(SizeAfterDelete(u32Seq).back(), size) << std::hex << u32Seq;
  EXPECT_TRUE(COracle().IsShown());
}

TEST_F(List, CancelHidesWithinOneOutputAndKeepsTheTime) {
  const T_DispRecord five = Text(0x501, "five", 6);
  T_DispRecord other = Text(0x103, "other", 8);
  other.m_u16VoSeq = T_DispRecord::kAllOutputs;
  ShowAll({Text(0x101, "a"), Text(0x102, "b", 4), five, other});
  EXPECT_EQ(Cancel(0x101), 1u);
  EXPECT_TRUE(m_log.Has("INFO osd cancel disp voseq<0> osdseq<0x101>"));
  EXPECT_TRUE(COracle().Draw(Text(0x102, "b", 4)).Draw(five).Draw(other).IsShown());
  Cancel(0x1FF);
  Cancel(0x5FF);  // class 5 can only be cancelled with all others
  EXPECT_TRUE(COracle().Draw(five).Draw(other).IsShown());
  Cancel(0xFFFF);
  EXPECT_TRUE(COracle().Draw(other).IsShown());
  Tick(10);
  EXPECT_TRUE(m_log.Has("INFO HandleTimerMsg voseq<0> str<a> time<0> hide<1>"));
}

TEST_F(List, RedrawShowsWhatIsShownAndRestartsItsTime) {
  const T_DispRecord shown = Text(0x101, "shown");
  DeInit();
  ShowAll({shown, Text(0x102, "hidden", 4), Text(0x203, "class 2", 6)});
  Cancel(0x102);
  Tick(6);
  Init(0, 0, 640, 360);
  EXPECT_TRUE(m_log.Has("INFO DisplayDisInfoList: size<3>"));
  Tick(9);
  EXPECT_TRUE(COracle(640, 360).Draw(shown).IsShown());
  Tick();
  EXPECT_TRUE(COracle(640, 360).IsShown());
}

TEST_F(List, CancelAllHidesAndRefreshesButLeavesThePixels) {
  Init(1, 1);
  Show(Text(0x101, "item"));
  const UInt64 u64Before = Header('1').m_u64Sequence;
  SoftFail(kFbRefresh, 1, EIO);
  m_log.Take();
  EXPECT_EQ(Send(Message(kOsdCancelAll)), 0u);
  EXPECT_THAT(m_log.Take(), ElementsAre("INFO -Osd_hifb_msg<0x50c>", "ERROR FBIO_REFRESH failed!",
                                        "INFO cancel all_disp done!"));
  EXPECT_EQ(Header('1').m_u64Sequence, u64Before + 2) << "the walk goes on";
  EXPECT_TRUE(COracle().Draw(Text(0x101, "item")).IsShown());
  Init();
  EXPECT_TRUE(COracle().IsShown());
}

TEST_F(List, ItemsCanBeShownAndCancelledBySourceAndId) {
  T_DispRecord item = Text(0, "one", 1, 16, 9);
  item.m_u32Id = 5;
  item.m_u16Line = 2;
  PutLine(item, 1, "two");
  EXPECT_EQ(Show(item, kOsdShowById), 1u);
  EXPECT_THAT(m_log.Take(), ElementsAre("INFO -Osd_hifb_msg<0x508>",
                                        "INFO osd disp src<9>,id<5>,pos<1>,rect<16,9,0,0>,line<2>",
                                        "INFO osd disp info<0:one>", "INFO osd disp info<1:two>"));
  T_DispRecord stranger = item;
  stranger.m_u32Source = 8;
  EXPECT_EQ(Show(stranger, kOsdCancelById), 1u);
  EXPECT_TRUE(COracle().Draw(item).IsShown());
  item.m_u16Line = 1;
  EXPECT_EQ(Show(item, kOsdShowById), 1u);
  EXPECT_TRUE(COracle().Draw(item).IsShown()) << "a line that is gone is erased";
  PutLine(item, 0, "eins");
  m_log.Take();
  EXPECT_EQ(Show(item, kOsdCancelById), 1u);
  EXPECT_THAT(m_log.Take(),
              ElementsAre("INFO -Osd_hifb_msg<0x509>",
                          "INFO osd cancel disp src<9>,id<5>,pos<1>,rect<16,9,0,0>,line<1>",
                          "INFO osd cancel disp info<0:eins>",
                          "ERROR calcel osd disp new<eins> != old<one>, idx = 0"));
  EXPECT_TRUE(COracle().IsShown());
  item.m_u16Line = 35;
  Show(item, kOsdShowById);
  Show(item, kOsdCancelById);
  EXPECT_TRUE(m_log.Has("ERROR disp line num<35> error"));
  EXPECT_TRUE(m_log.Has("ERROR cancel disp line num<35> error"));
  EXPECT_EQ(SizeAfterDelete(0xFFFF), "INFO m_listDispInfo.size=0");
}

}  // namespace
