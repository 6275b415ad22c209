#include "common/osd/pictures/blend.h"

#include <algorithm>
#include <cstring>

// All of it is inlined into one function for each set of vector instructions.
#define ALWAYS_INLINE [[gnu::always_inline]] inline

namespace {

// Pixels that are looked at together: most pictures are opaque, empty or over one kind of ground
// for longer than this, and each such case is a plain loop over bytes.
constexpr UInt32 kBlock = 64;

ALWAYS_INLINE UInt32 AlphaOf(UInt32 i_u32Argb, UInt32 i_u32Opacity) {
  return By255((i_u32Argb >> 24) * i_u32Opacity);
}

ALWAYS_INLINE void OntoOpaque(const UInt32* i_pSource, UInt32* io_pTarget, UInt32 i_u32Count,
                              UInt32 i_u32Opacity) {
  UInt32 aAlphas[kBlock];
  for (UInt32 i = 0; i < i_u32Count; ++i)
    aAlphas[i] = AlphaOf(i_pSource[i], i_u32Opacity) * 0x01010101;
  UInt8 aAlpha[sizeof(aAlphas)];
  UInt8 aOver[sizeof(aAlphas)];
  UInt8 aUnder[sizeof(aAlphas)];
  const size_t bytes = i_u32Count * sizeof(UInt32);
  std::memcpy(aAlpha, aAlphas, bytes);
  std::memcpy(aOver, i_pSource, bytes);
  std::memcpy(aUnder, io_pTarget, bytes);
  for (size_t i = 0; i < bytes; ++i) {
    const auto u16Sum =
        static_cast<UInt16>(aOver[i] * aAlpha[i] + aUnder[i] * (255 - aAlpha[i]) + 128);
    aUnder[i] = static_cast<UInt8>((u16Sum + (u16Sum >> 8)) >> 8);
  }
  std::memcpy(io_pTarget, aUnder, bytes);
  for (UInt32 i = 0; i < i_u32Count; ++i) io_pTarget[i] |= 0xFF000000;
}

ALWAYS_INLINE void OntoNothing(const UInt32* i_pSource, UInt32* io_pTarget, UInt32 i_u32Count,
                               UInt32 i_u32Opacity) {
  for (UInt32 i = 0; i < i_u32Count; ++i) {
    const UInt32 u32Alpha = AlphaOf(i_pSource[i], i_u32Opacity);
    io_pTarget[i] = u32Alpha != 0 ? u32Alpha << 24 | (i_pSource[i] & 0x00FFFFFF) : io_pTarget[i];
  }
}

// Colours weighted, and one division a channel.
ALWAYS_INLINE UInt32 Mix(UInt32 i_u32Over, UInt32 i_u32Under, UInt32 i_u32Alpha) {
  const UInt32 u32Over = 255 * i_u32Alpha;
  const UInt32 u32Under = (i_u32Under >> 24) * (255 - i_u32Alpha);
  const UInt32 u32All = u32Over + u32Under;
  UInt32 u32Argb = By255(u32All) << 24;
  for (UInt32 u32Shift = 0; u32Shift < 24; u32Shift += 8) {
    const UInt32 u32Sum =
        (i_u32Over >> u32Shift & 0xFF) * u32Over + (i_u32Under >> u32Shift & 0xFF) * u32Under;
    u32Argb |= (2 * u32Sum + u32All) / (2 * u32All) << u32Shift;
  }
  return u32Argb;
}

ALWAYS_INLINE void OntoAny(const UInt32* i_pSource, UInt32* io_pTarget, UInt32 i_u32Count,
                           UInt32 i_u32Opacity) {
  for (UInt32 i = 0; i < i_u32Count; ++i) {
    const UInt32 u32Alpha = AlphaOf(i_pSource[i], i_u32Opacity);
    if (u32Alpha != 0) io_pTarget[i] = Mix(i_pSource[i], io_pTarget[i], u32Alpha);
  }
}

// What holds for all of some pixels.
struct T_Alphas {
  ALWAYS_INLINE T_Alphas(const UInt32* i_pPixels, UInt32 i_u32Count) {
    UInt32 u32All = ~0U;
    UInt32 u32Any = 0;
    for (UInt32 i = 0; i < i_u32Count; ++i) {
      u32All &= i_pPixels[i];
      u32Any |= i_pPixels[i];
    }
    m_bOpaque = u32All >> 24 == 0xFF;
    m_bEmpty = u32Any >> 24 == 0;
  }
  Bool m_bOpaque;
  Bool m_bEmpty;
};

ALWAYS_INLINE void BlendBlock(const UInt32* i_pSource, UInt32* io_pTarget, UInt32 i_u32Count,
                              UInt32 i_u32Opacity) {
  const T_Alphas source(i_pSource, i_u32Count);
  if (source.m_bEmpty) return;
  if (source.m_bOpaque && i_u32Opacity == 255) {
    std::memcpy(io_pTarget, i_pSource, i_u32Count * sizeof(UInt32));
    return;
  }
  const T_Alphas target(io_pTarget, i_u32Count);
  if (target.m_bOpaque) return OntoOpaque(i_pSource, io_pTarget, i_u32Count, i_u32Opacity);
  if (target.m_bEmpty) return OntoNothing(i_pSource, io_pTarget, i_u32Count, i_u32Opacity);
  OntoAny(i_pSource, io_pTarget, i_u32Count, i_u32Opacity);
}

ALWAYS_INLINE void BlendBlocks(const UInt32* i_pSource, UInt32* io_pTarget, UInt32 i_u32Count,
                               UInt32 i_u32Opacity) {
  for (UInt32 x = 0; x < i_u32Count; x += kBlock)
    BlendBlock(i_pSource + x, io_pTarget + x, std::min(kBlock, i_u32Count - x), i_u32Opacity);
}

void BlendPlain(const UInt32* i_pSource, UInt32* io_pTarget, UInt32 i_u32Count,
                UInt32 i_u32Opacity) {
  BlendBlocks(i_pSource, io_pTarget, i_u32Count, i_u32Opacity);
}

#ifdef __x86_64__
[[gnu::target("avx2")]] void BlendAvx2(const UInt32* i_pSource, UInt32* io_pTarget,
                                       UInt32 i_u32Count, UInt32 i_u32Opacity) {
  BlendBlocks(i_pSource, io_pTarget, i_u32Count, i_u32Opacity);
}
#endif

// The best that the processor has.
auto* BestBlend() {
#ifdef __x86_64__
  if (__builtin_cpu_supports("avx2")) return &BlendAvx2;
#endif
  return &BlendPlain;
}

}  // namespace

void BlendRow(const UInt32* i_pSource, UInt32* io_pTarget, UInt32 i_u32Count, UInt32 i_u32Opacity) {
  static const auto s_pBlend = BestBlend();
  s_pBlend(i_pSource, io_pTarget, i_u32Count, i_u32Opacity);
}
