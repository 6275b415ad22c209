// Datagrams put together by hand, byte by byte, so that the tests do not lean on the encoder.
#pragma once

#include <string_view>

#include "protocol/apiparser.h"
#include "tests/system/peer.h"

inline constexpr UInt16 kMainCtl = 9635;

inline Bytes Cat(Bytes i_front, std::string_view i_text) {
  i_front.insert(i_front.end(), i_text.begin(), i_text.end());
  return i_front;
}

// 1, 2, 3, ...
inline Bytes Counting(size_t i_count) {
  Bytes bytes(i_count);
  for (size_t i = 0; i < i_count; ++i) bytes[i] = static_cast<UInt8>(i + 1);
  return bytes;
}

// What became of one datagram.
struct T_Parsed {
  CmdErr m_eResult;
  MsgId m_eId;
  T_MsgParams m_params;
};

inline T_Parsed Parse(const Bytes& i_datagram, T_MsgSeq& io_seq) {
  T_Parsed parsed{kCmdSuccess, MsgId{0xDEAD}, {}};
  parsed.m_eResult = CAPIParser::MsgParse(i_datagram.data(), static_cast<UInt32>(i_datagram.size()),
                                          &io_seq, &parsed.m_eId, &parsed.m_params);
  return parsed;
}

inline T_Parsed Parse(const Bytes& i_datagram) {
  T_MsgSeq seq{{}, kMainCtl};
  return Parse(i_datagram, seq);
}
