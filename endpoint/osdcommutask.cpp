#include "endpoint/osdcommutask.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include "daemon/common/bus.h"
#include "daemon/common/counters.h"
#include "daemon/common/ledger.h"
#include "endpoint/osdcommands.h"
#include "endpoint/port_owner.h"
#include "endpoint/replies.h"
#include "framework/assert.h"
#include "framework/console.h"
#include "framework/log.h"
#include "framework/socketutils.h"

namespace {

constexpr UInt32 MAX_SND_RCV_BUF_SIZE = kMaxDatagram;  // under the name that the assertion prints
constexpr SInt64 kBindRetryMs = 1000;
constexpr SInt64 kLookAgainMs = 1000;  // up to 2 s: what has expired is looked for once a second

// A burst that the renderer works off in about a second. A datagram of up to 128 bytes costs the
// kernel 768 or 832 bytes; some that were read already are counted for a while yet.
constexpr UInt32 kBurst = 1000;
constexpr UInt32 kBufferEach = 1024;

// What the replies from RES_MSG_PROCESS_FAILURE on leave in the log; nothing else follows from one.
constexpr const char* kFailureReplies[] = {
    "ProcessOsdMsg: RES_MSG_PROCESS_FAILURE", "ProcessOsdMsg: ERR_RES_MSG_MAGIC_NUM",
    "ProcessOsdMsg: ERR_RES_MSG_VERSION",     "ProcessOsdMsg: ERR_RES_MSG_TYPE",
    "ProcessOsdMsg: ERR_RES_MSG_SEQUENCE",    "ProcessOsdMsg: ERR_RES_MSG_ID",
    "ProcessOsdMsg: ERR_RES_MSG_PARAM_LEN",
};
static_assert(std::size(kFailureReplies) == ERR_RES_MSG_PARAM_LEN - RES_MSG_PROCESS_FAILURE + 1);

// Why a datagram was refused, by the parser's result.
constexpr const char* kRefusalWords[] = {
    "",
    "it is shorter than a header",
    "its magic number is another one",
    "its version is not 0",
    "its type is not CMD, EVT or RES",
    "its sequence number is that of the peer's request before",
    "its message id is unknown",
    "its body has not the length that its message id asks for",
    "its body cannot be read",
    "its port is not that of a peer",
};
static_assert(std::size(kRefusalWords) == kCmdPort + 1);

void LogReply(UInt32 i_u32MsgId, UInt16 i_u16RemotePort) {
  if (i_u32MsgId == RES_MSG_ACK)
    LOG_INFO("ProcessOsdMsg[%u]: RES_MSG_ACK", i_u16RemotePort);
  else if (i_u32MsgId == RES_MSG_PROCESS_SUCCESS)
    LOG_INFO("ProcessOsdMsg: RES_MSG_PROCESS_SUCCESS");
  else
    LOG_WARN("%s", kFailureReplies[i_u32MsgId - RES_MSG_PROCESS_FAILURE]);
}

template <class T, auto t_pCommand>
void ProcessRequest(UInt32 i_u32RemoteAddr, UInt16 i_u16RemotePort, T_MsgParams* io_ptMsgParams,
                    COutgoing& io_outgoing) {
  const std::unique_ptr<T> pBody = std::move(io_ptMsgParams->Body<T>());
  if (pBody == nullptr) return;
  pBody->m_u32RemoteAddr = i_u32RemoteAddr;
  pBody->m_u16RemotePort = i_u16RemotePort;
  pBody->m_u32Entry =
      g_objLedger.Open(i_u16RemotePort, pBody->m_stHeader.m_u32Seq, pBody->m_stHeader.m_u32Id)
          .m_u32Entry;
  if (const T_Peer* const pPeer = FindPeer(i_u16RemotePort))
    Count(g_stCounters.m_aPeers[pPeer - kPeers]);
  // The ACK goes ahead of whatever the command sends.
  QueueAck(io_outgoing, {pBody->m_stHeader, i_u32RemoteAddr, i_u16RemotePort});
  if constexpr (std::is_invocable_v<decltype(t_pCommand), const T&, COutgoing&>)
    t_pCommand(*pBody, io_outgoing);
  else
    t_pCommand(*pBody);
}

struct T_Request {
  MsgId m_eMsgId;
  void (*m_pProcess)(UInt32 i_u32RemoteAddr, UInt16 i_u16RemotePort, T_MsgParams* io_ptMsgParams,
                     COutgoing& io_outgoing);
};

// Row by row beside the catalogue, from kFirstRequest on.
constexpr T_Request kRequests[] = {
    {kMsgOsdStringShow, ProcessRequest<T_MsgOsdStringShow, &ProcessMsgOsdStringShow>},
    {kMsgOsdElemHide, ProcessRequest<T_MsgOsdElemHide, &ProcessMsgOsdElemHide>},
    {kMsgOsdElemDel, ProcessRequest<T_MsgOsdElemDel, &ProcessMsgOsdElemDel>},
    {kMsgOsdGuideShow, ProcessRequest<T_MsgOsdGuideShow, &ProcessMsgOsdGuideShow>},
    {kMsgOsdTouchCalibration,
     ProcessRequest<T_MsgOsdTouchCalibration, &ProcessMsgOsdTouchCalibration>},
    {kMsgOsdDispImage, ProcessRequest<T_MsgOsdDispImage, &ProcessMsgOsdDispImage>},
    {kMsgOsdCancelImage, ProcessRequest<T_MsgOsdCancelImage, &ProcessMsgOsdCancelImage>},
    {kMsgOsdInit, ProcessRequest<T_MsgOsdScreenInfo, &ProcessMsgOsdInit>},
    {kMsgOsdDeInit, ProcessRequest<T_MsgOsdDeinit, &ProcessMsgOsdDeInit>},
};
constexpr size_t kFirstRequest = FindMessage(kMsgOsdStringShow)->Index();
static_assert(std::equal(std::begin(kRequests), std::end(kRequests), kCatalogue + kFirstRequest,
                         [](const T_Request& i_request, const T_CatalogueRow& i_row) {
                           return i_request.m_eMsgId == i_row.m_u32Id;
                         }));

}  // namespace

