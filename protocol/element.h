// What names an element on an output, as requests carry it: the element's 16-bit number (osdSeq),
// the output's (voutSeq), and which fields of a text a request brings. Endpoint, renderer and tools
// share it; all values are in native byte order. No state; any thread.
#pragma once

#include "framework/types.h"

// osdSeq: the high byte is the class, the low byte the number within it. In requests that hide or
// delete, the number kEveryNumber means every one of the class and the class kEveryClass those of
// every class; kEveryElement is both.
inline constexpr UInt8 kEveryClass = 0xFF;
inline constexpr UInt8 kEveryNumber = 0xFF;
inline constexpr UInt16 kEveryElement = 0xFFFF;

// The class of pictures; texts of it have rules of their own, too.
inline constexpr UInt8 kImageClass = 2;

constexpr UInt8 ElementClass(UInt16 i_u16OsdSeq) { return static_cast<UInt8>(i_u16OsdSeq >> 8); }
constexpr UInt8 ElementNumber(UInt16 i_u16OsdSeq) { return static_cast<UInt8>(i_u16OsdSeq); }
constexpr UInt16 Element(UInt8 i_u8Class, UInt8 i_u8Number) {
  return static_cast<UInt16>(i_u8Class << 8 | i_u8Number);
}
static_assert(Element(kEveryClass, kEveryNumber) == kEveryElement);

// Outputs are numbered in 8 bits, though requests carry 16: the high byte of voutSeq says nothing.
// kEveryOutput means every one.
inline constexpr UInt16 kEveryOutput = 255;
constexpr UInt16 OutputOf(UInt16 i_u16VoutSeq) { return i_u16VoutSeq & 0xFF; }

// Bits of a text request's flag word: which fields it brings; an element keeps the others. With
// kMaskText its text follows them. kMaskForever brings nothing: the element stays until it is taken
// away.
enum : UInt32 {
  kMaskPosition = 0x01,  // position code and both offsets
  kMaskFontSize = 0x02,
  kMaskTextColour = 0x04,
  kMaskBackground = 0x08,
  kMaskText = 0x10,
  kMaskForever = 0x20
};
