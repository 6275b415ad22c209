// The records of all messages, and their coding outside the parser (osdctl, tests).
#pragma once

#include <limits>
#include <utility>

#include "protocol/bodies_media.h"
#include "protocol/bodies_osd.h"
#include "protocol/bodies_reply.h"

// Bytes of the record's body on the wire, for paramlen; saturates at 65535. A message fits a
// datagram when this is at most kMaxDatagram - kMsgHeaderSize.
template <class Message>
constexpr UInt16 BodySize(const Message& i_message) {
  CWireWriter counter(nullptr, 0);
  EncodeFields(counter, i_message);
  return static_cast<UInt16>(
      std::min<UInt64>(counter.Length(), std::numeric_limits<UInt16>::max()));
}

// Writes header and all fields as stored (paramlen is not computed) to o_pBuf of i_u32Capacity
// bytes and returns the datagram's length. What passes the capacity is cut off.
template <class Message>
UInt32 EncodeMessage(const Message& i_message, UInt8* o_pBuf, UInt32 i_u32Capacity = kMaxDatagram) {
  CWireWriter writer(o_pBuf, i_u32Capacity);
  EncodeFields(writer, i_message.m_stHeader);
  EncodeFields(writer, i_message);
  return static_cast<UInt32>(std::min<UInt64>(writer.Length(), i_u32Capacity));
}

// Decodes a body of which i_u32Received bytes arrived into *o_pMessage, with i_stMsgHead as its
// header; bytes that did not arrive read as 0. kCmdBody when a text passes kMaxReadable or there is no
// memory for it (*o_pMessage stays as it was), or a batch breaks its rule (*o_pMessage then has output
// and number).
template <class Message>
CmdErr DecodeBody(const UInt8* i_pBody, UInt32 i_u32Received, const T_MsgHeader& i_stMsgHead,
                  Message* o_pMessage) {
  Message decoded;
  decoded.m_stHeader = i_stMsgHead;
  CWireReader reader(i_pBody, i_u32Received, kMaxReadable - kMsgHeaderSize);
  DecodeFields(reader, decoded);
  if (!reader.Refused() || Message::kKeptWhenRefused) *o_pMessage = std::move(decoded);
  return reader.Refused() ? kCmdBody : kCmdSuccess;
}