COsdCommuTask::COsdCommuTask(const char* i_pLocalAddr, UInt16 i_u16LocalPort)
    : m_udpSocket(this, CSocket::kNonBlocking),
      m_objTimeoutTask(this, 0, kTimeoutEvent),
      m_strLocalAddr(i_pLocalAddr),
      m_u16LocalPort(i_u16LocalPort),
      m_udpSendSocket(nullptr, CSocket::kNonBlocking),
      m_objOutgoing(this) {
  SetTaskName("COsdCommuTask");
}

// Each step may signal the next one, which is then taken at once, as it would be by another run:
// handing the thread over between the datagrams of a burst costs more than to answer them. What is
// left after so many steps waits for its turn among the other tasks.
SInt64 COsdCommuTask::Run() {
  constexpr UInt32 kStepsOfARun = 32;
  Bool bAwaitMore = false;
  for (UInt32 u32Step = 0; u32Step < kStepsOfARun; ++u32Step) {
    const EventFlags events = GetEvents();
    if (events == 0) break;
    if (events & kKillEvent) {
      m_eSocketState = SOCKET_STATE_CLOSED;
      return -1;
    }
    if (events & kStartEvent) ProcessStartEvent();
    if ((events & (kReadEvent | kTimeoutEvent)) && m_eSocketState == SOCKET_STATE_BOUND)
      bAwaitMore = ProcessReadEvent();
    if ((events & kWriteEvent) && m_eSocketState == SOCKET_STATE_BOUND) ProcessWriteEvent();
    if (events & kTimeoutEvent) Bind();
  }
  // Once, whatever came of the attempts: a watch that is not armed again is deaf for good.
  if (bAwaitMore) m_udpSocket.RequestEvent(EV_RE);
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

// The log texts about notifications name a CEventMonitorTask, which does not exist; logs are searched
// for the texts as they stand.
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

// What is acknowledged is to be drawn, so nothing is read that the renderer could not take at once:
// requests wait in the socket, first in, first out, and the watch stays disarmed. The renderer wakes
// this task when it has caught up. Now and then the task looks by itself, so that a renderer that
// stands still does not make it deaf.
Bool COsdCommuTask::MayReceive() {
  const Bool bRoom = HasRoomFor(kModuleOsd, this);
  m_objTimeoutTask.SetTimeout(bRoom ? 0 : kLookAgainMs);
  return bRoom;
}

Bool COsdCommuTask::ProcessReadEvent() {
  if (!MayReceive()) return false;
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
  return true;
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
  Count(g_stCounters.m_aRefusals[eResult]);
  const T_MsgHeader noHeader;
  const T_MsgHeader& header = params.m_pHeadError ? params.m_pHeadError->m_stHeader : noHeader;
  const UInt32 u32PrevSeq = eResult == kCmdSequence ? GetMsgPrevSeq(i_u16RemotePort) : 0;
  RefuseDatagram(m_objOutgoing, eResult, {header, i_u32RemoteAddr, i_u16RemotePort}, u32PrevSeq);
  g_objLedger.Close(g_objLedger.Open(i_u16RemotePort, header.m_u32Seq, header.m_u32Id),
                    ERequest::kRefused, kRefusalWords[eResult]);
}

void COsdCommuTask::ProcessOsdMsg(UInt32 i_u32MsgId, UInt32 i_u32RemoteAddr, UInt16 i_u16RemotePort,
                                  T_MsgParams* io_ptMsgParams) {
  if (i_u32MsgId <= ERR_RES_MSG_PARAM_LEN) return LogReply(i_u32MsgId, i_u16RemotePort);
  const T_CatalogueRow* const pRow = io_ptMsgParams->RowOf(i_u32MsgId);
  const size_t request = pRow != nullptr ? pRow->Index() - kFirstRequest : std::size(kRequests);
  if (request >= std::size(kRequests)) return;
  Count(g_stCounters.m_aRequests[pRow->Index()]);
  kRequests[request].m_pProcess(i_u32RemoteAddr, i_u16RemotePort, io_ptMsgParams, m_objOutgoing);
}

UInt32 COsdCommuTask::GetMsgPrevSeq(UInt16 i_u16RemotePort) const {
  const T_Peer* const pPeer = FindPeer(i_u16RemotePort);
  if (pPeer != nullptr && pPeer->m_bPrevSeqTold) return m_tMsgSeq.m_aSeq[pPeer->m_u8Slot];
  // "undefine": as the parser spells it.
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
  Count(g_stCounters.m_replies);
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
  if (io_ptMsgParams != nullptr) {
    if (T_MsgHeader* const pHeader = io_ptMsgParams->Header())
      pHeader->m_u32Seq = m_objOutgoing.NextSeq();
    CAPIParser::MsgPack(io_ptMsgParams, aBuf, &u32Len, &u32RemoteAddr, &u16RemotePort);
  }
  if (u32Len == 0) {
    LOG_ERROR("CEventMonitorTask SendNotifyMsg para <%d> err", io_ptMsgParams != nullptr);
    return EINVAL;
  }
  const OS_Error error = m_udpSendSocket.SendTo(u32RemoteAddr, u16RemotePort, aBuf, u32Len);
  if (error != OS_NoErr) LOG_ERROR("SendNotifyMsg send errno<%d>", error);
  return error;
}
