// A datagram socket: sends and receives with the peer's address, and the multicast options.
// Addresses and ports are in host order. Results are 0 or an errno value.
#pragma once

#include <memory>

#include "framework/mutex.h"
#include "framework/socket.h"
#include "framework/types.h"

// Receivers by their peer's address. Sockets with kDemultiplexed carry one; no one registers with
// it so far.
struct T_UDPDemuxer {
  static constexpr UInt32 kNumBuckets = 2747;
  void* m_aBuckets[kNumBuckets] = {};
  UInt64 m_u64NumEntries = 0;
  CMutex m_objMutex;
};

class CUDPSocket : public CSocket {
 public:
  CUDPSocket(CTask* i_pTask, UInt32 i_u32Flags);
  ~CUDPSocket() override;

  OS_Error Open();

  // One datagram; a partial send is not reported. A null buffer is fatal.
  OS_Error SendTo(UInt32 i_u32RemoteAddr, UInt16 i_u16RemotePort, const void* i_pBuffer,
                  UInt32 i_u32Length);

  // One datagram, cut to i_u32Length bytes; 0 bytes are a datagram too. On failure (EAGAIN: nothing
  // waits on a non-blocking socket) the outputs keep their values. Null outputs are fatal.
  OS_Error RecvFrom(UInt32* o_pRemoteAddr, UInt16* o_pRemotePort, void* o_pBuffer,
                    UInt32 i_u32Length, UInt32* o_pRecvLen);

  // On the interface of the local address.
  OS_Error JoinMulticast(UInt32 i_u32Group);
  OS_Error LeaveMulticast(UInt32 i_u32Group);
  OS_Error SetTtl(UInt8 i_u8Ttl);

  // Makes i_u32Addr the local address, on whose interface groups are sent to and joined. These two
  // return 0 only: a refusal is fatal.
  OS_Error SetMulticastInterface(UInt32 i_u32Addr);
  OS_Error SetMulticastLoop(UInt8 i_u8Loop);

 private:
  OS_Error ChangeMembership(SInt32 i_s32Option, UInt32 i_u32Group);

  std::unique_ptr<T_UDPDemuxer> m_pDemuxer;  // null without kDemultiplexed
  sockaddr_in m_stMsgAddr{};                 // the source of the last datagram
};
