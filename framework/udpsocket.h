// A datagram socket: sends and receives with the peer's address, and the multicast options.
// Addresses and ports are in host order. Results are 0 or an errno value, EBADF where the socket
// must be open and is not. The daemon joins no groups: the multicast functions are for other
// programs on this framework.
#pragma once

#include <memory>

#include "framework/mutex.h"
#include "framework/socket.h"
#include "framework/thread_annotations.h"
#include "framework/types.h"

// Receivers by their peer's address. Sockets with kDemultiplexed carry one; no one registers with
// it so far.
struct T_UDPDemuxer {
  static constexpr UInt32 kNumBuckets = 2747;
  void* m_aBuckets[kNumBuckets] GUARDED_BY(m_objMutex) = {};
  UInt64 m_u64NumEntries GUARDED_BY(m_objMutex) = 0;
  CMutex m_objMutex;
};

class CUDPSocket : public CSocket {
 public:
  // As CSocket.
  CUDPSocket(CTask* i_pTask, UInt32 i_u32Flags);
  ~CUDPSocket() override;

  // CSocket::Open(SOCK_DGRAM).
  OS_Error Open();

  // One datagram of i_u32Length bytes; a partial send is not reported. A null buffer is fatal.
  // EAGAIN when a non-blocking socket's buffer is full, EMSGSIZE above 65507 bytes, ENETUNREACH or
  // EHOSTUNREACH without a way there, EINVAL for port 0.
  OS_Error SendTo(UInt32 i_u32RemoteAddr, UInt16 i_u16RemotePort, const void* i_pBuffer,
                  UInt32 i_u32Length);

  // One datagram, cut to i_u32Length bytes; 0 bytes are a datagram too. On failure (EAGAIN: nothing
  // waits on a non-blocking socket; EINTR: a signal came while a blocking one waited) the outputs
  // keep their values. Null outputs are fatal.
  OS_Error RecvFrom(UInt32* o_pRemoteAddr, UInt16* o_pRemotePort, void* o_pBuffer,
                    UInt32 i_u32Length, UInt32* o_pRecvLen);

  // On the interface of the local address. EINVAL when it is no group's address, ENODEV when no
  // interface has the local address, EADDRINUSE when it was joined already, EADDRNOTAVAIL when it
  // was not.
  OS_Error JoinMulticast(UInt32 i_u32Group);
  OS_Error LeaveMulticast(UInt32 i_u32Group);
  // Of what is sent to groups: 1 does not leave the local network.
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
