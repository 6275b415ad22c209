#include <sys/resource.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <functional>
#include <tuple>

#include "platform/soft/faults.h"
#include "tests/platform/scene.h"

namespace {

TEST(SoftOrder, EveryOtherRequestIsRefusedAndChangesNothing) {
  std::vector<UInt32> requests = kSetUp;
  requests.insert(requests.end(), {kFbRefresh, 0x4602, 0});
  for (size_t done = 0; done <= kSetUp.size(); ++done) {
    std::vector<UInt32> taken{done < kSetUp.size() ? kSetUp[done] : kFbRefresh};
    if (done == 3) taken.push_back(kFbPutVScreenInfo);  // a driver without the capability
    if (done == 4) taken.push_back(kFbGetCapability);
    if (done == 7) taken.push_back(kFbShow);
    CScene scene;
    scene.SetUp(done);
    for (const UInt32 u32Request : requests) {
      if (std::ranges::count(taken, u32Request) != 0) continue;
      EXPECT_EQ(scene.Do(u32Request), EINVAL) << std::hex << u32Request << " after " << done;
    }
    EXPECT_EQ(scene.Do(taken.back()), 0);
  }
}

TEST(SoftRecords, EachWrongFieldIsRefused) {
  const std::vector<std::pair<UInt32, std::function<void(CScene&)>>> damages = {
      {kFbPutAlpha, [](CScene& s) { s.m_alpha.m_u32Enable = 2; }},
      {kFbPutOrigin, [](CScene& s) { s.m_origin.m_s32Y = -8193; }},
      {kFbPutVScreenInfo, [](CScene& s) { s.m_info.xres = s.m_info.xres_virtual = 0; }},
      {kFbPutVScreenInfo, [](CScene& s) { s.m_info.yres = s.m_info.yres_virtual = 8193; }},
      {kFbPutVScreenInfo, [](CScene& s) { s.m_info.transp.length = 1; }},
      {kFbPutVScreenInfo, [](CScene& s) { s.m_info.pixclock = 0; }},  // not as it was read
      {kFbPutLayerInfo, [](CScene& s) { s.m_buffering.m_u32CanvasW = 8; }},
      {kFbShow, [](CScene& s) { s.m_show.m_u32Shown = 2; }},
      {kFbRefresh, [](CScene& s) { s.m_refresh.m_u64Physical += 4096; }},
      {kFbRefresh, [](CScene& s) { s.m_refresh.m_u32Pitch = 8; }},
      {kFbRefresh, [](CScene& s) { s.m_refresh.m_u32Format = 0; }},
      {kFbRefresh, [](CScene& s) { s.m_refresh.m_s32X = 1; }},
      {kFbRefresh, [](CScene& s) { s.m_refresh.m_u32RectH = ~0U; }},
  };
  for (const auto& [u32Request, damage] : damages) {
    CScene scene;
    scene.SetUp(static_cast<size_t>(std::ranges::find(kSetUp, u32Request) - kSetUp.begin()));
    damage(scene);
    EXPECT_EQ(scene.Do(u32Request), EINVAL) << std::hex << u32Request;
  }
}

TEST(SoftRefresh, ShowsTheRectangleAndNothingBeforeIt) {
  CScene scene;
  scene.m_origin = {30, -5};
  scene.SetUp().Paint(0xFF123456);
  const T_LayerImage before = scene.Seen();
  EXPECT_EQ(before.m_vecArgb, std::vector<UInt32>(32, 0));
  EXPECT_EQ(std::tie(before.m_bShown, before.m_s32X, before.m_s32Y, before.m_u32AlphaFlags,
                     before.m_u32GlobalAlpha),
            std::make_tuple(true, 30, -5, 3U, 255U));
  scene.m_refresh.m_s32X = 6;
  scene.m_refresh.m_s32Y = 2;
  scene.m_refresh.m_u32RectW = scene.m_refresh.m_u32RectH = 2;
  EXPECT_EQ(scene.Do(kFbRefresh), 0);
  std::vector<UInt32> expected(32, 0);
  for (const size_t pixel : {22U, 23U, 30U, 31U}) expected[pixel] = 0xFF123456;
  EXPECT_EQ(scene.Seen().m_vecArgb, expected);
  EXPECT_EQ(scene.Seen().m_u64Sequence, before.m_u64Sequence + 2);
  scene.m_show.m_u32Shown = 0;
  EXPECT_EQ(scene.Do(kFbShow), 0);
  EXPECT_EQ(scene.Do(kFbRefresh), EINVAL);
}

TEST(SoftLayer, ReopeningStartsOverButNeverShrinksTheFile) {
  UInt64 u64Sequence;
  {
    CScene large('1', 64, 64);
    large.SetUp().Paint(~0U);
    EXPECT_EQ(large.Do(kFbRefresh), 0);
    u64Sequence = large.Seen().m_u64Sequence;
    { CScene second('1', 8, 4); }  // not the last user: the layer stays shown
    EXPECT_TRUE(large.Seen().m_bShown);
  }
  CScene small('1');
  EXPECT_FALSE(small.Seen().m_bShown);
  const T_LayerImage layer = small.SetUp().Seen();
  EXPECT_EQ(layer.m_vecArgb, std::vector<UInt32>(32, 0));
  EXPECT_EQ(layer.m_u64Sequence, u64Sequence);
  EXPECT_EQ(std::filesystem::file_size(small.File()), 4096U + 64 * 64 * 4);
}

TEST(SoftLayer, AFileThatIsLostOrForeignIsAnErrorAndNoCrash) {
  const std::string file = SystemPath("/dev/fb2");
  {
    CScene scene('2');
    scene.SetUp();
    std::filesystem::resize_file(file, 0);
    EXPECT_EQ(scene.Do(kFbRefresh), EIO);
  }
  {
    CScene scene('2');
    scene.SetUp();
    std::filesystem::remove(file);
    EXPECT_EQ(scene.Do(kFbRefresh), EIO);
  }
  EXPECT_EQ(DeviceOpen("/dev/fb2"), -1);
  EXPECT_EQ(errno, ENOENT);
  std::ofstream(file) << "somebody's text";
  EXPECT_EQ(DeviceOpen("/dev/fb2"), -1);
  EXPECT_EQ(errno, ENODEV);
  EXPECT_EQ(Contents(file), "somebody's text");
  std::ofstream{file};  // empty again, for the tests that follow
}

TEST(SoftLayer, AFileThatCannotGrowIsRefusedBeforeAnyWrite) {
  CScene scene('3', 512, 512);
  scene.SetUp(4);
  std::signal(SIGXFSZ, SIG_IGN);
  const rlimit limit{100'000, RLIM_INFINITY};
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
  EXPECT_EQ(scene.Do(kFbPutVScreenInfo), EFBIG);
  const rlimit unlimited{RLIM_INFINITY, RLIM_INFINITY};
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &unlimited), 0);
  EXPECT_EQ(scene.Seen().m_u32Width, 0U);
  EXPECT_EQ(scene.Do(kFbPutVScreenInfo), 0);
}

