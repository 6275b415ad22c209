#include <gtest/gtest.h>

#include <functional>
#include <random>

#include "tests/log_capture.h"
#include "tests/protocol/datagram.h"

namespace {

// A random datagram that decodes: 300 bytes of body, its length fields made to fit.
Bytes RandomDatagram(const T_CatalogueRow& i_row, std::mt19937& io_random) {
  Bytes body(300);
  for (UInt8& byte : body) byte = static_cast<UInt8>(io_random());
  const auto fix = [&](UInt32 i_u32Id, size_t i_at, int i_keep, int i_set) {
    if (i_row.m_u32Id == i_u32Id) body[i_at] = static_cast<UInt8>((body[i_at] & i_keep) | i_set);
  };
  fix(kMsgOsdStringShow, 4, 0xFF, 0x10);
  fix(kMsgOsdStringShow, 23, 0, 0);
  fix(kMsgOsdGuideShow, 4, 0xFF, 2);
  for (size_t high : {5u, 6u, 7u}) fix(kMsgOsdGuideShow, high, 0, 0);
  for (size_t high : {5u, 6u, 7u}) fix(kMsgOsdDispImage, high, 0, 0);
  fix(kMsgMppDispStatusChg, 3, 0, 2);
  fix(kMsgMppDispStatusChg, 5, 0, 0);
  fix(kMsgMppBatchShow, 2, 15, 0);
  const UInt32 u32Any = 3 + 10u * body[2];
  const UInt32 u32Len = i_row.m_u32RequiredLen == kAnyLength ? u32Any : i_row.m_u32RequiredLen;
  return T_Wire{i_row.m_u32Id, 7, body, static_cast<int>(u32Len)}.Datagram();
}

}  // namespace

TEST(Codec, WhatIsReceivedIsSentAgainWithZerosForAbsentBytes) {
  std::mt19937 random(20261121);
  for (const T_CatalogueRow& row : kCatalogue) {
    if (row.m_u32Id >= ERR_RES_MSG_MAGIC_NUM && row.m_u32Id <= ERR_RES_MSG_PARAM_LEN) continue;
    // A batch without its number of entries is refused.
    const size_t shortest = kMsgHeaderSize + (row.m_u32Id == kMsgMppBatchShow ? 3 : 0);
    for (size_t kept = shortest; kept <= kMsgHeaderSize + 300; ++kept) {
      Bytes datagram = RandomDatagram(row, random);
      datagram.resize(kept);
      T_Parsed parsed = Parse(datagram);
      ASSERT_EQ(parsed.m_eResult, kCmdSuccess) << row.m_pName << " of " << kept;
      const Bytes sent = T_Packed(parsed.m_params).m_bytes;
      ASSERT_EQ(sent.size() == kMsgHeaderSize, row.m_u32Id == kMsgOsdDeInit) << row.m_pName;
      datagram.resize(sent.size());
      ASSERT_EQ(sent, datagram) << row.m_pName << " of " << kept;
    }
  }
}

TEST(Codec, WhatCannotBePackedLeavesTheOutputsAlone) {
  CLogCapture log;
  for (UInt32 u32Id : {0x00020007u, static_cast<UInt32>(RES_MSG_ACK)}) {
    T_MsgParams params;
    params.m_eMsgId = static_cast<MsgId>(u32Id);
    UInt8 u8Byte = 0xEE;
    UInt32 u32Length = 1, u32Addr = 2;
    UInt16 u16Port = 3;
    EXPECT_EQ(CAPIParser::MsgPack(&params, &u8Byte, &u32Length, &u32Addr, &u16Port), kCmdSuccess);
    EXPECT_EQ(std::tie(u8Byte, u32Length, u32Addr, u16Port), std::make_tuple(0xEE, 1u, 2u, 3));
    EXPECT_EQ(log.Take(), std::vector<std::string>{"WARN MsgPack Unknown MsgId"});
  }
}

TEST(Codec, WhatDoesNotFitADatagramIsCut) {
  T_MsgParams params;
  params.m_eMsgId = kMsgOsdStringShow;
  params.Body<T_MsgOsdStringShow>() = std::make_unique<T_MsgOsdStringShow>();
  T_MsgOsdStringShow& show = *params.Body<T_MsgOsdStringShow>();
  show.m_u32RemoteAddr = 0x7F000001;
  show.m_u16RemotePort = kMainCtl;
  show.m_u32Flag = kStringShowTextFollows;
  show.m_u16StrLen = 0xFFFF;
  EXPECT_EQ(BodySize(show), 24) << "a text that is not there";
  show.m_pStr = std::make_unique<char[]>(0xFFFF);
  EXPECT_EQ(BodySize(show), 0xFFFF) << "saturated";
  const T_Packed packed(params);
  EXPECT_EQ(packed.m_bytes.size(), kMaxDatagram);
  EXPECT_EQ(std::tie(packed.m_u32Addr, packed.m_u16Port), std::make_tuple(0x7F000001u, kMainCtl));
  EXPECT_FALSE(params.Body<T_MsgOsdStringShow>());
}

TEST(AssertionDeathTest, NullPointersAreNamed) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  T_MsgSeq seq{{}, kMainCtl};
  UInt8 aBuf[kMaxDatagram] = {};
  UInt32 u32 = 0;
  UInt16 u16 = 0;
  EXPECT_DEATH(CAPIParser::MsgParse(aBuf, 18, &seq, &u32, nullptr),
               "apiparser:[0-9]+: .*::MsgParse\\(.*Assertion `NULL != o_ptMsgParams' failed");
  EXPECT_DEATH(CAPIParser::ParseMsgOsdDispImage(aBuf, 8, {}, nullptr),
               "::ParseMsgOsdDispImage\\(.*Assertion `NULL != o_pMsgOsdIconShow' failed");
  EXPECT_DEATH(CAPIParser::MsgPack(nullptr, aBuf, &u32, &u32, &u16),
               "::MsgPack\\(.*Assertion `NULL != i_tMsgParams' failed");
}
