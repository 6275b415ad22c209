// CAPIParser: datagrams to decoded messages and back. It has no state; a T_MsgSeq and a
// T_MsgParams belong to the caller and are used by one thread at a time.
#pragma once

#include "protocol/msg_params.h"
#include "protocol/peers.h"

class CAPIParser {
 public:
  // Decodes a received datagram of i_u32Len bytes; bytes that a body wants and that did not arrive
  // read as 0, and what passes kMaxDatagram is ignored. *o_pMsgId is the id that was read, whether
  // it has a name or not, also on failure (0 when the header is incomplete). io_ptMsgSeq has the
  // remote port set and takes the sequence number once the whole header is good. *o_ptMsgParams
  // should be empty; it receives the body record, or m_pHeadError when the header is refused. All
  // nine failures of CmdErr.
  static CmdErr MsgParse(const UInt8* i_pBuf, UInt32 i_u32Len, T_MsgSeq* io_ptMsgSeq,
                         MsgId* o_pMsgId, T_MsgParams* o_ptMsgParams);

  // Decodes and checks the header. From 18 bytes on *o_pMsgHead is filled, whatever the result;
  // below it is left alone. Every failure but kCmdBody.
  static CmdErr MsgHeadParse(const UInt8* i_pBuf, UInt32 i_u32Len, T_MsgSeq* io_ptMsgSeq,
                             T_MsgHeader* o_pMsgHead);

  // kCmdSuccess, kCmdId or kCmdParamLen.
  static CmdErr CheckMsgIdAndMsgLength(const T_MsgHeader& i_stMsgHead);

  // Decodes the body of a datagram of which i_u32Received bytes, header included, arrived.
  // kCmdBody as DecodeBody says, or without memory; kCmdId. The record is then freed, except that
  // MppBatchShow keeps its own. Ids 3 to 8 succeed without a record.
  static CmdErr MsgBodyParse(const UInt8* i_pBuf, UInt32 i_u32Received,
                             const T_MsgHeader& i_stMsgHead, T_MsgParams* o_ptMsgParams);

  // ParseMsgAck, ParseMsgOsdInit, ...: i_u32Received bytes of the body arrived, at i_pBody; results
  // as DecodeBody.
#define OSD_MESSAGE(i_id, i_Name, i_Record, ...)                             \
  static CmdErr ParseMsg##i_Name(const UInt8* i_pBody, UInt32 i_u32Received, \
                                 const T_MsgHeader& i_stMsgHead, i_Record* o_p);
#include "protocol/messages.def"

  // Encodes the record of i_tMsgParams' id into o_pBuf (kMaxDatagram bytes), tells length, address
  // and port (host order) of the datagram, and frees the record. Without an encoder or a record
  // it leaves a WARN line and the outputs as they were. Always kCmdSuccess.
  static CmdErr MsgPack(T_MsgParams* i_tMsgParams, UInt8* o_pBuf, UInt32* o_u32BufLen,
                        UInt32* o_u32RemoteAddr, UInt16* o_u16RemotePort);

  // One INFO line (for a batch one more per entry) that tells the message and the name of its
  // peer; a WARN line for a message that has no format or no record.
  static void PrintMsg(MsgId i_eMsgId, UInt16 i_u16RemotePort, const T_MsgParams* i_ptMsgParams);

  // The peer's name; "Unknown" for ports that are not in the table. Never null, static.
  static const char* ModuleName(UInt16 i_u16Port);
};
