#include "framework/udpsocket.h"

#include <sys/socket.h>

#include <cerrno>

#include "framework/assert.h"

CUDPSocket::CUDPSocket(CTask* i_pTask, UInt32 i_u32Flags) : CSocket(i_pTask, i_u32Flags) {
  if ((i_u32Flags & kDemultiplexed) != 0) m_pDemuxer = std::make_unique<T_UDPDemuxer>();
}

CUDPSocket::~CUDPSocket() { AutoCleanup(); }

OS_Error CUDPSocket::Open() { return CSocket::Open(SOCK_DGRAM); }

OS_Error CUDPSocket::SendTo(UInt32 i_u32RemoteAddr, UInt16 i_u16RemotePort, const void* i_pBuffer,
                            UInt32 i_u32Length) {
  OSD_ASSERT(i_pBuffer != nullptr, "i_pBuffer != NULL", "udpsocket", 22);
  sockaddr_in stRemoteAddr{};
  stRemoteAddr.sin_family = AF_INET;
  stRemoteAddr.sin_port = htons(i_u16RemotePort);
  stRemoteAddr.sin_addr.s_addr = htonl(i_u32RemoteAddr);
  const ssize_t sSent =
      sendto(m_s32FileDesc, i_pBuffer, i_u32Length, 0,
             reinterpret_cast<const sockaddr*>(&stRemoteAddr), sizeof(stRemoteAddr));
  return sSent < 0 ? errno : OS_NoErr;
}

OS_Error CUDPSocket::RecvFrom(UInt32* o_pRemoteAddr, UInt16* o_pRemotePort, void* o_pBuffer,
                              UInt32 i_u32Length, UInt32* o_pRecvLen) {
  OSD_ASSERT(o_pRecvLen != nullptr, "o_pRecvLen != NULL", "udpsocket", 41);
  OSD_ASSERT(o_pRemoteAddr != nullptr, "o_pRemoteAddr != NULL", "udpsocket", 42);
  OSD_ASSERT(o_pRemotePort != nullptr, "o_pRemotePort != NULL", "udpsocket", 43);
  socklen_t u32AddrLen = sizeof(m_stMsgAddr);
  const ssize_t s32RecvLen = recvfrom(m_s32FileDesc, o_pBuffer, i_u32Length, 0,
                                      reinterpret_cast<sockaddr*>(&m_stMsgAddr), &u32AddrLen);
  if (s32RecvLen == -1) return errno;
  *o_pRemoteAddr = ntohl(m_stMsgAddr.sin_addr.s_addr);
  *o_pRemotePort = ntohs(m_stMsgAddr.sin_port);
  OSD_ASSERT(s32RecvLen >= 0, "s32RecvLen >= 0", "udpsocket", 56);
  *o_pRecvLen = static_cast<UInt32>(s32RecvLen);
  return OS_NoErr;
}

OS_Error CUDPSocket::ChangeMembership(SInt32 i_s32Option, UInt32 i_u32Group) {
  ip_mreq stMembership{};
  stMembership.imr_multiaddr.s_addr = htonl(i_u32Group);
  stMembership.imr_interface = m_stLocalAddr.sin_addr;
  return SetOption(IPPROTO_IP, i_s32Option, stMembership);
}

OS_Error CUDPSocket::JoinMulticast(UInt32 i_u32Group) {
  return ChangeMembership(IP_ADD_MEMBERSHIP, i_u32Group);
}

OS_Error CUDPSocket::LeaveMulticast(UInt32 i_u32Group) {
  return ChangeMembership(IP_DROP_MEMBERSHIP, i_u32Group);
}

OS_Error CUDPSocket::SetTtl(UInt8 i_u8Ttl) {
  return SetOption(IPPROTO_IP, IP_MULTICAST_TTL, i_u8Ttl);
}

OS_Error CUDPSocket::SetMulticastInterface(UInt32 i_u32Addr) {
  m_stLocalAddr.sin_addr.s_addr = htonl(i_u32Addr);
  const OS_Error s32Err = SetOption(IPPROTO_IP, IP_MULTICAST_IF, m_stLocalAddr.sin_addr);
  OSD_ASSERT(s32Err == 0, "s32Err == 0", "udpsocket", 103);
  return s32Err;
}

OS_Error CUDPSocket::SetMulticastLoop(UInt8 i_u8Loop) {
  const OS_Error s32Err = SetOption(IPPROTO_IP, IP_MULTICAST_LOOP, i_u8Loop);
  OSD_ASSERT(s32Err == 0, "s32Err == 0", "udpsocket", 117);
  return s32Err;
}
