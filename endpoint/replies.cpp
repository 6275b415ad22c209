#include "endpoint/replies.h"

#include <cstring>

#include "framework/log.h"

namespace {

// A reply with its destination; the outgoing queue fills what remains of the header.
template <class T>
std::unique_ptr<T> MakeReply(MsgId i_eMsgId, const T_Received& i_received) {
  auto pReply = std::make_unique<T>();
  pReply->m_u32RemoteAddr = i_received.m_u32RemoteAddr;
  pReply->m_u16RemotePort = i_received.m_u16RemotePort;
  pReply->m_stHeader.m_u32Id = i_eMsgId;
  std::memcpy(pReply->m_stHeader.m_aType, "RES", 3);
  return pReply;
}

void RefuseMagic(COutgoing& io_outgoing, const T_Received& i_refused) {
  LOG_WARN("Msg magic error: magic<%#x>", i_refused.m_header.m_u32Magic);
  auto pReply = MakeReply<T_MsgErrMagic>(ERR_RES_MSG_MAGIC_NUM, i_refused);
  pReply->m_u32Magic = i_refused.m_header.m_u32Magic;
  io_outgoing.Queue(std::move(pReply));
}

void RefuseVersion(COutgoing& io_outgoing, const T_Received& i_refused) {
  LOG_WARN("Msg version error: version<%u>", i_refused.m_header.m_u8Version);
  auto pReply = MakeReply<T_MsgErrVersion>(ERR_RES_MSG_VERSION, i_refused);
  pReply->m_u8Version = i_refused.m_header.m_u8Version;
  io_outgoing.Queue(std::move(pReply));
}

void RefuseType(COutgoing& io_outgoing, const T_Received& i_refused) {
  LOG_WARN("Msg type error: type<%s>", i_refused.m_header.TypeText().data());
  auto pReply = MakeReply<T_MsgErrType>(ERR_RES_MSG_TYPE, i_refused);
  std::memcpy(pReply->m_aType, i_refused.m_header.m_aType, sizeof(pReply->m_aType));
  io_outgoing.Queue(std::move(pReply));
}

void RefuseSequence(COutgoing& io_outgoing, const T_Received& i_refused, UInt32 i_u32PrevSeq) {
  LOG_WARN("Msg seq error: seq<%u>", i_refused.m_header.m_u32Seq);
  auto pReply = MakeReply<T_MsgErrSequence>(ERR_RES_MSG_SEQUENCE, i_refused);
  pReply->m_u32MsgSeq = i_refused.m_header.m_u32Seq;
  pReply->m_u32PrevSeq = i_u32PrevSeq;
  io_outgoing.Queue(std::move(pReply));
}

void RefuseId(COutgoing& io_outgoing, const T_Received& i_refused) {
  LOG_WARN("Msg id error: id<%#x>", i_refused.m_header.m_u32Id);
  auto pReply = MakeReply<T_MsgErrId>(ERR_RES_MSG_ID, i_refused);
  pReply->m_u32MsgSeq = i_refused.m_header.m_u32Seq;
  pReply->m_u32MsgId = i_refused.m_header.m_u32Id;
  io_outgoing.Queue(std::move(pReply));
}

void RefuseParamLen(COutgoing& io_outgoing, const T_Received& i_refused) {
  const T_MsgHeader& header = i_refused.m_header;
  LOG_WARN("Msg param len err: len<%u>", header.m_u16ParamLen);
  const T_CatalogueRow* const pRow = FindMessage(header.m_u32Id);
  auto pReply = MakeReply<T_MsgErrParamLen>(ERR_RES_MSG_PARAM_LEN, i_refused);
  pReply->m_u32MsgSeq = header.m_u32Seq;
  pReply->m_u32MsgId = header.m_u32Id;
  pReply->m_u16ParamLen = header.m_u16ParamLen;
  if (pRow != nullptr) pReply->m_u16RequiredLen = static_cast<UInt16>(pRow->m_u32RequiredLen);
  io_outgoing.Queue(std::move(pReply));
}

}  // namespace

void QueueAck(COutgoing& io_outgoing, const T_Received& i_request) {
  auto pAck = MakeReply<T_MsgAck>(RES_MSG_ACK, i_request);
  pAck->m_u32MsgSeq = i_request.m_header.m_u32Seq;
  pAck->m_u32MsgId = i_request.m_header.m_u32Id;
  io_outgoing.Queue(std::move(pAck));
}

void RefuseDatagram(COutgoing& io_outgoing, UInt32 i_u32CmdErr, const T_Received& i_refused,
                    UInt32 i_u32PrevSeq) {
  switch (i_u32CmdErr) {
    case kCmdHeadLen:
      LOG_WARN("Msg head len error");
      return;
    case kCmdMagic:
      return RefuseMagic(io_outgoing, i_refused);
    case kCmdVersion:
      return RefuseVersion(io_outgoing, i_refused);
    case kCmdType:
      return RefuseType(io_outgoing, i_refused);
    case kCmdSequence:
      return RefuseSequence(io_outgoing, i_refused, i_u32PrevSeq);
    case kCmdId:
      return RefuseId(io_outgoing, i_refused);
    case kCmdParamLen:
      return RefuseParamLen(io_outgoing, i_refused);
    case kCmdBody:
      LOG_WARN("Msg parse body error");
      return;
    default:
      LOG_ERROR("Unknown Error Msg<%d>", i_u32CmdErr);
  }
}
