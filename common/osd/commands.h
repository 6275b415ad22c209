// The renderer's commands on the bus, and the layout of their payloads.
#pragma once

#include "framework/types.h"

enum : UInt32 {
  kOsdInit = 0x500,        // words vodev, layer, x, y, w, h
  kOsdDeInit = 0x501,      // as kOsdInit; only vodev is used
  kOsdReInit = 0x502,      // as kOsdInit
  kOsdTextShow = 0x503,    // Block(): a T_DispRecord, see below
  kOsdTextCancel = 0x504,  // u16 voseq, u16 osdseq
  kOsdIconShow = 0x505,    // as kOsdTextShow; the text area holds the path
  kOsdIconHide = 0x506,    // u16 voseq, u16 osdseq, u16 kGuideAlone to spare the icons
  kOsdGuide = 0x507,       // u16 voseq, u16 osdseq: the guide screen of the device
  kOsdShowById = 0x508,    // as kOsdTextShow; add or update by source and id
  kOsdCancelById = 0x509,  // as kOsdTextShow; cancel by source and id
  kOsdDelete = 0x50A,      // u16 osdseq
  kOsdPicture = 0x50B,     // ten words, or from the renderer itself its result, see below
  kOsdCancelAll = 0x50C    // none
};

// A display record that travels by address comes from `new T_DispRecord`. When the message is
// asynchronous the renderer deletes it, whatever becomes of the request; when it is synchronous,
// or the bus did not accept it, it stays the sender's.

inline constexpr UInt16 kGuideAlone = 0xFF;

// A picture that has been read comes back to the renderer as kOsdPicture, too, since it knows no
// numbers beyond these: from kModuleOsd, with Block() a T_PictureResult that the renderer deletes.
//
// kOsdPicture: nine words, then the address of the path (new char[], NUL-terminated, null when
// there is none), which the renderer owns once the bus has accepted the message.
inline constexpr UInt32 kPictureOutSeqWord = 7;   // low half output, high half osdseq
inline constexpr UInt32 kPicturePathLenWord = 8;  // bytes without the NUL
inline constexpr UInt32 kPicturePathOffset = 36;
