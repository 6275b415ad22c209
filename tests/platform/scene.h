// A layer of the software screen as the renderer sets it up.
#pragma once

#include <gmock/gmock.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "common/osd/layers.h"
#include "tests/log_capture.h"
#include "tools/screenshot.h"

class CScene {
 public:
  explicit CScene(SInt32 i_s32Layer, UInt32 i_u32W = 8, UInt32 i_u32H = 4)
      : m_file(SystemPath(("/dev/fb" + std::to_string(i_s32Layer)).c_str())) {
    EXPECT_TRUE(SetUpLayer({0, i_s32Layer, 0, 0, i_u32W, i_u32H}, m_layers));
  }

  // Whether the driver took the refresh of i_rect after the whole canvas was painted.
  Bool Paint(UInt32 i_u32Argb, const T_Rect& i_rect = {}) {
    const T_Canvas canvas = m_layers.at(0).Canvas();
    std::fill_n(canvas.m_pPixels, canvas.m_u32W * canvas.m_u32H, i_u32Argb);
    CLogCapture log;
    m_layers.at(0).Refresh(i_rect);
    return !log.Has("ERROR FBIO_REFRESH failed!");
  }
  // The layer as a viewer reads it.
  T_LayerImage Seen() const {
    std::string error;
    return ReadLayer(m_file, &error).value_or(T_LayerImage{});
  }

  const std::string m_file;

 private:
  T_LayerMap m_layers;
};
