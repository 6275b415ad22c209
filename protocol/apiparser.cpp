#include "protocol/apiparser.h"

#include <cstring>
#include <new>

#include "framework/assert.h"
#include "framework/log.h"
#include "protocol/trace.h"

namespace {

using ParseMsg = CmdErr (*)(const UInt8*, UInt32, const T_MsgHeader&, T_MsgParams*);
using PackMsg = Bool (*)(T_MsgParams*, UInt8*, UInt32*, UInt32*, UInt16*);

template <class T, CmdErr (*Parse)(const UInt8*, UInt32, const T_MsgHeader&, T*)>
CmdErr ParseOwned(const UInt8* i_pBody, UInt32 i_u32Received, const T_MsgHeader& i_stMsgHead,
                  T_MsgParams* o_ptMsgParams) {
  std::unique_ptr<T>& pRecord = o_ptMsgParams->Body<T>();
  pRecord.reset(new (std::nothrow) T);
  if (!pRecord) return kCmdBody;
  const CmdErr eResult = Parse(i_pBody, i_u32Received, i_stMsgHead, pRecord.get());
  if (eResult != kCmdSuccess && !T::kKeptWhenRefused) pRecord.reset();
  return eResult;
}

CmdErr ParseNothing(const UInt8*, UInt32, const T_MsgHeader&, T_MsgParams*) { return kCmdSuccess; }

template <class T>
Bool PackOwned(T_MsgParams* io_pMsgParams, UInt8* o_pBuf, UInt32* o_u32BufLen,
               UInt32* o_u32RemoteAddr, UInt16* o_u16RemotePort) {
  std::unique_ptr<T>& pRecord = io_pMsgParams->Body<T>();
  if (!pRecord) return false;
  *o_u32BufLen = EncodeMessage(*pRecord, o_pBuf, T::kMaxPacked);
  *o_u32RemoteAddr = pRecord->m_u32RemoteAddr;
  *o_u16RemotePort = pRecord->m_u16RemotePort;
  pRecord.reset();
  return true;
}

// Row by row beside kCatalogue.
constexpr ParseMsg kParsers[] = {
#define OSD_MESSAGE(i_id, i_Name, i_Record, ...) ParseOwned<i_Record, CAPIParser::ParseMsg##i_Name>,
#define OSD_ERROR_REPLY(...) ParseNothing,
#include "protocol/messages.def"
};

constexpr PackMsg kPackers[] = {
#define OSD_MESSAGE(i_id, i_Name, i_Record, ...) PackOwned<i_Record>,
#define OSD_ERROR_REPLY(i_id, i_Name, i_Record) PackOwned<i_Record>,
#include "protocol/messages.def"
};

Bool IsKnownType(const char (&i_aType)[3]) {
  for (const char* pKnown : {"CMD", "EVT", "RES"})
    if (std::memcmp(i_aType, pKnown, sizeof(i_aType)) == 0) return true;
  return false;
}

// Only a repetition of the last number is refused: peers restart, and numbers may jump. ("undefine",
// here and below, is how the log has always spelt it; logs are searched for it.)
CmdErr CheckSequence(UInt32 i_u32Seq, T_MsgSeq* io_ptMsgSeq) {
  const T_Peer* pPeer = FindPeer(io_ptMsgSeq->m_u16RemotePort);
  if (pPeer == nullptr || !pPeer->HasSlot()) {
    LOG_WARN("Parse MsgSeq fail, RemotePort<%u> is undefine", io_ptMsgSeq->m_u16RemotePort);
    return kCmdPort;
  }
  UInt32& u32Last = io_ptMsgSeq->m_aSeq[pPeer->m_u8Slot];
  if (i_u32Seq != pPeer->m_u32AlwaysAccepted && i_u32Seq == u32Last) return kCmdSequence;
  u32Last = i_u32Seq;
  return kCmdSuccess;
}

CmdErr CheckIdAndLength(const T_CatalogueRow* i_pRow, const T_MsgHeader& i_stMsgHead) {
  if (i_pRow == nullptr) {
    LOG_WARN("CheckMsgIdAndMsgLength fail, ID<%#x> is undefine", i_stMsgHead.m_u32Id);
    return kCmdId;
  }
  const Bool bFits = i_pRow->m_u32RequiredLen == kAnyLength ||
                     i_pRow->m_u32RequiredLen == i_stMsgHead.m_u16ParamLen;
  return bFits ? kCmdSuccess : kCmdParamLen;
}

// As MsgHeadParse; *o_ppRow is the row of the id that was checked.
CmdErr ParseHeader(const UInt8* i_pBuf, UInt32 i_u32Len, T_MsgSeq* io_ptMsgSeq,
                   T_MsgHeader* o_pMsgHead, const T_CatalogueRow** o_ppRow) {
  if (i_u32Len < kMsgHeaderSize) {
    LOG_DEBUG("CAPIParser MsgHeadParse fail, msg head len less");
    return kCmdHeadLen;
  }
  *o_pMsgHead = DecodeHeader(i_pBuf);
  LOG_INFO("parse msghead[%s]: type<%s> seq<%u> id<%#x> paramlen<%u>",
           CAPIParser::ModuleName(io_ptMsgSeq->m_u16RemotePort), o_pMsgHead->TypeText().data(),
           o_pMsgHead->m_u32Seq, o_pMsgHead->m_u32Id, o_pMsgHead->m_u16ParamLen);
  if (o_pMsgHead->m_u32Magic != kMsgMagic) {
    LOG_DEBUG("CAPIParser MsgHeadParse fail, msg magic error");
    return kCmdMagic;
  }
  if (o_pMsgHead->m_u8Version != 0) return kCmdVersion;
  if (!IsKnownType(o_pMsgHead->m_aType)) {
    LOG_ERROR("CAPIParser MsgHeadParse fail, msg type<%s> error", o_pMsgHead->TypeText().data());
    return kCmdType;
  }
  *o_ppRow = FindMessage(o_pMsgHead->m_u32Id);
  const CmdErr eResult = CheckIdAndLength(*o_ppRow, *o_pMsgHead);
  if (eResult != kCmdSuccess) {
    LOG_ERROR("CAPIParser CheckMsgIdAndMsgLength fail, error_no<%d> error", eResult);
    return eResult;
  }
  return CheckSequence(o_pMsgHead->m_u32Seq, io_ptMsgSeq);
}

// As MsgBodyParse, for a message whose row is known.
CmdErr ParseBody(const T_CatalogueRow& i_row, const UInt8* i_pBuf, UInt32 i_u32Received,
                 const T_MsgHeader& i_stMsgHead, T_MsgParams* o_ptMsgParams) {
  const UInt32 u32Header = std::min(i_u32Received, kMsgHeaderSize);
  return kParsers[i_row.Index()](i_pBuf + u32Header, i_u32Received - u32Header, i_stMsgHead,
                                 o_ptMsgParams);
}

}  // namespace

