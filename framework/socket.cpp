#include "framework/socket.h"

#include <netinet/tcp.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdio>

#include "framework/assert.h"
#include "framework/socketutils.h"

namespace {

template <class Call>
ssize_t RetryOnSignal(Call i_call) {
  ssize_t sResult = 0;
  do sResult = i_call();
  while (sResult < 0 && errno == EINTR);
  return sResult;
}

}  // namespace

CSocket::CSocket(CTask* i_pTask, UInt32 i_u32Flags)
    : CEventContext(kInvalidFileDesc), m_u32State(i_u32Flags) {
  SetTask(i_pTask);
}

CSocket::~CSocket() { AutoCleanup(); }

OS_Error CSocket::Open(SInt32 i_s32Type) {
  OSD_ASSERT(m_s32FileDesc == CEventContext::kInvalidFileDesc,
             "m_s32FileDesc == CEventContext::kInvalidFileDesc", "socket", 38);
  const SInt32 s32FileDesc = socket(AF_INET, i_s32Type | SOCK_CLOEXEC, 0);
  if (s32FileDesc < 0) return errno;
  m_s32FileDesc = s32FileDesc;
  if ((m_u32State & kNonBlocking) != 0) InitNonBlocking(s32FileDesc);
  return OS_NoErr;
}

OS_Error CSocket::Bind(UInt32 i_u32Addr, UInt16 i_u16Port) {
  m_stLocalAddr = {};
  m_stLocalAddr.sin_family = AF_INET;
  m_stLocalAddr.sin_port = htons(i_u16Port);
  m_stLocalAddr.sin_addr.s_addr = htonl(i_u32Addr);
  socklen_t u32Size = sizeof(m_stLocalAddr);
  auto* const pAddr = reinterpret_cast<sockaddr*>(&m_stLocalAddr);
  if (bind(m_s32FileDesc, pAddr, u32Size) != 0) {
    const OS_Error s32Err = errno;
    m_stLocalAddr.sin_port = 0;
    m_stLocalAddr.sin_addr.s_addr = 0;
    return s32Err;
  }
  getsockname(m_s32FileDesc, pAddr, &u32Size);
  m_u32State |= kBound;
  return OS_NoErr;
}

OS_Error CSocket::SetOption(SInt32 i_s32Level, SInt32 i_s32Option, const void* i_pValue,
                            UInt32 i_u32Size) {
  return setsockopt(m_s32FileDesc, i_s32Level, i_s32Option, i_pValue, i_u32Size) == 0 ? OS_NoErr
                                                                                      : errno;
}

void CSocket::ReuseAddr() {
  const OS_Error s32Err = SetOption(SOL_SOCKET, SO_REUSEADDR, SInt32{1});
  OSD_ASSERT(s32Err == 0, "s32Err == 0", "socket", 59);
}

void CSocket::KeepAddr() {
  const OS_Error s32Err = SetOption(SOL_SOCKET, SO_REUSEADDR, SInt32{0});
  OSD_ASSERT(s32Err == 0, "s32Err == 0", "socket", __LINE__);
}

void CSocket::NoDelay() {
  const OS_Error s32Err = SetOption(IPPROTO_TCP, TCP_NODELAY, SInt32{1});
  OSD_ASSERT(s32Err == 0, "s32Err == 0", "socket", 66);
}

void CSocket::KeepAlive() {
  const OS_Error s32Err = SetOption(SOL_SOCKET, SO_KEEPALIVE, SInt32{1});
  OSD_ASSERT(s32Err == 0, "s32Err == 0", "socket", 73);
}

void CSocket::SetSocketBufSize(UInt32 i_u32Size) {
  const OS_Error s32Err = SetOption(SOL_SOCKET, SO_SNDBUF, i_u32Size);
  OSD_ASSERT(s32Err == 0, "s32Err == 0", "socket", 87);
}

OS_Error CSocket::SetSocketRcvBufSize(UInt32 i_u32Size) {
  if (SetOption(SOL_SOCKET, SO_RCVBUFFORCE, i_u32Size) == OS_NoErr) return OS_NoErr;
  return SetOption(SOL_SOCKET, SO_RCVBUF, i_u32Size);
}

