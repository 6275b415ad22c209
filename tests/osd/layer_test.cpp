#include <thread>

#include "tests/osd/scene.h"

namespace {

using testing::ElementsAre;
using Layers = Renderer;

void ExpectHeld(UInt32 i_u32Count) {
  EXPECT_EQ(SoftUsage().m_u32OpenDevices, i_u32Count);
  EXPECT_EQ(SoftUsage().m_u32Canvases, i_u32Count);
}

TEST_F(Layers, InitTellsItsStepsInOrderAndShowsAnEmptyLayer) {
  SoftFail(kFbGetCapability, 1, EIO);  // the one step that may fail
  EXPECT_EQ(Init(7, 2), 1u);
  EXPECT_THAT(
      m_log.Take(),
      ElementsAre("INFO -Osd_hifb_msg<0x500>", "INFO osd init vodev<7>,layer<2>,rect<3,4,960,540>",
                  "ERROR FBIOGET_CAPABILITY_HIFB failed!",
                  "INFO Canvas capacity max[w:0,h:0] min[w:0,h:0] screen[w:960,h:540]",
                  "INFO DisplayDisInfoList: size<0>", "INFO osd init for [2] ok size[1]"));
  EXPECT_TRUE(Shows({}, '2'));
}

TEST_F(Layers, EveryFailingStepIsToldAndLeavesNothingOpen) {
  const std::pair<UInt32, const char*> kFailures[] = {
      {kSoftCallOpen, "ERROR open /dev/fb0 failed!"},
      {kFbPutAlpha, "ERROR HiFb Set alpha failed!"},
      {kFbGetVScreenInfo, "ERROR GET_VSCREENINFO failed!"},
      {kFbPutOrigin, "ERROR set screen original show position failed!"},
      {kFbPutVScreenInfo, "ERROR PUT_VSCREENINFO failed!"},
      {kFbPutLayerInfo, "ERROR PUT_LAYER_INFO failed!"},
      {kFbShow, "ERROR FBIOPUT_SHOW_HIFB failed!"},
      {kSoftCallAlloc, "ERROR allocate memory (maxW*maxH*2 bytes) failed"}};
  for (const auto& [u32Call, pLine] : kFailures) {
    SoftFail(u32Call, 1, EIO);
    EXPECT_EQ(Init(), 0u) << pLine;
    EXPECT_EQ(m_log.Take().back(), pLine);
    ExpectHeld(0);
  }
  EXPECT_TRUE(g_vecSent.empty());
}

TEST_F(Layers, AWrongLayerOrSizeOpensNothing) {
  EXPECT_EQ(Init(0, 8) + Init(0, -1) + Init(0, 0, 0) + Init(0, 0, 960, 0), 0u);
  EXPECT_TRUE(m_log.Has("ERROR HandleOsdInitMsg layer<-1> err"));
  EXPECT_EQ(m_log.Count("ERROR HandleOsdInitMsg layer<0> err"), 2);
  // More bytes than can be asked for, also where 32 bits would wrap to few.
  EXPECT_FALSE(CCanvasMemory().Allocate(0x8000, 0x4000));
  EXPECT_FALSE(CCanvasMemory().Allocate(0x10000, 0x10000));
  ExpectHeld(0);
}

TEST_F(Layers, ASecondInitRebuildsTheLayerAtTheNewSize) {
  EXPECT_EQ(Init() + Init(0, 0, 320, 200), 2u);
  EXPECT_TRUE(m_log.Has("INFO osd deinit for [0]"));
  EXPECT_TRUE(Shows({}, '0', 320, 200));
  ExpectHeld(1);
  EXPECT_EQ(Send(T_OsdReInit{{0, 9, 3, 4, 64, 32}}), 1u) << "only the log tells";
  ExpectHeld(0);
  EXPECT_EQ(Send(T_OsdReInit{{0, 5, 3, 4, 64, 32}}), 1u);
  EXPECT_TRUE(Shows({}, '5', 64, 32));
}

TEST_F(Layers, StoppingGivesThemBackAndLeavesNobodyRoom) {
  EXPECT_EQ(Init(), 1u);
  m_osd->Stop();
  ExpectHeld(0);
  EXPECT_FALSE(m_osd->HasRoomFor(nullptr));
}

TEST_F(Layers, TheTickRunsWhileThereIsALayerAndRefusalsAreTriedAgain) {
  // A tick that is under way meanwhile is waited for by nobody, and waits for nobody.
  g_onSent = [this] { std::jthread([this] { Tick(1); }); };
  g_u32Answer = 0;
  Init(0, 0);  // refused
  g_u32Answer = 1;
  Init(1, 1);
  DeInit(0);
  g_u32Answer = 0;
  DeInit(1);  // refused: the tick still runs
  Init(1, 1);
  g_u32Answer = 1;
  DeInit(1);
  Init();
  Init();  // stops it and starts it again
  std::vector<UInt32> sent;
  for (const T_ModuleMsg& msg : g_vecSent) {
    sent.push_back(msg.m_u32MsgNo);
    EXPECT_EQ(std::tuple(msg.m_u32MsgType, msg.m_u32Src, msg.m_u32Dst), std::tuple(0u, 4u, 3u));
    const auto [u32Type, u32Id] = msg.Read<T_TimerCancel>();
    EXPECT_EQ(std::pair(u32Type, u32Id), std::pair(1u, 0u)) << "of the tick, which is the same";
  }
  EXPECT_EQ(g_vecSent[0].Read<T_TimerAdd>().m_u32Interval, 1000u);
  EXPECT_THAT(sent, ElementsAre(0x400, 0x400, 0x401, 0x401, 0x400, 0x401, 0x400));
}

}  // namespace
