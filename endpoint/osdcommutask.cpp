#include "endpoint/osdcommutask.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include "daemon/common/bus.h"
#include "endpoint/osdcommands.h"
#include "endpoint/port_owner.h"
#include "endpoint/replies.h"
#include "framework/assert.h"
#include "framework/console.h"
#include "framework/log.h"
#include "framework/socketutils.h"

namespace {

constexpr UInt32 MAX_SND_RCV_BUF_SIZE = kMaxDatagram;
constexpr SInt64 kBindRetryMs = 1000;
constexpr SInt64 kLookAgainMs = 1000;  // the scan of the timeouts makes it two seconds

// A burst that the renderer works off in about a second. A datagram of up to 128 bytes costs the
// kernel 768 or 832 bytes; some that were read already are counted for a while yet.
constexpr UInt32 kBurst = 1000;
constexpr UInt32 kBufferEach = 1024;

// What a reply from a peer leaves in the log; nothing else follows from one.
struct T_ReplyLine {
  MsgId m_eMsgId;
  const char* m_pLine;
};
constexpr T_ReplyLine kFailureReplies[] = {
    {RES_MSG_PROCESS_FAILURE, "ProcessOsdMsg: RES_MSG_PROCESS_FAILURE"},
    {ERR_RES_MSG_MAGIC_NUM, "ProcessOsdMsg: ERR_RES_MSG_MAGIC_NUM"},
    {ERR_RES_MSG_VERSION, "ProcessOsdMsg: ERR_RES_MSG_VERSION"},
    {ERR_RES_MSG_TYPE, "ProcessOsdMsg: ERR_RES_MSG_TYPE"},
    {ERR_RES_MSG_SEQUENCE, "ProcessOsdMsg: ERR_RES_MSG_SEQUENCE"},
    {ERR_RES_MSG_ID, "ProcessOsdMsg: ERR_RES_MSG_ID"},
    {ERR_RES_MSG_PARAM_LEN, "ProcessOsdMsg: ERR_RES_MSG_PARAM_LEN"},
};

void LogReply(UInt32 i_u32MsgId, UInt16 i_u16RemotePort) {
  if (i_u32MsgId == RES_MSG_ACK) LOG_INFO("ProcessOsdMsg[%u]: RES_MSG_ACK", i_u16RemotePort);
  if (i_u32MsgId == RES_MSG_PROCESS_SUCCESS) LOG_INFO("ProcessOsdMsg: RES_MSG_PROCESS_SUCCESS");
  for (const T_ReplyLine& line : kFailureReplies)
    if (line.m_eMsgId == i_u32MsgId) LOG_WARN("%s", line.m_pLine);
}

// Ports 9641 to 9644 have sequence slots but are not looked up: deliberate, their peers expect 0.
constexpr UInt16 kPrevSeqPorts[] = {9634, 9635, 9636, 9637, 9639, 9640, 9645, 9647, 9648};

}  // namespace

struct COsdCommuTask::T_Request {
  MsgId m_eMsgId;
  void (COsdCommuTask::*m_pProcess)(UInt32 i_u32RemoteAddr, UInt16 i_u16RemotePort,
                                    T_MsgParams* io_ptMsgParams);
};

template <class T, auto t_pCommand>
void COsdCommuTask::ProcessRequest(UInt32 i_u32RemoteAddr, UInt16 i_u16RemotePort,
                                   T_MsgParams* io_ptMsgParams) {
  const std::unique_ptr<T> pBody = std::move(io_ptMsgParams->Body<T>());
  if (pBody == nullptr) return;
  pBody->m_u32RemoteAddr = i_u32RemoteAddr;
  pBody->m_u16RemotePort = i_u16RemotePort;
  // The ACK goes ahead of whatever the command sends.
  QueueAck(m_objOutgoing, {pBody->m_stHeader, i_u32RemoteAddr, i_u16RemotePort});
  if constexpr (std::is_invocable_v<decltype(t_pCommand), const T&, COutgoing&>)
    t_pCommand(*pBody, m_objOutgoing);
  else
    t_pCommand(*pBody);
}

