#include <filesystem>
#include <optional>

#include "platform/records.h"
#include "tests/platform/scene.h"

namespace {

// Named before any test asks for a path: the device root is read once.
class CDeviceRoot : public testing::Environment {
 public:
  void SetUp() override {
    char aFolder[] = "/tmp/osd platform.XXXXXX";
    ASSERT_EQ(setenv("OSD_ROOT", mkdtemp(aFolder), 1), 0);
    ASSERT_EQ(std::system((OSD_DEVICE_ROOT_TOOL " '" + SystemPath("") + "'").c_str()), 0);
  }
  void TearDown() override { std::filesystem::remove_all(SystemPath("")); }
};
const testing::Environment* const s_pRoot = testing::AddGlobalTestEnvironment(new CDeviceRoot);

TEST(SoftScreen, TakesRequestsInTheirOrderAlone) {
  const CDevice device(DeviceOpen("/dev/fb0"));
  const auto ioctl = [&device](UInt32 i_u32Request) {
    UInt32 aRecord[64] = {};  // any record of these requests fits in
    return DeviceIoctl(device.Get(), i_u32Request, aRecord);
  };
  for (UInt32 u32Next : {kFbPutAlpha, kFbGetVScreenInfo, kFbPutOrigin, kFbGetCapability}) {
    for (UInt32 u32Other : {kFbPutAlpha, kFbGetVScreenInfo, kFbPutOrigin, kFbGetCapability,
                            kFbPutVScreenInfo, kFbPutLayerInfo, kFbShow, kFbRefresh})
      EXPECT_TRUE(u32Other == u32Next || (ioctl(u32Other) == -1 && errno == EINVAL)) << u32Other;
    EXPECT_EQ(ioctl(u32Next), 0);
  }
}

TEST(SoftScreen, ShowsTheRectangleAloneAndNeverReadsBeyondTheCanvas) {
  CScene scene(1);
  EXPECT_TRUE(scene.Paint(1));
  EXPECT_TRUE(scene.Paint(2, {6, 2, 2, 2}));
  std::vector<UInt32> expected(32, 1);
  for (const size_t pixel : {22U, 23U, 30U, 31U}) expected[pixel] = 2;
  EXPECT_EQ(scene.Seen().m_vecArgb, expected);
  for (const T_Rect& rect : {T_Rect{1, 0, 8, 4}, T_Rect{0, 0, 8, ~0U}, T_Rect{~0U, 0, 1, 1}}) {
    EXPECT_TRUE(scene.Paint(1));
    EXPECT_FALSE(scene.Paint(3, rect));
    EXPECT_EQ(scene.Seen().m_vecArgb, std::vector<UInt32>(32, 1));
  }
}

TEST(SoftScreen, HoldsOpenDevicesAndCanvasesToTheirLimits) {
  CLogCapture log;
  std::vector<CDevice> devices;
  for (int i = 0; i < 64; ++i)
    devices.emplace_back(DeviceOpen(i % 2 == 0 ? "/dev/fb3" : "/dev/fb4"));
  EXPECT_GE(devices.back().Get(), 0);
  EXPECT_TRUE(DeviceOpen("/dev/fb3") == -1 && errno == EBUSY);
  devices.pop_back();
  devices.emplace_back(DeviceOpen("/dev/fb3"));
  EXPECT_GE(devices.back().Get(), 0);
  std::optional<CCanvasMemory> half(std::in_place);
  EXPECT_TRUE(half->Allocate(8192, 8192));
  EXPECT_FALSE(CCanvasMemory().Allocate(8192, 8193));
  EXPECT_TRUE(log.Has("ERROR no canvas memory of 268468224 bytes: Cannot allocate memory"));
  half.reset();
  EXPECT_TRUE(CCanvasMemory().Allocate(8192, 8193));
}

TEST(SoftScreen, AFileThatIsCutIsAnErrorAndNoCrash) {
  CScene cut(2);
  std::filesystem::resize_file(cut.m_file, 0);
  EXPECT_FALSE(cut.Paint(1));
}

}  // namespace
