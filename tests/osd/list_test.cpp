#include "tests/osd/scene.h"

namespace {

using testing::ElementsAre;
using List = Renderer;

TEST_F(List, ATextEndsTenTicksAfterItWasShownOrDrawnAgain) {
  const T_DispRecord shown = Text(0x101, "shown");
  T_DispRecord forever = Text(0x501, "for ever", 8);
  forever.m_u16Time = T_DispRecord::kForever;
  EXPECT_EQ(Show(shown) + Show(forever), 2u);
  EXPECT_EQ(Show(Text(0x102, "hidden", 4)) + Show(Text(0x203, "class 2", 6)), 2u);
  EXPECT_EQ(Send(Message(kOsdTextCancel, {0x102 << 16})), 1u);
  Send(Message(kOsdTextCancel, {0x5FF << 16}));  // class 5 goes with all others only
  Tick(6);
  Init(0, 0, 640, 360);
  m_log.Take();
  Tick(9);
  EXPECT_TRUE(Shows({shown, forever}, '0', 640, 360));
  Tick(10);
  EXPECT_THAT(m_log.Take(), ElementsAre("INFO HandleTimerMsg voseq<0> str<hidden> time<0> hide<1>",
                                        "INFO HandleTimerMsg voseq<0> str<shown> time<0> hide<1>"));
  EXPECT_TRUE(Shows({forever}, '0', 640, 360));
}

TEST_F(List, CancelAllHidesAndRefreshesButLeavesThePixels) {
  EXPECT_EQ(Init() + Init(1, 1) + Show(Text(0x101, "item")), 3u);
  const int before = Refreshes('1');
  SoftFail(kFbRefresh, 1, EIO);
  EXPECT_EQ(Send(Message(kOsdCancelAll)), 0u);
  EXPECT_EQ(Refreshes('1'), before + 1) << "the walk goes on";
  EXPECT_TRUE(Shows({Text(0x101, "item")}));
  Init();
  EXPECT_TRUE(Shows({}));
}

TEST_F(List, ItemsCanBeShownAndCancelledBySourceAndId) {
  EXPECT_EQ(Init() + Show(Text(0x105, "twin", 4)), 2u);
  T_DispRecord item = Text(0x105, "ten places", 0, 16, 9);
  AddLine(item, "four");
  item.m_u32Id = 5;
  EXPECT_EQ(Show(item, kOsdShowById), 1u);
  EXPECT_EQ(SizeAfterDelete(0x105), "INFO m_listDispInfo.size=1") << "the first of two";
  item.m_u32Source = 8;
  EXPECT_EQ(Show(item, kOsdCancelById), 1u);
  item.m_u32Source = 9;
  EXPECT_TRUE(Shows({item})) << "a stranger's cancel means another item";
  item.m_u16Line = 1;
  EXPECT_EQ(Show(item, kOsdShowById), 1u);
  EXPECT_TRUE(Shows({item})) << "a line that is gone is erased";
  item.m_aText[0][0] = 'T';
  EXPECT_EQ(Show(item, kOsdCancelById), 1u);
  EXPECT_TRUE(m_log.Has("ERROR calcel osd disp new<Ten places> != old<ten places>, idx = 0"));
  EXPECT_TRUE(Shows({}));
}

// Leaks and double frees show under the address sanitizer.
TEST_F(List, AsynchronousRecordsAreFreedWhateverBecomesOfThem) {
  const auto push = [this](T_ModuleMsg i_msg) {
    i_msg.m_u32MsgType = kAsyncMsg;
    EXPECT_EQ(m_osd->PushMsg(&i_msg), 1u);
  };
  const auto pushNew = [&](UInt32 i_u32MsgNo) {
    T_ModuleMsg msg = Message(i_u32MsgNo);
    msg.PutBlock(new T_DispRecord(Text(0x201, "x")));
    push(msg);
  };
  m_osd->Start();
  for (UInt32 number = 0; number < 65; ++number) EXPECT_EQ(Show(Text(0x100 + number, "x")), 1u);
  EXPECT_EQ(Show(Text(0x100, "x")), 0u) << "a full list refuses updates, too";
  for (const UInt32 u32MsgNo : {kOsdTextShow, kOsdIconShow, kOsdShowById, kOsdCancelById})
    pushNew(u32MsgNo);
  push(Message(kOsdDelete, {0x1FF}));
  pushNew(kOsdIconShow);
  T_ModuleMsg picture = Message(kOsdPicture);
  picture.Put<char*>(kPicturePathOffset, new char[2]{'p', '\0'});
  push(picture);
  push(Message(kOsdTextShow));
  while (!m_log.Has("ERROR osd message <0x503> without a display record")) CThread::Sleep(1);
  EXPECT_EQ(m_log.Count("ERROR too many osd info to disp, current size<65>"), 4);
  m_osd->Stop();
  EXPECT_EQ(SizeAfterDelete(0xFFFF), "INFO m_listDispInfo.size=0") << "the thread's end empties it";
  pushNew(kOsdTextShow);  // never handled
}

TEST_F(List, TextsNeedNoTerminator) {
  Init();
  T_DispRecord record = Text(0x101, "");
  std::fill_n(record.m_aText[0], sizeof(record.m_aText), 'x');
  record.m_u16Line = 34;
  record.m_u16FontSize = 32;
  EXPECT_EQ(Show(record), 1u);
  record.m_u16Seq = 0x201;  // an icon's path may fill all lines
  EXPECT_EQ(Show(record, kOsdIconShow), 1u);
  for (auto& line : record.m_aText) line[64] = '\0';
  EXPECT_TRUE(Shows({record}));
}

}  // namespace
