#include <png.h>

#include <fstream>
#include <thread>

#include "tests/platform/scene.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

TEST(ReadLayer, NeverMixesTwoRefreshes) {
  CScene scene(0, 512, 512);
  for (UInt32 u32Round = 0; u32Round < 100; ++u32Round) {
    std::thread painter([&] {
      for (UInt32 u32Burst = 0; u32Burst < 8; ++u32Burst) scene.Paint(u32Round * 8 + u32Burst);
    });
    const std::vector<UInt32> pixels = scene.Seen().m_vecArgb;
    EXPECT_EQ(std::ranges::count(pixels, pixels.empty() ? 0 : pixels[0]), 512 * 512);
    painter.join();
  }
}

TEST(ReadLayer, SaysWhatIsWrongWithAFile) {
  CScene scene(4);
  const auto spoiled = [&](std::streamoff i_offset, char i_byte) {
    std::string error;
    std::fstream(scene.m_file, std::ios::in | std::ios::out).seekp(i_offset).put(i_byte);
    EXPECT_FALSE(ReadLayer(scene.m_file, &error));
    return error;
  };
  EXPECT_THAT(spoiled(17, 31), HasSubstr(scene.m_file + ": it is shorter"));
  EXPECT_THAT(spoiled(48, 1), HasSubstr("it was being redrawn"));
  EXPECT_THAT(spoiled(0, 'X'), HasSubstr("not a layer file"));
  std::ofstream{scene.m_file};  // empty again, for the tests that follow
}

TEST(Composite, BlendsShownLayersInOrderAtTheirPlaces) {
  const T_LayerImage low{true, 0, 0, 2, 1, 3, 255, 0, {0x80FF0000, 0x0100FF00}};
  const T_LayerImage hidden{false, 0, 0, 1, 1, 3, 255, 0, {0xFFFFFFFF}};
  const T_LayerImage high{true, 1, 0, 2, 2, 3, 128, 0, {0x800000FF, 0xFF0000FF, 0, 0xFF00FFFF}};
  std::string error;
  EXPECT_THAT(Composite({low, hidden, high}, EBackdrop::kGrey, &error)->m_vecRgb,
              ElementsAre(192, 64, 64, 95, 96, 159, 64, 64, 192,  //
                          128, 128, 128, 128, 128, 128, 64, 192, 192));
}

TEST(Screenshot, IsAPngOfTheLayersOfTheDeviceRoot) {
  CScene scene(0, 1, 1);
  scene.Paint(0xFF0A0B0C);
  const std::string path = SystemPath("/screen.png");
  std::string error;
  ASSERT_TRUE(TakeScreenshot(path, EBackdrop::kBlack, &error)) << error;
  png_image png{};
  png.version = PNG_IMAGE_VERSION;
  ASSERT_TRUE(png_image_begin_read_from_file(&png, path.c_str())) << png.message;
  ASSERT_EQ(png.width * png.height, 1U);
  png.format = PNG_FORMAT_RGB;
  UInt8 aRgb[3];
  ASSERT_TRUE(png_image_finish_read(&png, nullptr, aRgb, 0, nullptr));
  EXPECT_THAT(aRgb, ElementsAre(10, 11, 12));
}

}  // namespace
