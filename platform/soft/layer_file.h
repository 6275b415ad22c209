// The file of one layer of the software screen, dev/fbN under the device root: this header, then
// from byte kPixelOffset the pixels, ARGB8888 rows of m_u32Stride bytes. All little-endian. The
// daemon is its only writer; viewers map or read it at any time. The file never shrinks.
#pragma once

#include <atomic>
#include <bit>
#include <cstddef>
#include <cstring>

#include "framework/types.h"

struct T_LayerHeader {
  static constexpr char kMagic[] = {'O', 'S', 'D', 'L', 'A', 'Y', 'E', 'R'};
  static constexpr UInt32 kVersion = 1;
  static constexpr UInt32 kPixelOffset = 4096;
  static constexpr UInt32 kPixelSize = 4;
  static constexpr UInt32 kMaxSide = 8192;  // px, width and height
  static constexpr UInt32 kAlphaEnabled = 1;
  static constexpr UInt32 kAlphaPerPixel = 2;

  char m_aMagic[8];
  UInt32 m_u32Version;
  UInt32 m_u32Width;   // px; 0 = never set up
  UInt32 m_u32Height;  // px
  UInt32 m_u32Stride;  // bytes
  SInt32 m_s32X;       // place of the layer's top left pixel on the screen, px
  SInt32 m_s32Y;
  UInt32 m_u32Shown;
  UInt32 m_u32AlphaFlags;
  UInt32 m_u32GlobalAlpha;
  UInt32 m_u32Zero;
  alignas(8) UInt64 m_u64Sequence;   // odd while a refresh is being copied; two per refresh
  alignas(8) UInt64 m_u64RefreshNs;  // monotonic clock of the last refresh; 0 = none since set-up

  Bool IsLayer() const {
    return std::memcmp(m_aMagic, kMagic, sizeof(kMagic)) == 0 && m_u32Version == kVersion;
  }
  // An empty file that grew its first page, seen before its header was complete.
  Bool IsBlank() const {
    constexpr char kNothing[sizeof(kMagic)] = {};
    return std::memcmp(m_aMagic, kNothing, sizeof(kNothing)) == 0 && m_u32Width == 0;
  }
};
static_assert(std::endian::native == std::endian::little);
static_assert(offsetof(T_LayerHeader, m_u32Version) == 8);
static_assert(offsetof(T_LayerHeader, m_u32Width) == 12);
static_assert(offsetof(T_LayerHeader, m_u32Height) == 16);
static_assert(offsetof(T_LayerHeader, m_u32Stride) == 20);
static_assert(offsetof(T_LayerHeader, m_s32X) == 24);
static_assert(offsetof(T_LayerHeader, m_s32Y) == 28);
static_assert(offsetof(T_LayerHeader, m_u32Shown) == 32);
static_assert(offsetof(T_LayerHeader, m_u32AlphaFlags) == 36);
static_assert(offsetof(T_LayerHeader, m_u32GlobalAlpha) == 40);
static_assert(offsetof(T_LayerHeader, m_u32Zero) == 44);
static_assert(offsetof(T_LayerHeader, m_u64Sequence) == 48);
static_assert(offsetof(T_LayerHeader, m_u64RefreshNs) == 56);
static_assert(sizeof(T_LayerHeader) == 64);
static_assert(std::atomic_ref<UInt64>::is_always_lock_free);

// Keeps the pixels' accesses on their side of the sequence's. The writer and its readers are
// different processes, so the compiler's own view of threads does not help.
inline void LayerFence() { __sync_synchronize(); }
