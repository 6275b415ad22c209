// Datagrams put together by hand, byte by byte, so that the tests do not lean on the encoder.
#pragma once

#include <gtest/gtest.h>

#include <string_view>
#include <vector>

#include "protocol/apiparser.h"

using Bytes = std::vector<UInt8>;

inline constexpr UInt16 kMainCtl = 9635;

// i_front and i_count bytes of i_value, low byte first.
inline Bytes Put(Bytes i_front, UInt64 i_value, int i_count) {
  for (int i = 0; i < i_count; ++i) i_front.push_back(static_cast<UInt8>(i_value >> (8 * i)));
  return i_front;
}

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

struct T_Wire {
  UInt32 m_u32Id = 0;
  UInt32 m_u32Seq = 7;
  Bytes m_body = {};
  int m_paramLen = -1;  // -1: that of the body
  Bytes m_magic = {0x55, 0x66, 0x77, 0x88};
  UInt8 m_u8Version = 0;
  std::string_view m_type = "CMD";

  Bytes Datagram() const {
    Bytes bytes = m_magic;
    bytes.push_back(m_u8Version);
    bytes = Put(Put(Cat(bytes, m_type), m_u32Seq, 4), m_u32Id, 4);
    bytes = Put(bytes, m_paramLen < 0 ? m_body.size() : static_cast<UInt64>(m_paramLen), 2);
    bytes.insert(bytes.end(), m_body.begin(), m_body.end());
    return bytes;
  }
};

// A message as MsgPack sends it.
struct T_Packed {
  Bytes m_bytes = Bytes(kMaxDatagram);
  UInt32 m_u32Addr = 0;
  UInt16 m_u16Port = 0;

  explicit T_Packed(T_MsgParams& io_params) {
    UInt32 u32Length = 0;
    EXPECT_EQ(CAPIParser::MsgPack(&io_params, m_bytes.data(), &u32Length, &m_u32Addr, &m_u16Port),
              kCmdSuccess);
    m_bytes.resize(u32Length);
  }
};

// What became of one datagram.
struct T_Parsed {
  CmdErr m_eResult;
  UInt32 m_u32Id;
  T_MsgParams m_params;
};

inline T_Parsed Parse(const Bytes& i_datagram, T_MsgSeq& io_seq) {
  T_Parsed parsed{kCmdSuccess, 0xDEAD, {}};
  parsed.m_eResult = CAPIParser::MsgParse(i_datagram.data(), static_cast<UInt32>(i_datagram.size()),
                                          &io_seq, &parsed.m_u32Id, &parsed.m_params);
  return parsed;
}

inline T_Parsed Parse(const Bytes& i_datagram) {
  T_MsgSeq seq{{}, kMainCtl};
  return Parse(i_datagram, seq);
}