SInt32 CSocket::GetSocketRcvBufSize() {
  SInt32 s32Value = 0;
  socklen_t u32Size = sizeof(s32Value);
  return getsockopt(m_s32FileDesc, SOL_SOCKET, SO_RCVBUF, &s32Value, &u32Size) == 0 ? s32Value : -1;
}

OS_Error CSocket::StreamFailure() {
  const OS_Error s32Err = errno;
  if (s32Err != EAGAIN) m_u32State &= ~kConnected;
  return s32Err;
}

OS_Error CSocket::Sent(ssize_t i_sResult, UInt32* o_pSentLen) {
  if (i_sResult < 0) return StreamFailure();
  *o_pSentLen = static_cast<UInt32>(i_sResult);
  return OS_NoErr;
}

OS_Error CSocket::Send(const char* i_pData, UInt32 i_u32Length, UInt32* o_pSentLen) {
  OSD_ASSERT(i_pData != nullptr, "i_pData != NULL", "socket", 284);
  if (!IsConnected()) return ENOTCONN;
  return Sent(
      RetryOnSignal([&] { return send(m_s32FileDesc, i_pData, i_u32Length, MSG_NOSIGNAL); }),
      o_pSentLen);
}

OS_Error CSocket::WriteV(const iovec* i_pIOVector, UInt32 i_u32Count, UInt32* o_pSentLen) {
  OSD_ASSERT(i_pIOVector != nullptr, "i_pIOVector != NULL", "socket", 315);
  if (!IsConnected()) return ENOTCONN;
  // writev() itself cannot keep SIGPIPE away.
  msghdr stMsg{};
  stMsg.msg_iov = const_cast<iovec*>(i_pIOVector);
  stMsg.msg_iovlen = i_u32Count;
  return Sent(RetryOnSignal([&] { return sendmsg(m_s32FileDesc, &stMsg, MSG_NOSIGNAL); }),
              o_pSentLen);
}

OS_Error CSocket::Read(void* o_pBuffer, UInt32 i_u32Length, UInt32* o_pRecvLen) {
  OSD_ASSERT(o_pRecvLen != nullptr, "o_pRecvLen != NULL", "socket", 349);
  OSD_ASSERT(o_pBuffer != nullptr, "o_pBuffer != NULL", "socket", 350);
  if (!IsConnected()) return ENOTCONN;
  const ssize_t theRecvLen =
      RetryOnSignal([&] { return recv(m_s32FileDesc, o_pBuffer, i_u32Length, 0); });
  if (theRecvLen < 0) return StreamFailure();
  if (theRecvLen == 0) {
    m_u32State &= ~kConnected;
    return ENOTCONN;
  }
  OSD_ASSERT(theRecvLen > 0, "theRecvLen > 0", "socket", 382);
  *o_pRecvLen = static_cast<UInt32>(theRecvLen);
  return OS_NoErr;
}

CPLString* CSocket::GetLocalAddrStr() {
  if (m_pLocalAddrStrPtr == nullptr)
    m_pLocalAddrStrPtr = CSocketUtils::FindIPAddrStr(GetLocalAddr());
  OSD_ASSERT(m_pLocalAddrStrPtr != nullptr, "m_pLocalAddrStrPtr != NULL", "socket", 241);
  return m_pLocalAddrStrPtr;
}

CPLString* CSocket::GetLocalDNSStr() {
  OSD_ASSERT(m_stLocalAddr.sin_addr.s_addr != INADDR_ANY,
             "m_stLocalAddr.sin_addr.s_addr != INADDR_ANY", "socket", 248);
  if (m_pLocalDNSStrPtr == nullptr)
    m_pLocalDNSStrPtr = CSocketUtils::FindDNSNameStr(GetLocalAddr());
  OSD_ASSERT(m_pLocalDNSStrPtr != nullptr, "m_pLocalDNSStrPtr != NULL", "socket", 267);
  return m_pLocalDNSStrPtr;
}

CPLString* CSocket::GetLocalPortStr() {
  if (m_objPortStr.m_u32Len == kPortBufSize)
    m_objPortStr.m_u32Len = static_cast<UInt32>(
        std::snprintf(m_szPortBuffer, sizeof(m_szPortBuffer), "%d", GetLocalPort()));
  return &m_objPortStr;
}
