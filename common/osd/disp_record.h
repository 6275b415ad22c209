// The display record: what the endpoint hands to the renderer by address, and what the renderer
// keeps in its display list. Natural alignment, native byte order, 2336 bytes.
#pragma once

#include <cstddef>

#include "framework/types.h"
#include "protocol/element.h"

struct T_DispRecord {
  static constexpr UInt32 kMaxLines = 34;
  static constexpr UInt32 kLineSize = 65;  // 64 characters and a NUL
  static constexpr UInt32 kLineChars = 64;
  static constexpr UInt32 kMaxPath = kMaxLines * kLineSize - 1;  // bytes, without the NUL
  static constexpr UInt32 kKindText = 0;
  static constexpr UInt32 kKindIcon = 1;
  static constexpr UInt16 kForever = 0xFFFF;
  static constexpr UInt16 kTimedSeconds = 10;
  static constexpr UInt32 kDefaultBackground = 0x3F616161;

  UInt32 m_u32Source;    // sender's module number
  UInt32 m_u32Mask;      // kMask...: which fields of an update are valid
  UInt16 m_u16VoSeq;     // video output; kEveryOutput = every one
  UInt32 m_u32Kind;      // kKindText or kKindIcon
  UInt16 m_u16Seq;       // identity, see protocol/element.h
  UInt16 m_u16Time;      // seconds left; kForever; 0 = expired
  UInt8 m_u8Hide;        // 1 = not drawn now
  UInt32 m_u32Id;        // identity of the commands that go by source and id
  UInt32 m_u32Position;  // position code 0 to 8
  UInt32 m_u32X;         // horizontal offset on a grid 16000 wide
  UInt32 m_u32Y;         // vertical offset on a grid 9000 high
  UInt32 m_u32W;         // pictures only, on the same grid; both 0 = the picture's own pixels,
  UInt32 m_u32H;         // one of them 0 = as the picture's aspect asks
  UInt16 m_u16Line;      // lines in use
  char m_aText[kMaxLines][kLineSize];  // an icon's path fills as much of it as it needs
  UInt16 m_u16Opacity;                 // pictures only: 0 invisible to 255 as the picture is
  UInt8 m_aReserved[64];
  UInt16 m_u16FontSize;    // px on a screen 3840 px wide; 0 = default size and colours
  UInt32 m_u32TextColour;  // ARGB8888
  UInt32 m_u32Background;  // ARGB8888

  UInt8 Class() const { return ElementClass(m_u16Seq); }
  Bool IsIcon() const { return m_u32Kind == kKindIcon; }
  const char* Path() const { return m_aText[0]; }
  Bool IsOn(SInt32 i_s32VoDev) const {
    return m_u16VoSeq == kEveryOutput || m_u16VoSeq == i_s32VoDev;
  }
  // Whether a new layer of that output shows it again: not what is on every output.
  Bool ComesBackOn(SInt32 i_s32VoDev) const {
    return m_u16VoSeq == i_s32VoDev && m_u8Hide == 0 && Class() != kImageClass;
  }
};
static_assert(offsetof(T_DispRecord, m_u16VoSeq) == 8);
static_assert(offsetof(T_DispRecord, m_u8Hide) == 20);
static_assert(offsetof(T_DispRecord, m_u32Position) == 28);
static_assert(offsetof(T_DispRecord, m_u16Line) == 48);
static_assert(offsetof(T_DispRecord, m_aText) == 50);
static_assert(offsetof(T_DispRecord, m_u16Opacity) == 2260);
static_assert(offsetof(T_DispRecord, m_u16FontSize) == 2326);
static_assert(sizeof(T_DispRecord) == 2336);
