#include "tools/screenshot.h"

#include <gmock/gmock.h>
#include <png.h>

#include <algorithm>
#include <atomic>
#include <thread>

#include "tests/platform/scene.h"

namespace {

using testing::HasSubstr;

// Writes i_value at byte i_offset of the layer file, behind the device's back.
template <class T>
void Poke(const std::string& i_path, std::streamoff i_offset, T i_value) {
  std::fstream file(i_path, std::ios::in | std::ios::out | std::ios::binary);
  file.seekp(i_offset).write(reinterpret_cast<const char*>(&i_value), sizeof(i_value));
}

TEST(ReadLayer, NeverMixesTwoRefreshes) {
  constexpr UInt32 kReads = 100;
  CScene scene('0', 512, 512);
  scene.SetUp();
  std::atomic<UInt32> reads{0};
  // Bursts of refreshes, each let go by a finished read: readers collide, but do not starve.
  std::thread painter([&] {
    UInt32 u32Colour = 0;
    for (UInt32 u32Seen = 0; u32Seen < kReads; u32Seen = reads) {
      for (int burst = 0; burst < 8; ++burst) {
        scene.Paint(++u32Colour);
        EXPECT_EQ(scene.Do(kFbRefresh), 0);
      }
      reads.wait(u32Seen);
    }
  });
  while (reads < kReads) {
    const std::vector<UInt32> pixels = scene.Seen().m_vecArgb;
    EXPECT_EQ(std::ranges::count(pixels, pixels.empty() ? 0 : pixels[0]), 512 * 512);
    ++reads;
    reads.notify_one();
  }
  painter.join();
}

TEST(ReadLayer, SaysWhatIsWrongWithAFile) {
  std::string error;
  CScene scene('4');
  scene.SetUp();
  const UInt64 u64Sequence = scene.Seen().m_u64Sequence;
  const auto why = [&error](const std::string& i_path) {
    return ReadLayer(i_path, &error) ? "nothing" : error;
  };
  Poke(scene.File(), 48, u64Sequence + 1);
  EXPECT_THAT(why(scene.File()), HasSubstr(scene.File() + ": it was being redrawn"));
  Poke(scene.File(), 48, u64Sequence);
  Poke(scene.File(), 16, 8000);
  EXPECT_THAT(why(scene.File()), HasSubstr("shorter"));
  Poke(scene.File(), 0, 'X');
  EXPECT_THAT(why(scene.File()), HasSubstr("not a layer file"));
  EXPECT_THAT(why("/nowhere"), HasSubstr("/nowhere: No such file"));
  EXPECT_EQ(why(SystemPath("/dev/fb7")), "nothing");  // empty: never set up
  std::ofstream{scene.File()};
}

TEST(Composite, BlendsShownLayersInOrderAtTheirPlaces) {
  T_LayerImage low{true, 0, 0, 2, 1, 3, 255, 0, {0x80FF0000, 0x0100FF00}};
  T_LayerImage high{true, 1, 0, 2, 2, 3, 128, 0, {0x800000FF, 0xFF0000FF, 0, 0xFF00FFFF}};
  std::string error;
  auto image = Composite({low, high}, Backdrop::kGrey, &error);
  ASSERT_TRUE(image) << error;
  EXPECT_EQ(image->m_u32Width, 3U);
  EXPECT_EQ(image->m_u32Height, 2U);
  EXPECT_EQ(image->m_vecRgb, (std::vector<UInt8>{192, 64, 64, 95, 96, 159, 64, 64, 192,  //
                                                 128, 128, 128, 128, 128, 128, 64, 192, 192}));
  low.m_u32AlphaFlags = 0;  // opaque whatever the pixels say
  high.m_bShown = false;
  image = Composite({low, high}, Backdrop::kBlack, &error);
  ASSERT_TRUE(image) << error;
  EXPECT_EQ(image->m_vecRgb, (std::vector<UInt8>{255, 0, 0, 0, 255, 0}));
  low.m_s32X = -1;
  low.m_u32AlphaFlags = 1;  // the same opacity for all pixels
  low.m_u32GlobalAlpha = 51;
  EXPECT_EQ(Composite({low}, Backdrop::kBlack, &error)->m_vecRgb, (std::vector<UInt8>{0, 51, 0}));
  low.m_s32X = -2;
  EXPECT_FALSE(Composite({low}, Backdrop::kBlack, &error));
  EXPECT_THAT(error, HasSubstr("no layer is shown"));
}

TEST(Screenshot, IsAPngOfTheLayersOfTheDeviceRoot) {
  CScene scene('0', 40, 20);
  scene.SetUp().Paint(0);
  scene.Canvas()[17] = 0xFF0A0B0C;
  ASSERT_EQ(scene.Do(kFbRefresh), 0);
  const std::string path = SystemPath("/screen.png");
  std::string error;
  ASSERT_TRUE(TakeScreenshot(path, Backdrop::kChecker, &error)) << error;
  png_image png{};
  png.version = PNG_IMAGE_VERSION;
  ASSERT_TRUE(png_image_begin_read_from_file(&png, path.c_str())) << png.message;
  ASSERT_EQ(png.width * png.height, 800U);
  png.format = PNG_FORMAT_RGB;
  std::vector<UInt8> rgb(PNG_IMAGE_SIZE(png));
  ASSERT_TRUE(png_image_finish_read(&png, nullptr, rgb.data(), 0, nullptr));
  EXPECT_EQ(rgb[0], 0x99);
  EXPECT_EQ(rgb[16 * 3], 0x66);
  EXPECT_EQ(std::vector<UInt8>(&rgb[51], &rgb[54]), (std::vector<UInt8>{10, 11, 12}));
  EXPECT_FALSE(TakeScreenshot(path + "/x.png", Backdrop::kBlack, &error));
  EXPECT_THAT(error, HasSubstr("/screen.png/x.png"));
}

}  // namespace
