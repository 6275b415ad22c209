#include "protocol/peers.h"

namespace {

constexpr Bool PortsAreConsecutive() {
  for (UInt32 i = 0; i < std::size(kPeers); ++i)
    if (kPeers[i].m_u16Port != kPeers[0].m_u16Port + i) return false;
  return true;
}
static_assert(PortsAreConsecutive(), "FindPeer indexes by port");

constexpr Bool EachSlotIsUsedOnce() {
  UInt32 aUses[kSeqSlots] = {};
  for (const T_Peer& peer : kPeers)
    if (peer.HasSlot()) ++aUses[peer.m_u8Slot];
  for (UInt32 u32Uses : aUses)
    if (u32Uses != 1) return false;
  return true;
}
static_assert(EachSlotIsUsedOnce());

}  // namespace

const T_Peer* FindPeer(UInt16 i_u16Port) {
  const UInt32 u32Index = static_cast<UInt32>(i_u16Port) - kPeers[0].m_u16Port;
  return u32Index < std::size(kPeers) ? &kPeers[u32Index] : nullptr;
}
