// Picture files that tests make, and pictures laid over one another pixel by pixel with floating
// point numbers, which share nothing with the product.
#pragma once

#include <png.h>

#include <cmath>
#include <filesystem>

#include "tests/layer_picture.h"

// Its path again. The file is an hour old, so that nothing takes it for one that is being written.
inline std::string WritePng(const std::string& i_path, const T_Picture& i_picture) {
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  image.width = i_picture.m_u32W;
  image.height = i_picture.m_u32H;
  image.format = PNG_FORMAT_BGRA;
  EXPECT_NE(
      png_image_write_to_file(&image, i_path.c_str(), 0, i_picture.m_pixels.data(), 0, nullptr), 0);
  using namespace std::filesystem;
  last_write_time(i_path, file_time_type::clock::now() - std::chrono::hours(1));
  return i_path;
}

inline UInt32 SourceOver(UInt32 i_u32Source, UInt32 i_u32Target, UInt32 i_u32Opacity) {
  const auto channel = [](UInt32 i_u32Pixel, UInt32 i_u32Shift) {
    return static_cast<double>(i_u32Pixel >> i_u32Shift & 0xFF);
  };
  const double s = std::round(channel(i_u32Source, 24) * i_u32Opacity / 255);
  const double d = channel(i_u32Target, 24);
  const double weight = 255 * s + d * (255 - s);
  if (s == 0) return i_u32Target;
  auto u32Pixel = static_cast<UInt32>(std::lround(weight / 255)) << 24;
  for (const UInt32 shift : {0U, 8U, 16U})
    u32Pixel |= static_cast<UInt32>(std::lround((channel(i_u32Source, shift) * 255 * s +
                                                 channel(i_u32Target, shift) * d * (255 - s)) /
                                                weight))
                << shift;
  return u32Pixel;
}

// i_icon with its top left pixel at i_u32X, i_u32Y; what lies outside is cut off.
inline void LayOver(const T_Picture& i_icon, UInt32 i_u32X, UInt32 i_u32Y, UInt32 i_u32Opacity,
                    T_Picture* io_pPicture) {
  for (UInt32 y = 0; y < i_icon.m_u32H && y + i_u32Y < io_pPicture->m_u32H; ++y)
    for (UInt32 x = 0; x < i_icon.m_u32W && x + i_u32X < io_pPicture->m_u32W; ++x) {
      UInt32& target = io_pPicture->m_pixels[(y + i_u32Y) * io_pPicture->m_u32W + x + i_u32X];
      target = SourceOver(i_icon.m_pixels[y * i_icon.m_u32W + x], target, i_u32Opacity);
    }
}
