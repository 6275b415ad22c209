// The peer processes, known by their source ports, and the memory of the last sequence number
// seen from each.
#pragma once

#include <iterator>

#include "framework/types.h"

inline constexpr UInt32 kSeqSlots = 13;

inline constexpr UInt16 kDaemonPort = 9636;  // where the daemon listens
inline constexpr UInt16 kMppPort = 9637;     // the media process

struct T_Peer {
  static constexpr UInt8 kNoSlot = 0xFF;

  UInt16 m_u16Port;
  UInt8 m_u8Slot;              // index into T_MsgSeq::m_aSeq, or kNoSlot: datagrams are refused
  UInt32 m_u32AlwaysAccepted;  // the number of a restarted peer; may repeat
  Bool m_bPrevSeqTold;         // the refusal of a repeated number names the last one, else 0
  const char* m_pName;

  // Whether the peer's numbers are recorded, without which none of its datagrams is taken.
  constexpr Bool HasSlot() const { return m_u8Slot != kNoSlot; }
};

// Ports are consecutive. The slots are as irregular as they look; they are fixed all the same. So
// is the 0 that some peers are told: they expect it.
inline constexpr T_Peer kPeers[] = {
    {9634, 11, 0, true, "Test"},
    {9635, 0, 0, true, "MainCtl"},
    {kDaemonPort, 1, 0, true, "Osd"},
    {kMppPort, 4, 0, true, "Mpp"},
    {9638, T_Peer::kNoSlot, 0, false, "Upgrade"},
    {9639, 2, 0, true, "UsbCam"},
    {9640, 3, 1, true, "HdmiIn"},
    {9641, 5, 0, false, "Ipav"},
    {9642, 6, 1, false, "Airplay"},
    {9643, 7, 1, false, "Miracast"},
    {9644, 8, 1, false, "ZtCast"},
    {9645, 9, 1, true, "VkDongle"},
    {9646, T_Peer::kNoSlot, 0, false, "Unknown"},
    {9647, 10, 1, true, "ZtDongle"},
    {9648, 12, 0, true, "HIDTrans"},
};

// Belongs to whoever receives, one per socket; touched by one thread at a time.
struct T_MsgSeq {
  UInt32 m_aSeq[kSeqSlots] = {};
  UInt16 m_u16RemotePort = 0;  // of the datagram that is being parsed, host order
};

// The row of a port, or null. The row may be without a slot. Any thread.
const T_Peer* FindPeer(UInt16 i_u16Port);
