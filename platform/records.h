// The framebuffer driver's requests and records: the one place that knows its layouts. All fields
// are little-endian 32-bit words unless said otherwise. docs/porting.md lists what an integrator
// confirms against the driver's own header.
#pragma once

#include <linux/fb.h>

#include "framework/types.h"

enum : UInt32 {
  kFbGetVScreenInfo = 0x4600,     // fb_var_screeninfo
  kFbPutVScreenInfo = 0x4601,     // fb_var_screeninfo
  kFbPutAlpha = 0x400C465D,       // T_FbAlpha
  kFbPutOrigin = 0x4008465F,      // T_FbPoint
  kFbGetCapability = 0x80CC4667,  // T_FbCapability
  kFbPutLayerInfo = 0x40304678,   // T_FbLayerInfo
  kFbShow = 0x40044665,           // T_FbShow
  kFbRefresh = 0x4028467C         // T_FbRefresh
};

struct T_FbAlpha {
  UInt32 m_u32Enable;
  UInt32 m_u32Channel;  // 1 = alpha of each pixel
  UInt8 m_u8Alpha0;
  UInt8 m_u8Alpha1;
  UInt8 m_u8Global;
  UInt8 m_u8Reserved;
};
static_assert(sizeof(T_FbAlpha) == 12);

struct T_FbPoint {
  SInt32 m_s32X;
  SInt32 m_s32Y;
};
static_assert(sizeof(T_FbPoint) == 8);

struct T_FbLayerInfo {
  static constexpr UInt32 kOneBuffer = 1;
  static constexpr UInt32 kMaskBufferMode = 1;

  UInt32 m_u32BufferMode;
  UInt32 m_u32AntiFlicker;
  SInt32 m_s32X;
  SInt32 m_s32Y;
  UInt32 m_u32CanvasW;
  UInt32 m_u32CanvasH;
  UInt32 m_u32DisplayW;
  UInt32 m_u32DisplayH;
  UInt32 m_u32ScreenW;
  UInt32 m_u32ScreenH;
  UInt32 m_u32Premultiplied;
  UInt32 m_u32Mask;  // bit 0: the buffer mode is valid
};
static_assert(sizeof(T_FbLayerInfo) == 48);

struct T_FbCapability {
  UInt32 m_aOther[43];
  UInt32 m_u32MaxW;
  UInt32 m_u32MaxH;
  UInt32 m_u32MinW;
  UInt32 m_u32MinH;
  UInt32 m_aMore[4];
};
static_assert(sizeof(T_FbCapability) == 204);

struct T_FbShow {
  UInt32 m_u32Shown;
};
static_assert(sizeof(T_FbShow) == 4);

// The driver's code of ARGB8888 in a refresh.
inline constexpr UInt32 kFbFormatArgb8888 = 7;

struct T_FbRefresh {
  UInt64 m_u64Physical;
  UInt32 m_u32Width;   // px
  UInt32 m_u32Height;  // px
  UInt32 m_u32Pitch;   // bytes
  UInt32 m_u32Format;  // kFbFormatArgb8888
  SInt32 m_s32X;       // the rectangle that changed, px within the canvas
  SInt32 m_s32Y;
  UInt32 m_u32RectW;
  UInt32 m_u32RectH;
};
static_assert(sizeof(T_FbRefresh) == 40);
