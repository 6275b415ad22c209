#include "common/osd/pictures/blend.h"

#include <cstring>

namespace {

constexpr UInt32 kOdd = 0x00FF00FF;  // red and blue, or alpha and green moved down

// i_u32Sum / 255 rounded; exact up to 255 * 255, and there is no tie.
constexpr UInt32 By255(UInt32 i_u32Sum) { return (i_u32Sum + 128 + ((i_u32Sum + 128) >> 8)) >> 8; }

// Two channels at once: By255 of i_u32Over * i_u32Alpha + i_u32Under * (255 - i_u32Alpha). No
// channel's sum leaves its 16 bits.
UInt32 MixPair(UInt32 i_u32Over, UInt32 i_u32Under, UInt32 i_u32Alpha) {
  const UInt32 u32Sum = i_u32Over * i_u32Alpha + i_u32Under * (255 - i_u32Alpha) + 0x00800080;
  return (u32Sum + (u32Sum >> 8 & kOdd)) >> 8 & kOdd;
}

// Onto an opaque pixel.
UInt32 MixOpaque(UInt32 i_u32Over, UInt32 i_u32Under, UInt32 i_u32Alpha) {
  const UInt32 u32Green = MixPair(i_u32Over >> 8 & 0xFF, i_u32Under >> 8 & 0xFF, i_u32Alpha);
  return 0xFF000000 | u32Green << 8 | MixPair(i_u32Over & kOdd, i_u32Under & kOdd, i_u32Alpha);
}

// Onto a translucent one: colours weighted, and one division a channel.
UInt32 MixTranslucent(UInt32 i_u32Over, UInt32 i_u32Under, UInt32 i_u32Alpha) {
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

UInt32 Mix(UInt32 i_u32Over, UInt32 i_u32Under, UInt32 i_u32Alpha) {
  if (i_u32Alpha == 0) return i_u32Under;
  if (i_u32Under >> 24 == 0) return i_u32Alpha << 24 | (i_u32Over & 0x00FFFFFF);
  if (i_u32Under >> 24 == 255) return MixOpaque(i_u32Over, i_u32Under, i_u32Alpha);
  return MixTranslucent(i_u32Over, i_u32Under, i_u32Alpha);
}

UInt32 OpaqueRun(const UInt32* i_pSource, UInt32 i_u32Count) {
  UInt32 u32Run = 0;
  while (u32Run < i_u32Count && i_pSource[u32Run] >= 0xFF000000) ++u32Run;
  return u32Run;
}

}  // namespace

void BlendRow(const UInt32* i_pSource, UInt32* io_pTarget, UInt32 i_u32Count, UInt32 i_u32Opacity) {
  for (UInt32 u32X = 0; u32X < i_u32Count;) {
    const UInt32 u32Run = i_u32Opacity == 255 ? OpaqueRun(i_pSource + u32X, i_u32Count - u32X) : 0;
    if (u32Run > 0) {
      std::memcpy(io_pTarget + u32X, i_pSource + u32X, size_t{u32Run} * sizeof(UInt32));
      u32X += u32Run;
      continue;
    }
    io_pTarget[u32X] =
        Mix(i_pSource[u32X], io_pTarget[u32X], By255((i_pSource[u32X] >> 24) * i_u32Opacity));
    ++u32X;
  }
}
