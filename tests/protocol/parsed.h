// Datagrams through the parser.
#pragma once

#include <gtest/gtest.h>

#include "protocol/apiparser.h"
#include "tests/wire.h"

inline constexpr UInt16 kMainCtl = 9635;

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
