// Lays a row of pixels over another. No state; any thread.
#pragma once

#include "framework/types.h"

// i_u32Sum / 255 rounded; exact up to 255 * 255, and there is no tie.
constexpr UInt32 By255(UInt32 i_u32Sum) { return (i_u32Sum + 128 + ((i_u32Sum + 128) >> 8)) >> 8; }

// Source over: i_u32Count pixels of i_pSource onto io_pTarget, both ARGB8888 with straight alpha,
// the source's alpha multiplied by i_u32Opacity / 255 (0 to 255) and rounded. With s and d the
// alphas of source and target, the result's alpha is (255 s + d (255 - s)) / 255 and its colour the
// mean of both colours weighted 255 s and d (255 - s); each rounded to the nearest. Where s is 0
// nothing changes.
void BlendRow(const UInt32* i_pSource, UInt32* io_pTarget, UInt32 i_u32Count, UInt32 i_u32Opacity);
