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
  EXPECT_EQ(Send(T_OsdTextCancel{0, 0x102}), 1u);
  Send(T_OsdTextCancel{0, 0x5FF});  // class 5 goes with all others only
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
  EXPECT_EQ(Send(T_OsdCancelAll{}), 0u);
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
  EXPECT_EQ(Show<T_OsdShowById>(item), 1u);
  EXPECT_EQ(SizeAfterDelete(0x105), "INFO m_listDispInfo.size=1") << "the first of two";
  item.m_u32Source = 8;
  EXPECT_EQ(Show<T_OsdCancelById>(item), 1u);
  item.m_u32Source = 9;
  EXPECT_TRUE(Shows({item})) << "a stranger's cancel means another item";
  item.m_u16Line = 1;
  EXPECT_EQ(Show<T_OsdShowById>(item), 1u);
  EXPECT_TRUE(Shows({item})) << "a line that is gone is erased";
  item.m_aText[0][0] = 'T';
  EXPECT_EQ(Show<T_OsdCancelById>(item), 1u);
  EXPECT_TRUE(m_log.Has("ERROR calcel osd disp new<Ten places> != old<ten places>, idx = 0"));
  EXPECT_TRUE(Shows({}));
}

// Leaks and double frees show under the address sanitizer.
TEST_F(List, AsynchronousRecordsAreFreedWhateverBecomesOfThem) {
  const auto push = [this](const auto& i_command, UInt32 i_u32Src = kModuleEndpoint) {
    const T_ModuleMsg msg = MakeMessage(kAsyncMsg, i_u32Src, kModuleOsd, i_command);
    return m_osd->PushMsg(&msg);
  };
  const auto record = [] { return new T_DispRecord(Text(0x201, "x")); };
  const auto pushPicture = [&] {
    T_OsdPicture picture{};
    picture.m_pPath = new char[2]{'p', '\0'};
    return push(picture);
  };
  m_osd->Start();
  for (UInt32 number = 0; number < 65; ++number) EXPECT_EQ(Show(Text(0x100 + number, "x")), 1u);
  EXPECT_EQ(Show(Text(0x100, "x")), 0u) << "a full list refuses updates, too";
  EXPECT_EQ(push(T_OsdTextShow{record()}) + push(T_OsdIconShow{record()}), 2u);
  EXPECT_EQ(push(T_OsdShowById{record()}) + push(T_OsdCancelById{record()}), 2u);
  EXPECT_EQ(push(T_OsdDelete{0x1FF}) + push(T_OsdIconShow{record()}) + pushPicture(), 3u);
  EXPECT_EQ(push(T_OsdTextShow{nullptr}), 1u);
  while (!m_log.Has("ERROR osd message <0x503> without a display record")) CThread::Sleep(1);
  EXPECT_EQ(m_log.Count("ERROR too many osd info to disp, current size<65>"), 4);
  m_osd->Stop();
  EXPECT_EQ(SizeAfterDelete(0xFFFF), "INFO m_listDispInfo.size=0") << "the thread's end empties it";
  // Never handled; and what is refused stays the sender's.
  EXPECT_EQ(pushPicture() + push(T_OsdPictureResult{new T_PictureResult}, kModuleOsd), 2u);
  auto pRefused = std::make_unique<T_DispRecord>();
  for (; push(T_OsdTextShow{pRefused.get()}) != 0; pRefused = std::make_unique<T_DispRecord>())
    static_cast<void>(pRefused.release());
  EXPECT_TRUE(m_log.Has("ERROR COsdHifb pushmsg fail"));
}

TEST_F(List, TextsNeedNoTerminator) {
  Init();
  T_DispRecord record = Text(0x101, "");
  std::fill_n(record.m_aText[0], sizeof(record.m_aText), 'x');
  record.m_u16Line = 34;
  record.m_u16FontSize = 32;
  EXPECT_EQ(Show(record), 1u);
  record.m_u16Seq = 0x201;  // an icon's path may fill all lines
  EXPECT_EQ(Show<T_OsdIconShow>(record), 1u);
  for (auto& line : record.m_aText) line[64] = '\0';
  EXPECT_TRUE(Shows({record}));
}

}  // namespace