TEST(SoftMemory, FreedAndSmallCanvasesAreUnknownToTheDriver) {
  CScene scene;
  scene.SetUp();
  T_ContiguousMemory small{};
  T_ContiguousMemory freed{};
  EXPECT_FALSE(ContiguousAlloc(0, &small));
  ASSERT_TRUE(ContiguousAlloc(8 * 4 * 4 - 1, &small));
  ASSERT_TRUE(ContiguousAlloc(8 * 4 * 4, &freed));
  EXPECT_NE(static_cast<UInt8*>(freed.m_pVirtual)[0], 0) << "nobody may count on zeros";
  ContiguousFree(freed);
  for (const T_ContiguousMemory& canvas : {small, freed}) {
    scene.m_refresh.m_u64Physical = canvas.m_u32Physical;
    EXPECT_EQ(scene.Do(kFbRefresh), EINVAL);
  }
  ContiguousFree(small);
  ContiguousFree(freed);
  EXPECT_EQ(SoftUsage().m_u32Canvases, 1U);
  EXPECT_EQ(SoftUsage().m_u32OpenDevices, 1U);
}

TEST(SoftFaults, TheNthCallFailsOnceAndDoesNothing) {
  T_ContiguousMemory memory{};
  SoftFail(kSoftCallAlloc, 1, ENOMEM);
  EXPECT_FALSE(ContiguousAlloc(64, &memory));
  SoftFail(kSoftCallOpen, 1, EACCES);
  EXPECT_EQ(DeviceOpen("/dev/fb0"), -1);
  EXPECT_EQ(errno, EACCES);
  CScene scene;
  scene.SetUp().Paint(7);
  SoftFail(kFbRefresh, 2, EIO);
  EXPECT_EQ(scene.Do(kFbRefresh), 0);
  scene.Paint(8);
  EXPECT_EQ(scene.Do(kFbRefresh), EIO);
  EXPECT_EQ(scene.Seen().m_vecArgb[0], 7U);
  SoftFail(kFbRefresh, 1, EIO);
  SoftFailNothing();
  EXPECT_EQ(scene.Do(kFbRefresh), 0);
  EXPECT_EQ(scene.Seen().m_vecArgb[0], 8U);
}

}  // namespace
