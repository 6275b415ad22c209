#include <gmock/gmock.h>
#include <stdlib.h>

#include <filesystem>

#include "framework/log.h"
#include "tests/platform/scene.h"

namespace {

int MakeRoot() { return std::system((OSD_DEVICE_ROOT_TOOL " '" + SystemPath("") + "'").c_str()); }

// Named before any test asks for a path: the device root is read once.
class CDeviceRoot : public testing::Environment {
 public:
  void SetUp() override {
    char aFolder[] = "/tmp/osd platform.XXXXXX";
    ASSERT_NE(mkdtemp(aFolder), nullptr);
    ASSERT_EQ(setenv("OSD_ROOT", aFolder, 1), 0);
    ASSERT_EQ(MakeRoot(), 0);
  }
  void TearDown() override { std::filesystem::remove_all(SystemPath("")); }
};

const testing::Environment* const s_pDeviceRoot =
    testing::AddGlobalTestEnvironment(new CDeviceRoot);

TEST(DeviceRoot, ItsLogConfigurationWritesTheLog) {
  ASSERT_TRUE(CLog::Configure(SystemPath("/usr/local/etc/ztosdlog.conf").c_str()));
  LOG_INFO("a layer of %d px", 1920);
  LOG_DEBUG("not %s", "seen");
  T_ContiguousMemory unknown{0x1234, nullptr};
  ContiguousFree(unknown);
  CLog::Shutdown();
  EXPECT_THAT(
      Contents(SystemPath("/var/log/osdsrv.log")),
      testing::MatchesRegex(
          "20..-..-.. ..:..:..\\.... INFO a layer of 1920 px --\\[root_test.cpp:..\\]\n"
          "20..-..-.. ..:..:..\\.... ERROR free of unknown canvas memory at 0x1234 --\\[device.cpp:[0-9]+\\]\n"));
}

TEST(DeviceRoot, MakingItAgainKeepsWhatIsThere) {
  { CScene('5').SetUp(); }
  std::ofstream(SystemPath("/tmpfile/resolution.cfg")) << "width=7\n";
  std::filesystem::remove(SystemPath("/dev/fb6"));
  const std::string layer = Contents(SystemPath("/dev/fb5"));
  ASSERT_EQ(MakeRoot(), 0);
  EXPECT_EQ(Contents(SystemPath("/dev/fb5")), layer);
  EXPECT_EQ(Contents(SystemPath("/tmpfile/resolution.cfg")), "width=7\n");
  EXPECT_TRUE(std::filesystem::exists(SystemPath("/dev/fb6")));
}

}  // namespace
