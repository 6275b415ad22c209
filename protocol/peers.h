// The peer processes, known by their source ports, and the memory of the last sequence number
// seen from each.
#pragma once

#include <iterator>

#include "framework/types.h"

inline constexpr UInt32 kSeqSlots = 13;

struct T_Peer {
  static constexpr UInt8 kNoSlot = 0xFF;

  UInt16 m_u16Port;
  UInt8 m_u8Slot;              // index into T_MsgSeq::m_aSeq, or kNoSlot: datagrams are refused
  UInt32 m_u32AlwaysAccepted;  // the number of a restarted peer; may repeat
  const char* m_pName;

  constexpr Bool HasSlot() const { return m_u8Slot != kNoSlot; }
};

// Ports are consecutive. The slots are as irregular as they look; they are fixed all the same.
inline constexpr T_Peer kPeers[] = {
    {9634, 11, 0, "Test"},
    {9635, 0, 0, "MainCtl"},
    {9636, 1, 0, "Osd"},
    {9637, 4, 0, "Mpp"},
    {9638, T_Peer::kNoSlot, 0, "Upgrade"},
    {9639, 2, 0, "UsbCam"},
    {9640, 3, 1, "HdmiIn"},
    {9641, 5, 0, "Ipav"},
    {9642, 6, 1, "Airplay"},
    {9643, 7, 1, "Miracast"},
    {9644, 8, 1, "ZtCast"},
    {9645, 9, 1, "VkDongle"},
    {9646, T_Peer::kNoSlot, 0, "Unknown"},
    {9647, 10, 1, "ZtDongle"},
    {9648, 12, 0, "HIDTrans"},
};

// Belongs to whoever receives, one per socket; touched by one thread at a time.
struct T_MsgSeq {
  UInt32 m_aSeq[kSeqSlots] = {};
  UInt16 m_u16RemotePort = 0;  // of the datagram that is being parsed, host order
};

// The row of a port, or null. The row may be without a slot. Any thread.
const T_Peer* FindPeer(UInt16 i_u16Port);
