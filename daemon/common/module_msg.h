// The record of the in-process bus: fixed size, copied by value, native byte order. What a payload
// means is said by the bodies in the receivers' headers: timer_commands.h and common/osd/commands.h.
#pragma once

#include <cstring>
#include <type_traits>

#include "framework/types.h"

// Handled on the sender's thread before the send returns, or copied for the receiver's thread.
enum : UInt32 { kSyncMsg = 0, kAsyncMsg = 1 };

// Modules that the bus knows as receivers, and the two names under which the endpoint sends.
enum : UInt32 { kModuleMainCtl = 1, kModuleTimer = 3, kModuleOsd = 4, kModuleEndpoint = 9 };

// Asks for nothing and wakes its receiver.
inline constexpr UInt32 kMsgNone = 0;

struct T_ModuleMsg {
  static constexpr UInt32 kPayloadSize = 1028;

  UInt32 m_u32MsgType;  // kSyncMsg or kAsyncMsg
  UInt32 m_u32Src;      // module number of the sender
  UInt32 m_u32Dst;      // and of the receiver
  UInt32 m_u32MsgNo;    // what the payload is; the receiver's to say
  UInt8 m_aPayload[kPayloadSize];

  // A body is a plain record with its message number in T::kMsgNo. It is copied as a whole, to and
  // from byte T::kOffset of the payload: byte 0 when T has none. That it lies within the payload is
  // checked by the compiler, so neither can fail.

  // Makes this a message of that number with that body; the other bytes of the payload stay.
  template <class T>
  void Put(const T& i_body) {
    static_assert(std::is_trivially_copyable_v<T> && Offset<T>() + sizeof(T) <= kPayloadSize);
    m_u32MsgNo = T::kMsgNo;
    std::memcpy(m_aPayload + Offset<T>(), &i_body, sizeof(T));
  }
  // The bytes of the payload as a T: who calls this has looked at m_u32MsgNo. What a T carries by
  // address is owned as its header says; reading changes nothing about that.
  template <class T>
  T Read() const {
    static_assert(std::is_trivially_copyable_v<T> && Offset<T>() + sizeof(T) <= kPayloadSize);
    T body;
    std::memcpy(&body, m_aPayload + Offset<T>(), sizeof(T));
    return body;
  }

 private:
  template <class T>
  static constexpr UInt32 Offset() {
    if constexpr (requires { T::kOffset; }) return T::kOffset;
    return 0;
  }
};
static_assert(sizeof(T_ModuleMsg) == 1044);

// A message with this body; the rest of its payload is 0.
template <class T>
T_ModuleMsg MakeMessage(UInt32 i_u32Type, UInt32 i_u32Src, UInt32 i_u32Dst, const T& i_body) {
  T_ModuleMsg msg{i_u32Type, i_u32Src, i_u32Dst, 0, {}};
  msg.Put(i_body);
  return msg;
}