CmdErr CAPIParser::MsgParse(const UInt8* i_pBuf, UInt32 i_u32Len, T_MsgSeq* io_ptMsgSeq,
                            MsgId* o_pMsgId, T_MsgParams* o_ptMsgParams) {
  OSD_ASSERT(nullptr != i_pBuf, "NULL != i_pBuf", "apiparser", __LINE__);
  OSD_ASSERT(nullptr != o_pMsgId, "NULL != o_pMsgId", "apiparser", __LINE__);
  OSD_ASSERT(nullptr != o_ptMsgParams, "NULL != o_ptMsgParams", "apiparser", __LINE__);
  const UInt32 u32Received = std::min(i_u32Len, kMaxDatagram);
  const T_CatalogueRow*& pRow = o_ptMsgParams->m_pRow;
  T_MsgHeader stMsgHead;
  const CmdErr eResult = ParseHeader(i_pBuf, u32Received, io_ptMsgSeq, &stMsgHead, &pRow);
  *o_pMsgId = o_ptMsgParams->m_eMsgId = static_cast<MsgId>(stMsgHead.m_u32Id);
  if (eResult == kCmdSuccess)
    return ParseBody(*pRow, i_pBuf, u32Received, stMsgHead, o_ptMsgParams);
  o_ptMsgParams->m_pHeadError = std::make_unique<T_MsgHeadError>();
  o_ptMsgParams->m_pHeadError->m_stHeader = stMsgHead;
  return eResult;
}

