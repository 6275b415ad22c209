// A layer of the software screen as its file must hold it, read by its offsets alone.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "framework/types.h"

inline std::string ReadFile(const std::string& i_path) {
  std::ostringstream text;
  text << std::ifstream(i_path).rdbuf();
  return text.str();
}

// Pixels row by row without padding, empty at first.
struct T_Picture {
  SInt32 m_s32X = 0;
  SInt32 m_s32Y = 0;
  UInt32 m_u32W = 0;
  UInt32 m_u32H = 0;
  std::vector<UInt32> m_pixels = std::vector<UInt32>(size_t{m_u32W} * m_u32H);
};

// Whether the file i_path holds i_picture, shown and with no refresh under way.
inline testing::AssertionResult IsShown(const T_Picture& i_picture, const std::string& i_path) {
  const auto& [x, y, w, h, wanted] = i_picture;
  const UInt32 aHeader[] = {
      0x4C44534F, 0x52455941, 1,   w, h, w * 4, static_cast<UInt32>(x), static_cast<UInt32>(y),
      1,          3,          255, 0};
  const std::string file = ReadFile(i_path);
  testing::AssertionResult differs = testing::AssertionFailure() << i_path << ": ";
  if (file.size() < 4096 + wanted.size() * 4) return differs << "too short";
  if (std::memcmp(file.data(), aHeader, sizeof(aHeader)) != 0) return differs << "another header";
  if (file[48] & 1) return differs << "a refresh without end";
  std::vector<UInt32> pixels(wanted.size());
  std::memcpy(pixels.data(), file.data() + 4096, pixels.size() * 4);
  const auto [is, should] = std::mismatch(pixels.begin(), pixels.end(), wanted.begin());
  if (is == pixels.end()) return testing::AssertionSuccess();
  const auto at = static_cast<size_t>(is - pixels.begin());
  return differs << "column " << at % w << ", row " << at / w << std::hex << ": " << *is
                 << " instead of " << *should;
}
