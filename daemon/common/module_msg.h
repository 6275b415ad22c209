// The record of the in-process bus: fixed size, copied by value everywhere, native byte order.
#pragma once

#include <cstring>

#include "framework/types.h"

enum : UInt32 { kSyncMsg = 0, kAsyncMsg = 1 };

// Modules that the bus knows as receivers, and the two names under which the endpoint sends.
enum : UInt32 { kModuleMainCtl = 1, kModuleTimer = 3, kModuleOsd = 4, kModuleEndpoint = 9 };

// Timer service commands; kMsgTimer is both "scan now" and the expiry message.
enum : UInt32 { kMsgNone = 0, kMsgTimer = 3, kMsgTimerAdd = 0x400, kMsgTimerCancel = 0x401 };

struct T_ModuleMsg {
  static constexpr UInt32 kPayloadSize = 1028;

  UInt32 m_u32MsgType;
  UInt32 m_u32Src;
  UInt32 m_u32Dst;
  UInt32 m_u32MsgNo;
  UInt8 m_aPayload[kPayloadSize];

  // A value of type T at byte i_u32Offset of the payload.
  template <class T>
  T Get(UInt32 i_u32Offset) const {
    T value;
    std::memcpy(&value, m_aPayload + i_u32Offset, sizeof(T));
    return value;
  }
  template <class T>
  void Put(UInt32 i_u32Offset, T i_value) {
    std::memcpy(m_aPayload + i_u32Offset, &i_value, sizeof(T));
  }

  UInt32 Word(UInt32 i_u32Index) const { return Get<UInt32>(i_u32Index * 4); }
  void PutWord(UInt32 i_u32Index, UInt32 i_u32Value) { Put<UInt32>(i_u32Index * 4, i_u32Value); }

  // The block that travels by address does so in the payload's last sizeof(void*) bytes.
  template <class T>
  T* Block() const {
    return Get<T*>(kPayloadSize - sizeof(void*));
  }
  template <class T>
  void PutBlock(T* i_pBlock) {
    Put<T*>(kPayloadSize - sizeof(void*), i_pBlock);
  }
};
static_assert(sizeof(T_ModuleMsg) == 1044);
