// A device root made by tools/device-root for the whole program, and layers set up on it.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "platform/platform.h"
#include "platform/records.h"
#include "tools/screenshot.h"

inline const std::vector<UInt32> kSetUp = {kFbPutAlpha,      kFbGetVScreenInfo, kFbPutOrigin,
                                           kFbGetCapability, kFbPutVScreenInfo, kFbPutLayerInfo,
                                           kFbShow};

inline std::string Contents(const std::string& i_path) {
  std::ostringstream text;
  text << std::ifstream(i_path, std::ios::binary).rdbuf();
  return text.str();
}

// One layer with its canvas; the records start out right, and a test spoils what it wants refused.
class CScene {
 public:
  explicit CScene(char i_digit = '0', UInt32 i_u32Width = 8, UInt32 i_u32Height = 4)
      : m_device(std::string("/dev/fb") + i_digit),
        m_u32Width(i_u32Width),
        m_u32Height(i_u32Height) {
    EXPECT_TRUE(ContiguousAlloc(i_u32Width * i_u32Height * 4, &m_canvas));
    m_refresh.m_u64Physical = m_canvas.m_u32Physical;
    m_refresh.m_u32Width = m_refresh.m_u32RectW = i_u32Width;
    m_refresh.m_u32Height = m_refresh.m_u32RectH = i_u32Height;
    m_refresh.m_u32Pitch = i_u32Width * 4;
    m_refresh.m_u32Format = kFbFormatArgb8888;
    m_buffering.m_u32BufferMode = m_buffering.m_u32Mask = 1;
    m_s32Fd = DeviceOpen(m_device.c_str());
    EXPECT_GE(m_s32Fd, 0);
  }
  ~CScene() {
    DeviceClose(m_s32Fd);
    ContiguousFree(m_canvas);
  }

  // 0 or the errno of the request, with the record of this scene.
  SInt32 Do(UInt32 i_u32Request) {
    const auto row = m_records.find(i_u32Request);
    void* pRecord = row == m_records.end() ? &m_info : row->second;
    if (DeviceIoctl(m_s32Fd, i_u32Request, pRecord) != 0) return errno;
    if (i_u32Request == kFbGetVScreenInfo) Resize();
    return 0;
  }
  // The first i_count requests of the set-up.
  CScene& SetUp(size_t i_count = kSetUp.size()) {
    for (size_t i = 0; i < i_count; ++i) EXPECT_EQ(Do(kSetUp[i]), 0) << "step " << i;
    return *this;
  }
  void Paint(UInt32 i_u32Argb) { std::fill_n(Canvas(), m_u32Width * m_u32Height, i_u32Argb); }
  UInt32* Canvas() { return static_cast<UInt32*>(m_canvas.m_pVirtual); }
  std::string File() const { return SystemPath(m_device.c_str()); }
  // The layer as a viewer reads it.
  T_LayerImage Seen() const {
    std::string error;
    const auto layer = ReadLayer(File(), &error);
    EXPECT_TRUE(layer) << error;
    return layer.value_or(T_LayerImage{});
  }

  T_FbAlpha m_alpha{1, 1, 255, 255, 255, 0};
  fb_var_screeninfo m_info{};
  T_FbPoint m_origin{0, 0};
  T_FbCapability m_capability{};
  T_FbLayerInfo m_buffering{};
  T_FbShow m_show{1};
  T_FbRefresh m_refresh{};
  T_ContiguousMemory m_canvas{};
  SInt32 m_s32Fd = -1;

 private:
  void Resize() {
    m_info.xres = m_info.xres_virtual = m_u32Width;
    m_info.yres = m_info.yres_virtual = m_u32Height;
    m_info.bits_per_pixel = 32;
    m_info.transp = {24, 8, 0};
    m_info.red = {16, 8, 0};
    m_info.green = {8, 8, 0};
    m_info.blue = {0, 8, 0};
  }

  const std::map<UInt32, void*> m_records{
      {kFbPutAlpha, &m_alpha},      {kFbGetVScreenInfo, &m_info},
      {kFbPutOrigin, &m_origin},    {kFbGetCapability, &m_capability},
      {kFbPutVScreenInfo, &m_info}, {kFbPutLayerInfo, &m_buffering},
      {kFbShow, &m_show},           {kFbRefresh, &m_refresh}};
  std::string m_device;
  UInt32 m_u32Width;
  UInt32 m_u32Height;
};
