// What the renderer, module 4 of the bus, can be told: the body of each of its commands. Native byte
// order. Nothing is answered but the handler's 1 or 0, to who sends synchronously.
//
// What travels by address is allocated by the sender. When the message is asynchronous and the bus
// has accepted it, it is the renderer's, which frees it whatever becomes of the command. When the
// message is synchronous, or was not accepted, it stays the sender's.
#pragma once

#include <cstddef>

#include "daemon/common/ledger.h"
#include "daemon/common/module_msg.h"

struct T_DispRecord;
struct T_PictureResult;

// Who asked for a command stands behind its body.
inline constexpr UInt32 kAskerOffset = T_ModuleMsg::kPayloadSize - sizeof(void*) - sizeof(T_Asker);

inline void PutAsker(const T_Asker& i_asker, T_ModuleMsg& io_msg) {
  std::memcpy(io_msg.m_aPayload + kAskerOffset, &i_asker, sizeof(i_asker));
}
inline T_Asker ReadAsker(const T_ModuleMsg& i_msg) {
  T_Asker asker;
  std::memcpy(&asker, i_msg.m_aPayload + kAskerOffset, sizeof(asker));
  return asker;
}

// The layer of an output.
struct T_LayerRequest {
  SInt32 m_s32VoDev;  // video output, the layer's key
  SInt32 m_s32Layer;  // 0 to 7: /dev/fb0 to /dev/fb7
  SInt32 m_s32X;      // px, of the layer's left top pixel on the output
  SInt32 m_s32Y;
  UInt32 m_u32W;  // px
  UInt32 m_u32H;
};
static_assert(offsetof(T_LayerRequest, m_s32Layer) == 4 && offsetof(T_LayerRequest, m_s32X) == 8 &&
              offsetof(T_LayerRequest, m_s32Y) == 12 && offsetof(T_LayerRequest, m_u32W) == 16 &&
              offsetof(T_LayerRequest, m_u32H) == 20);

template <UInt32 t_u32MsgNo>
struct T_LayerCommand {
  static constexpr UInt32 kMsgNo = t_u32MsgNo;

  T_LayerRequest m_stLayer;
};
using T_OsdInit = T_LayerCommand<0x500>;    // sets it up, anew when it is there
using T_OsdDeInit = T_LayerCommand<0x501>;  // gives it up; only its output is looked at
using T_OsdReInit = T_LayerCommand<0x502>;  // the one after the other

// A display record, from `new`. Without one the command is refused.
template <UInt32 t_u32MsgNo>
struct T_RecordCommand {
  static constexpr UInt32 kMsgNo = t_u32MsgNo;
  static constexpr UInt32 kOffset = T_ModuleMsg::kPayloadSize - sizeof(void*);

  T_DispRecord* m_pRecord;
};
using T_OsdTextShow = T_RecordCommand<0x503>;    // adds the element, or updates it
using T_OsdIconShow = T_RecordCommand<0x505>;    // the same; the text area holds the path
using T_OsdShowById = T_RecordCommand<0x508>;    // as 0x503, by source and id
using T_OsdCancelById = T_RecordCommand<0x509>;  // hides the element of that source and id

// Hides what was shown on that very output; kEveryElement, and numbers and classes that mean every
// one, as protocol/element.h has them.
struct T_OsdTextCancel {
  static constexpr UInt32 kMsgNo = 0x504;

  UInt16 m_u16Output;
  UInt16 m_u16OsdSeq;
};
static_assert(offsetof(T_OsdTextCancel, m_u16OsdSeq) == 2);

// Hides pictures and the guide screen, on every output when that is kEveryOutput.
struct T_OsdIconHide {
  static constexpr UInt32 kMsgNo = 0x506;
  static constexpr UInt16 kGuideAlone = 0xFF;

  UInt16 m_u16Output;  // its low byte counts
  UInt16 m_u16OsdSeq;  // kEveryElement: any
  UInt16 m_u16What;    // kGuideAlone spares the pictures
};
static_assert(offsetof(T_OsdIconHide, m_u16OsdSeq) == 2 && offsetof(T_OsdIconHide, m_u16What) == 4);

// Shows the device's own guide screen.
struct T_OsdGuide {
  static constexpr UInt32 kMsgNo = 0x507;

  UInt16 m_u16Output;  // its low byte counts
  UInt16 m_u16OsdSeq;
};
static_assert(offsetof(T_OsdGuide, m_u16OsdSeq) == 2);

// Takes elements off the screen and out of the list, on whatever output they are.
struct T_OsdDelete {
  static constexpr UInt32 kMsgNo = 0x50A;

  UInt16 m_u16OsdSeq;
};

// Shows a picture as the guide screen. The request's address and header come with it; the renderer
// does not look at them. Packed, since the address of the path stands where no pointer would.
struct __attribute__((packed)) T_OsdPicture {
  static constexpr UInt32 kMsgNo = 0x50B;

  UInt32 m_u32RemoteAddr;
  UInt32 m_u32RemotePort;
  UInt32 m_u32Magic;
  UInt8 m_u8Version;
  char m_aType[3];
  UInt32 m_u32Seq;
  UInt32 m_u32Id;
  UInt32 m_u32ParamLen;
  UInt16 m_u16Output;  // its low byte counts
  UInt16 m_u16OsdSeq;
  UInt32 m_u32PathLen;  // bytes without the NUL
  char* m_pPath;        // from `new char[]`, with a NUL; null = the device's own picture
};
static_assert(offsetof(T_OsdPicture, m_u8Version) == 12 && offsetof(T_OsdPicture, m_u32Seq) == 16 &&
              offsetof(T_OsdPicture, m_u16Output) == 28 &&
              offsetof(T_OsdPicture, m_u16OsdSeq) == 30 &&
              offsetof(T_OsdPicture, m_u32PathLen) == 32 && offsetof(T_OsdPicture, m_pPath) == 36);

// The same number from the renderer itself: a picture that was asked for has been read.
struct T_OsdPictureResult {
  static constexpr UInt32 kMsgNo = T_OsdPicture::kMsgNo;
  static constexpr UInt32 kOffset = T_ModuleMsg::kPayloadSize - sizeof(void*);
  static Bool Is(const T_ModuleMsg& i_msg) {
    return i_msg.m_u32MsgNo == kMsgNo && i_msg.m_u32Src == kModuleOsd;
  }

  T_PictureResult* m_pResult;  // from `new`
};

// Hides all elements and leaves their pixels.
struct T_OsdCancelAll {
  static constexpr UInt32 kMsgNo = 0x50C;
};