const COsdCommuTask::T_Request COsdCommuTask::s_aRequests[] = {
    {kMsgOsdStringShow,
     &COsdCommuTask::ProcessRequest<T_MsgOsdStringShow, &ProcessMsgOsdStringShow>},
    {kMsgOsdElemHide, &COsdCommuTask::ProcessRequest<T_MsgOsdElemHide, &ProcessMsgOsdElemHide>},
    {kMsgOsdElemDel, &COsdCommuTask::ProcessRequest<T_MsgOsdElemDel, &ProcessMsgOsdElemDel>},
    {kMsgOsdGuideShow, &COsdCommuTask::ProcessRequest<T_MsgOsdGuideShow, &ProcessMsgOsdGuideShow>},
    {kMsgOsdTouchCalibration,
     &COsdCommuTask::ProcessRequest<T_MsgOsdTouchCalibration, &ProcessMsgOsdTouchCalibration>},
    {kMsgOsdDispImage, &COsdCommuTask::ProcessRequest<T_MsgOsdDispImage, &ProcessMsgOsdDispImage>},
    {kMsgOsdCancelImage,
     &COsdCommuTask::ProcessRequest<T_MsgOsdCancelImage, &ProcessMsgOsdCancelImage>},
    {kMsgOsdInit, &COsdCommuTask::ProcessRequest<T_MsgOsdScreenInfo, &ProcessMsgOsdInit>},
    {kMsgOsdDeInit, &COsdCommuTask::ProcessRequest<T_MsgOsdDeinit, &ProcessMsgOsdDeInit>},
};

COsdCommuTask::COsdCommuTask(const char* i_pLocalAddr, UInt16 i_u16LocalPort)
    : m_udpSocket(this, CSocket::kNonBlocking),
      m_objTimeoutTask(this, 0, kTimeoutEvent),
      m_strLocalAddr(i_pLocalAddr),
      m_u16LocalPort(i_u16LocalPort),
      m_udpSendSocket(nullptr, CSocket::kNonBlocking),
      m_objOutgoing(this) {
  SetTaskName("COsdCommuTask");
}

SInt64 COsdCommuTask::Run() {
  const EventFlags events = GetEvents();
  if (events & kKillEvent) {
    m_eSocketState = SOCKET_STATE_CLOSED;
    return -1;
  }
  if (events & kStartEvent) ProcessStartEvent();
  if ((events & (kReadEvent | kTimeoutEvent)) && m_eSocketState == SOCKET_STATE_BOUND)
    ProcessReadEvent();
  if ((events & kWriteEvent) && m_eSocketState == SOCKET_STATE_BOUND) ProcessWriteEvent();
  if (events & kTimeoutEvent) Bind();
  return 0;
}

void COsdCommuTask::ProcessStartEvent() {
  OSD_ASSERT(SOCKET_STATE_INIT == m_eSocketState, "SOCKET_STATE_INIT == m_eSocketState",
             "osdcommutask", __LINE__);
  const OS_Error error = m_udpSocket.Open();
  if (error != OS_NoErr) {
    LOG_ERROR("cannot open the control socket: %s; deaf until started with more files (ulimit -n)",
              strerror(error));
    return;
  }
  // A program that shares the port cannot keep the daemon out; once bound, the daemon shares it
  // with nobody.
  m_udpSocket.ReuseAddr();
  SizeReceiveBuffer();
  m_eSocketState = SOCKET_STATE_OPEN;
  InitSendSocket();
  Bind();
}

void COsdCommuTask::InitSendSocket() {
  CMutexLocker locker(&m_objNotifyLock);
  if (m_udpSendSocket.Open() != OS_NoErr) {
    LOG_ERROR("CEventMonitorTask InitSendSocket open err");
    return;
  }
  const UInt32 u32Addr = CSocketUtils::ConvertStringToAddr(m_strLocalAddr.c_str());
  const OS_Error error = m_udpSendSocket.Bind(u32Addr, 0);
  if (error != OS_NoErr)
    LOG_ERROR("CEventMonitorTask m_udpSendSocket failed to Bind<0x%x>, err: <%s>", u32Addr,
              strerror(error));
}