CmdErr CAPIParser::MsgHeadParse(const UInt8* i_pBuf, UInt32 i_u32Len, T_MsgSeq* io_ptMsgSeq,
                                T_MsgHeader* o_pMsgHead) {
  OSD_ASSERT(nullptr != o_pMsgHead, "NULL != o_pMsgHead", "apiparser", __LINE__);
  const T_CatalogueRow* pRow = nullptr;
  return ParseHeader(i_pBuf, i_u32Len, io_ptMsgSeq, o_pMsgHead, &pRow);
}

CmdErr CAPIParser::CheckMsgIdAndMsgLength(const T_MsgHeader& i_stMsgHead) {
  return CheckIdAndLength(FindMessage(i_stMsgHead.m_u32Id), i_stMsgHead);
}

CmdErr CAPIParser::MsgBodyParse(const UInt8* i_pBuf, UInt32 i_u32Received,
                                const T_MsgHeader& i_stMsgHead, T_MsgParams* o_ptMsgParams) {
  if (const T_CatalogueRow* pRow = FindMessage(i_stMsgHead.m_u32Id))
    return ParseBody(*pRow, i_pBuf, i_u32Received, i_stMsgHead, o_ptMsgParams);
  LOG_WARN("CAPIParser MsgBodyParse fail, ID<%#x> is undefine", i_stMsgHead.m_u32Id);
  return kCmdId;
}

// Inside the rows __LINE__ would be a line of messages.def.
constexpr UInt32 kBodyAssertionLine = __LINE__;
#define OSD_MESSAGE(i_id, i_Name, i_Record, i_len, i_pText, ...)                       \
  CmdErr CAPIParser::ParseMsg##i_Name(const UInt8* i_pBody, UInt32 i_u32Received,      \
                                      const T_MsgHeader& i_stMsgHead, i_Record* o_p) { \
    OSD_ASSERT(nullptr != o_p, i_pText, "apiparser", kBodyAssertionLine);              \
    return DecodeBody(i_pBody, i_u32Received, i_stMsgHead, o_p);                       \
  }
#include "protocol/messages.def"

CmdErr CAPIParser::MsgPack(T_MsgParams* i_tMsgParams, UInt8* o_pBuf, UInt32* o_u32BufLen,
                           UInt32* o_u32RemoteAddr, UInt16* o_u16RemotePort) {
  OSD_ASSERT(nullptr != i_tMsgParams, "NULL != i_tMsgParams", "apiparser", __LINE__);
  OSD_ASSERT(nullptr != o_pBuf, "NULL != o_pBuf", "apiparser", __LINE__);
  OSD_ASSERT(nullptr != o_u32BufLen, "NULL != o_u32BufLen", "apiparser", __LINE__);
  OSD_ASSERT(nullptr != o_u32RemoteAddr, "NULL != o_u32RemoteAddr", "apiparser", __LINE__);
  OSD_ASSERT(nullptr != o_u16RemotePort, "NULL != o_u16RemotePort", "apiparser", __LINE__);
  const T_CatalogueRow* pRow = FindMessage(i_tMsgParams->m_eMsgId);
  if (pRow == nullptr ||
      !kPackers[pRow->Index()](i_tMsgParams, o_pBuf, o_u32BufLen, o_u32RemoteAddr, o_u16RemotePort))
    LOG_WARN("MsgPack Unknown MsgId");
  return kCmdSuccess;
}

void CAPIParser::PrintMsg(MsgId i_eMsgId, UInt16 i_u16RemotePort,
                          const T_MsgParams* i_ptMsgParams) {
  OSD_ASSERT(nullptr != i_ptMsgParams, "NULL != i_ptMsgParams", "apiparser", __LINE__);
  const T_CatalogueRow* pRow = i_ptMsgParams->RowOf(i_eMsgId);
  if (pRow == nullptr || !Trace(*pRow, ModuleName(i_u16RemotePort), *i_ptMsgParams))
    LOG_WARN("CAPIParser PrintMsg fail, ID is undefine");
}

const char* CAPIParser::ModuleName(UInt16 i_u16Port) {
  const T_Peer* pPeer = FindPeer(i_u16Port);
  return pPeer != nullptr ? pPeer->m_pName : "Unknown";
}
