// Address conversions, and an optional table of the machine's IPv4 interface addresses. Addresses
// are in host order. The conversions may be called from any thread; the table is built once, before
// other threads look at it, and stays. The daemon does not build it: it is for other programs on
// this framework.
#pragma once

#include "framework/mutex.h"
#include "framework/ref.h"
#include "framework/types.h"

class CSocketUtils {
 public:
  // Room that a dotted address takes, terminator included.
  static constexpr UInt32 kAddrTextSize = 16;

  // Builds the table; entry 0 is a real interface rather than the loopback where there is one.
  // Names are looked up only if asked for, which may block. When the interfaces cannot be listed
  // there is no table. Later calls change nothing: sockets keep pointers into it.
  static void Initialize(Bool i_bLookupDNSNames);

  // The address of an entry. Without a table fatal.
  static UInt32 GetIPAddr(UInt32 i_u32Index);

  // The dotted text, or the name (the dotted text again where there is none), of the entry with
  // this address; null when there is no such entry.
  static CPLString* FindIPAddrStr(UInt32 i_u32Addr);
  static CPLString* FindDNSNameStr(UInt32 i_u32Addr);

  // 0 for null, 0xFFFFFFFF for what is no dotted address.
  static UInt32 ConvertStringToAddr(const char* i_pText);

  // Writes the terminated text into io_pText's buffer of at least kAddrTextSize characters and sets
  // its length (without the terminator).
  static void ConvertAddrToString(UInt32 i_u32Addr, CPLString* io_pText);

  // 224.0.0.0/4.
  static Bool IsMulticastIPAddr(UInt32 i_u32Addr);

 private:
  struct T_IPAddrInfo {
    UInt32 m_u32IPAddr = 0;
    CPLString m_objIPAddrStr;
    CPLString m_objDNSNameStr;
  };

  static void FillEntry(UInt32 i_u32Addr, Bool i_bLookupDNSNames, T_IPAddrInfo* o_pEntry);
  static T_IPAddrInfo* FindEntry(UInt32 i_u32Addr);
  static CMutex* ConversionMutex();

  static T_IPAddrInfo* s_pIPAddrInfoArray;
  static UInt32 s_u32NumIPAddrs;
};