void COsdCommuTask::SizeReceiveBuffer() {
  m_udpSocket.SetSocketRcvBufSize(kBurst * kBufferEach / 2);
  const SInt32 s32Bytes = m_udpSocket.GetSocketRcvBufSize();
  LOG_INFO("the receive buffer has %d bytes, enough for a burst of %d short requests", s32Bytes,
           s32Bytes / static_cast<SInt32>(kBufferEach));
}

void COsdCommuTask::LogBindFailure(OS_Error i_s32Error) const {
  LOG_WARN("cannot bind %s:%u: %s; trying again every second", m_strLocalAddr.c_str(),
           m_u16LocalPort, strerror(i_s32Error));
  if (i_s32Error != EADDRINUSE) return;
  const UInt32 u32Addr = CSocketUtils::ConvertStringToAddr(m_strLocalAddr.c_str());
  const std::string owner = PortOwner(u32Addr, m_u16LocalPort);
  if (!owner.empty())
    LOG_WARN("%s:%u is taken by %s", m_strLocalAddr.c_str(), m_u16LocalPort, owner.c_str());
}

void COsdCommuTask::Bind() {
  if (m_eSocketState != SOCKET_STATE_OPEN) return;
  const UInt32 u32Addr = CSocketUtils::ConvertStringToAddr(m_strLocalAddr.c_str());
  const OS_Error error = m_udpSocket.Bind(u32Addr, m_u16LocalPort);
  if (error != OS_NoErr) {
    if (error != std::exchange(m_s32BindError, error)) LogBindFailure(error);
    m_objTimeoutTask.SetTimeout(kBindRetryMs);
    return;
  }
  m_udpSocket.KeepAddr();
  m_eSocketState = SOCKET_STATE_BOUND;
  m_udpSocket.RequestEvent(EV_RE);
  m_objTimeoutTask.SetTimeout(0);
}

// What is acknowledged is to be drawn, so nothing is taken from the socket that the renderer could
// not take at once: its peers' requests wait there, first in, first out. The watch stays disarmed
// meanwhile; it is the renderer's pace that wakes this task. Every now and then it looks by itself,
// so that a renderer that stands still does not make it deaf.
Bool COsdCommuTask::MayReceive() {
  const Bool bRoom = HasRoomFor(kModuleOsd, this);
  m_objTimeoutTask.SetTimeout(bRoom ? 0 : kLookAgainMs);
  return bRoom;
}

void COsdCommuTask::ProcessReadEvent() {
  if (!MayReceive()) return;
  UInt8 aBuf[MAX_SND_RCV_BUF_SIZE + 1];
  UInt32 u32RemoteAddr = 0;
  UInt16 u16RemotePort = 0;
  UInt32 u32RecvLen = 0;
  const OS_Error error =
      m_udpSocket.RecvFrom(&u32RemoteAddr, &u16RemotePort, aBuf, MAX_SND_RCV_BUF_SIZE, &u32RecvLen);
  if (error == OS_NoErr) {
    OSD_ASSERT(u32RecvLen < MAX_SND_RCV_BUF_SIZE + 1, "u32RecvLen < MAX_SND_RCV_BUF_SIZE + 1",
               "osdcommutask", __LINE__);
    aBuf[u32RecvLen] = 0;
    ProcessDatagram(aBuf, u32RecvLen, u32RemoteAddr, u16RemotePort);
    Signal(kReadEvent);  // there may be more
  } else if (error != EAGAIN) {
    char szLine[64];
    std::snprintf(szLine, sizeof(szLine), "receive a message failed <0x%x>\n",
                  static_cast<UInt32>(error));
    PrintAtOnce(STDERR_FILENO, szLine);
  }
  // After every attempt, whatever came of it: a watch that is not re-armed is deaf for good.
  m_udpSocket.RequestEvent(EV_RE);
}

