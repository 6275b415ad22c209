// Records of the OSD requests with their field lists. A record belongs to the T_MsgParams that it
// hangs on and owns its text; offsets and widths follow from the field lists.
#pragma once

#include <memory>

#include "protocol/element.h"
#include "protocol/header.h"

// OsdInit: the screen area of an output.
struct T_MsgOsdScreenInfo : T_MsgBody {
  SInt32 m_s32VoDev = 0;
  SInt32 m_s32VideoLayer = 0;
  SInt32 m_s32X = 0;  // px
  SInt32 m_s32Y = 0;  // px
  UInt32 m_u32W = 0;  // px
  UInt32 m_u32H = 0;  // px

  template <class V, class M>
  static constexpr auto Fields(V&& v, M& m) {
    return v(m.m_s32VoDev, m.m_s32VideoLayer, m.m_s32X, m.m_s32Y, m.m_u32W, m.m_u32H);
  }
};

// Peers send the six fields, but the notice that this daemon sends has always been a bare header.
struct T_MsgOsdDeinit : T_MsgOsdScreenInfo {
  static constexpr UInt32 kMaxPacked = kMsgHeaderSize;
};

struct T_MsgOsdStringShow : T_MsgBody {
  UInt16 m_u16VoutSeq = 0;
  UInt16 m_u16OsdSeq = 0;
  UInt32 m_u32Flag = 0;  // kMask...
  UInt8 m_u8Align = 0;
  UInt16 m_u16X = 0;               // 16000ths of the canvas width
  UInt16 m_u16Y = 0;               // 9000ths of the canvas height
  UInt8 m_u8FontSize = 0;          // px on a screen 3840 px wide
  UInt32 m_u32TextColour = 0;      // 0xAARRGGBB
  UInt32 m_u32Background = 0;      // 0xAARRGGBB
  UInt16 m_u16StrLen = 0;          // bytes of m_pStr; 0 without kMaskText
  std::unique_ptr<char[]> m_pStr;  // not terminated; null without kMaskText

  template <class V, class M>
  static constexpr auto Fields(V&& v, M& m) {
    return v(m.m_u16VoutSeq, m.m_u16OsdSeq, m.m_u32Flag, m.m_u8Align, m.m_u16X, m.m_u16Y,
             m.m_u8FontSize, m.m_u32TextColour, m.m_u32Background,
             CFlaggedText(m.m_u32Flag, kMaskText, m.m_u16StrLen, m.m_pStr));
  }
};

struct T_MsgOsdDispImage : T_MsgBody {
  UInt16 m_u16VoutSeq = 0;
  UInt16 m_u16OsdSeq = 0;
  UInt32 m_u32StrLen = 0;           // bytes of m_pPath
  std::unique_ptr<char[]> m_pPath;  // not terminated; never null when decoded
  UInt16 m_u16X = 0;                // 16000ths of the canvas width
  UInt16 m_u16Y = 0;                // 9000ths of the canvas height
  UInt16 m_u16Width = 0;            // 16000ths of the canvas width
  UInt16 m_u16Height = 0;           // 9000ths of the canvas height
  UInt16 m_u16Opacity = 0;          // 0 to 255

  template <class V, class M>
  static constexpr auto Fields(V&& v, M& m) {
    return v(m.m_u16VoutSeq, m.m_u16OsdSeq, CText(m.m_u32StrLen, m.m_pPath), m.m_u16X, m.m_u16Y,
             m.m_u16Width, m.m_u16Height, m.m_u16Opacity);
  }
};

// An element of an output.
struct T_MsgOsdElem : T_MsgBody {
  UInt16 m_u16VoutSeq = 0;
  UInt16 m_u16OsdSeq = 0;

  template <class V, class M>
  static constexpr auto Fields(V&& v, M& m) {
    return v(m.m_u16VoutSeq, m.m_u16OsdSeq);
  }
};
struct T_MsgOsdCancelImage : T_MsgOsdElem {};
struct T_MsgOsdElemHide : T_MsgOsdElem {};
struct T_MsgOsdElemDel : T_MsgOsdElem {};

struct T_MsgOsdGuideShow : T_MsgBody {
  UInt16 m_u16OsdOut = 0;
  UInt16 m_u16OsdSeq = 0;
  UInt32 m_u32PathLen = 0;          // bytes of m_pPath without its terminator; 0 or at least 2
  std::unique_ptr<char[]> m_pPath;  // NUL-terminated; null when m_u32PathLen is 0

  template <class V, class M>
  static constexpr auto Fields(V&& v, M& m) {
    return v(m.m_u16OsdOut, m.m_u16OsdSeq, CPath(m.m_u32PathLen, m.m_pPath));
  }
};

struct T_MsgOsdTouchCalibration : T_MsgBody {
  UInt8 m_u8CalibrationMode = 0;

  template <class V, class M>
  static constexpr auto Fields(V&& v, M& m) {
    return v(m.m_u8CalibrationMode);
  }
};
