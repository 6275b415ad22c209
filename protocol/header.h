// The header of every control datagram, the message ids and the parser's results. Ids, records
// and body lengths come from messages.def.
#pragma once

#include <array>

#include "protocol/fields.h"

inline constexpr UInt32 kMsgHeaderSize = 18;
inline constexpr UInt32 kMsgMagic = 0x55667788;

// Ids 0 to 8 are replies. kMsg + message name for each message that has a body to decode.
enum MsgId : UInt32 {
  RES_MSG_ACK = 0,
  RES_MSG_PROCESS_SUCCESS = 1,
  RES_MSG_PROCESS_FAILURE = 2,
#define OSD_MESSAGE(i_id, i_Name, ...) kMsg##i_Name = i_id,
#define OSD_ERROR_REPLY(i_id, i_Name, ...) i_Name = i_id,
#include "protocol/messages.def"
};

enum CmdErr : UInt32 {
  kCmdSuccess = 0,
  kCmdHeadLen = 1,   // datagram shorter than the header
  kCmdMagic = 2,     // magic is not 0x55667788
  kCmdVersion = 3,   // version is not 0
  kCmdType = 4,      // type is none of "CMD", "EVT", "RES"
  kCmdSequence = 5,  // repeats the peer's last sequence number
  kCmdId = 6,        // unknown message id
  kCmdParamLen = 7,  // body length is not the one that the id requires
  kCmdBody = 8,      // the body cannot be decoded
  kCmdPort = 9       // the remote port has no sequence slot
};

struct T_MsgHeader {
  UInt32 m_u32Magic = 0;  // host order
  UInt8 m_u8Version = 0;
  char m_aType[3] = {};  // not terminated
  UInt32 m_u32Seq = 0;
  UInt32 m_u32Id = 0;
  UInt16 m_u16ParamLen = 0;  // bytes of the body

  // The type with a terminator, for log lines.
  std::array<char, 4> TypeText() const { return {m_aType[0], m_aType[1], m_aType[2], '\0'}; }

  template <class V, class M>
  static constexpr auto Fields(V&& v, M& m) {
    return v(CNetworkOrder(m.m_u32Magic), m.m_u8Version, m.m_aType, m.m_u32Seq, m.m_u32Id,
             m.m_u16ParamLen);
  }
};

// The header of a datagram of at least kMsgHeaderSize bytes.
inline T_MsgHeader DecodeHeader(const UInt8* i_pDatagram) {
  T_MsgHeader header;
  CWireReader reader(i_pDatagram, kMsgHeaderSize, kMsgHeaderSize);
  DecodeFields(reader, header);
  return header;
}

// What every body record begins with.
struct T_MsgBody {
  // The parser keeps a refused record of the message instead of freeing it.
  static constexpr Bool kKeptWhenRefused = false;
  // The longest datagram that MsgPack makes of the message; what passes it is not sent.
  static constexpr UInt32 kMaxPacked = kMaxDatagram;

  UInt32 m_u32RemoteAddr = 0;  // destination when the record is sent, host order
  UInt16 m_u16RemotePort = 0;  // host order
  UInt32 m_u32Entry = 0;       // what the receiver notes about a request; not on the wire
  T_MsgHeader m_stHeader;
};