void COsdCommuTask::ProcessDatagram(const UInt8* i_pBuf, UInt32 i_u32Len, UInt32 i_u32RemoteAddr,
                                    UInt16 i_u16RemotePort) {
  m_tMsgSeq.m_u16RemotePort = i_u16RemotePort;
  MsgId eMsgId = RES_MSG_ACK;
  T_MsgParams params;  // frees all that is left in it, whatever the result
  const CmdErr eResult = CAPIParser::MsgParse(i_pBuf, i_u32Len, &m_tMsgSeq, &eMsgId, &params);
  if (eResult == kCmdSuccess) {
    CAPIParser::PrintMsg(eMsgId, i_u16RemotePort, &params);
    ProcessOsdMsg(eMsgId, i_u32RemoteAddr, i_u16RemotePort, &params);
    return;
  }
  LOG_ERROR("parse error nRet<%u>", eResult);
  const T_MsgHeader noHeader;
  const T_MsgHeader& header = params.m_pHeadError ? params.m_pHeadError->m_stHeader : noHeader;
  const UInt32 u32PrevSeq = eResult == kCmdSequence ? GetMsgPrevSeq(i_u16RemotePort) : 0;
  RefuseDatagram(m_objOutgoing, eResult, {header, i_u32RemoteAddr, i_u16RemotePort}, u32PrevSeq);
}

void COsdCommuTask::ProcessOsdMsg(UInt32 i_u32MsgId, UInt32 i_u32RemoteAddr, UInt16 i_u16RemotePort,
                                  T_MsgParams* io_ptMsgParams) {
  LogReply(i_u32MsgId, i_u16RemotePort);
  for (const T_Request& request : s_aRequests)
    if (request.m_eMsgId == i_u32MsgId)
      (this->*request.m_pProcess)(i_u32RemoteAddr, i_u16RemotePort, io_ptMsgParams);
}

UInt32 COsdCommuTask::GetMsgPrevSeq(UInt16 i_u16RemotePort) const {
  for (const UInt16 u16Port : kPrevSeqPorts)
    if (u16Port == i_u16RemotePort) return m_tMsgSeq.m_aSeq[FindPeer(u16Port)->m_u8Slot];
  LOG_WARN("GetMsgPrevSeq fail, RemotePort<%u> is undefine", i_u16RemotePort);
  return 0;
}

void COsdCommuTask::ProcessWriteEvent() {
  T_MsgParams reply;
  if (!m_objOutgoing.Take(&reply)) {
    LOG_WARN("ProcessWriteEvent m_objMsgQueue is empty");
    return;
  }
  UInt8 aBuf[MAX_SND_RCV_BUF_SIZE + 1];
  UInt32 u32Len = 0;
  UInt32 u32RemoteAddr = 0;
  UInt16 u16RemotePort = 0;
  CAPIParser::MsgPack(&reply, aBuf, &u32Len, &u32RemoteAddr, &u16RemotePort);
  // A reply that cannot be sent is lost: its peer is gone, or asks again.
  m_udpSocket.SendTo(u32RemoteAddr, u16RemotePort, aBuf, u32Len);
  if (m_objOutgoing.IsEmpty()) return;
  LOG_WARN("kWriteEvent signal");
  Signal(kWriteEvent);
}

OS_Error COsdCommuTask::SendNotifyMsg(T_MsgParams* io_ptMsgParams) {
  UInt8 aBuf[MAX_SND_RCV_BUF_SIZE + 1];
  UInt32 u32Len = 0;
  UInt32 u32RemoteAddr = 0;
  UInt16 u16RemotePort = 0;
  CMutexLocker locker(&m_objNotifyLock);
  if (io_ptMsgParams != nullptr)
    CAPIParser::MsgPack(io_ptMsgParams, aBuf, &u32Len, &u32RemoteAddr, &u16RemotePort);
  if (u32Len == 0) {
    LOG_ERROR("CEventMonitorTask SendNotifyMsg para <%d> err", io_ptMsgParams != nullptr);
    return EINVAL;
  }
  const OS_Error error = m_udpSendSocket.SendTo(u32RemoteAddr, u16RemotePort, aBuf, u32Len);
  if (error != OS_NoErr) LOG_ERROR("SendNotifyMsg send errno<%d>", error);
  return error;
}
