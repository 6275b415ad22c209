// Datagrams through the parser.
#pragma once

#include <gtest/gtest.h>

#include <random>
#include <tuple>

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

inline constexpr size_t kBodySize = 300;

// A random datagram that decodes: what other fields depend on is set to fit.
inline Bytes RandomDatagram(const T_CatalogueRow& i_row, std::mt19937& io_random) {
  constexpr UInt8 kEntries = 9;
  constexpr UInt16 kBatchSize = 3 + 10 * kEntries;
  const std::tuple<UInt32, size_t, UInt8> kSet[] = {
      {kMsgOsdStringShow, 4, 0x10}, {kMsgOsdStringShow, 23, 0},   {kMsgOsdGuideShow, 4, 99},
      {kMsgOsdGuideShow, 5, 0},     {kMsgOsdGuideShow, 6, 0},     {kMsgOsdGuideShow, 7, 0},
      {kMsgOsdDispImage, 5, 0},     {kMsgOsdDispImage, 6, 0},     {kMsgOsdDispImage, 7, 0},
      {kMsgMppDispStatusChg, 3, 2}, {kMsgMppDispStatusChg, 5, 0}, {kMsgMppBatchShow, 2, kEntries}};
  Bytes datagram = Datagram(7, i_row.m_u32Id, Bytes(kBodySize));
  for (size_t at = kMsgHeaderSize; at < datagram.size(); ++at)
    datagram[at] = static_cast<UInt8>(io_random());
  for (const auto& [u32Id, at, u8Value] : kSet)
    if (u32Id == i_row.m_u32Id) datagram[kMsgHeaderSize + at] = u8Value;
  const Bool bAny = i_row.m_u32RequiredLen == kAnyLength;
  datagram[16] = static_cast<UInt8>(bAny ? kBatchSize : i_row.m_u32RequiredLen);
  datagram[17] = 0;
  return datagram;
}
