// An IPv4 socket: an event context with its state, its bound local address, options and stream I/O.
// Used by its owning task, which gets kReadEvent when the socket is readable. Addresses and ports
// are in host order. Results are 0 or an errno value, EBADF where the socket must be open and is
// not. The stream functions, their options and the texts of the local address are for other programs
// on this framework: the daemon has datagram sockets only.
#pragma once

#include <netinet/in.h>
#include <sys/uio.h>

#include "framework/eventcontext.h"
#include "framework/ref.h"
#include "framework/task.h"
#include "framework/types.h"

class CSocket : public CEventContext {
 public:
  enum SocketFlags : UInt32 {
    kNonBlocking = 0x1,
    kBound = 0x4,
    kConnected = 0x8,
    kDemultiplexed = 0x100
  };

  // i_pTask outlives the socket and may be null: nobody is told of events then. kConnected is given by who connects the descriptor himself: no function
  // here ever sets it.
  CSocket(CTask* i_pTask, UInt32 i_u32Flags);
  ~CSocket() override;

  // SOCK_DGRAM or SOCK_STREAM. A socket that is open already is fatal; one that was cleaned up may
  // be opened again. EMFILE or ENFILE without descriptors, ENOBUFS or ENOMEM without memory.
  OS_Error Open(SInt32 i_s32Type);

  // Port 0: the system chooses one. On failure the local address and port read 0: EADDRINUSE when
  // another socket has them, EADDRNOTAVAIL when no interface has the address, EACCES for a port that
  // needs a privilege, EINVAL when it is bound already.
  OS_Error Bind(UInt32 i_u32Addr, UInt16 i_u16Port);

  // An option that is refused is fatal, except for the receive buffer's.
  void ReuseAddr();
  // Takes ReuseAddr back: from now on no other socket is bound to the address of this one, whatever
  // it allows itself. One that shares it already stays.
  void KeepAddr();
  void NoDelay();
  void KeepAlive();
  void SetSocketBufSize(UInt32 i_u32Size);  // bytes of the send buffer
  // The kernel takes twice i_u32Size for a socket's receive buffer; without CAP_NET_ADMIN no more
  // than twice net.core.rmem_max.
  OS_Error SetSocketRcvBufSize(UInt32 i_u32Size);
  SInt32 GetSocketRcvBufSize();  // bytes, as the kernel counts them; -1 when it cannot be read

  // Stream I/O. ENOTCONN unless connected; EAGAIN when it would block. Any other error, and the
  // peer's end of stream (ENOTCONN), clears the connected state for good. The count of bytes is
  // stored only with 0; a short one is the caller's concern. No signal is raised.
  OS_Error Send(const char* i_pData, UInt32 i_u32Length, UInt32* o_pSentLen);
  OS_Error WriteV(const iovec* i_pIOVector, UInt32 i_u32Count, UInt32* o_pSentLen);
  OS_Error Read(void* o_pBuffer, UInt32 i_u32Length, UInt32* o_pRecvLen);

  // What is known of the connection: true until a function here has met its end.
  Bool IsConnected() const { return (m_u32State & kConnected) != 0; }
  // 0 until Bind has succeeded.
  UInt32 GetLocalAddr() const { return ntohl(m_stLocalAddr.sin_addr.s_addr); }
  UInt16 GetLocalPort() const { return ntohs(m_stLocalAddr.sin_port); }

  // The bound address as text or name, from CSocketUtils' table; an address that is not in there
  // is fatal.
  CPLString* GetLocalAddrStr();
  CPLString* GetLocalDNSStr();
  // The bound port in decimal, formatted at the first call.
  CPLString* GetLocalPortStr();

 protected:
  // As setsockopt; i_u32Size in bytes.
  OS_Error SetOption(SInt32 i_s32Level, SInt32 i_s32Option, const void* i_pValue, UInt32 i_u32Size);

  template <class T>
  OS_Error SetOption(SInt32 i_s32Level, SInt32 i_s32Option, const T& i_refValue) {
    return SetOption(i_s32Level, i_s32Option, &i_refValue, sizeof(i_refValue));
  }

  UInt32 m_u32State;
  sockaddr_in m_stLocalAddr{};

 private:
  static constexpr UInt32 kPortBufSize = 8;

  OS_Error StreamFailure();
  OS_Error Sent(ssize_t i_sResult, UInt32* o_pSentLen);

  CPLString* m_pLocalAddrStrPtr = nullptr;
  CPLString* m_pLocalDNSStrPtr = nullptr;
  char m_szPortBuffer[kPortBufSize] = {};
  // Its full length marks a text that was not formatted yet.
  CPLString m_objPortStr{m_szPortBuffer, kPortBufSize};
};
