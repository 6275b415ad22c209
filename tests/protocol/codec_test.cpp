#include "tests/protocol/parsed.h"

TEST(Codec, WhatIsReceivedIsSentAgainWithZerosForAbsentBytes) {
  std::mt19937 random(20261121);
  for (const T_CatalogueRow& row : kCatalogue) {
    if (row.m_u32Id >= ERR_RES_MSG_MAGIC_NUM && row.m_u32Id <= ERR_RES_MSG_PARAM_LEN) continue;
    // A batch without its number of entries is refused.
    const size_t shortest = kMsgHeaderSize + (row.m_u32Id == kMsgMppBatchShow ? 3 : 0);
    for (size_t kept = shortest; kept <= kMsgHeaderSize + kBodySize; ++kept) {
      Bytes datagram = RandomDatagram(row, random);
      datagram.resize(kept);
      T_Parsed parsed = Parse(datagram);
      ASSERT_EQ(parsed.m_eResult, kCmdSuccess) << row.m_pName << " of " << kept;
      Bytes sent(kMaxDatagram);
      UInt32 u32Length = 0, u32Addr = 0;
      UInt16 u16Port = 0;
      CAPIParser::MsgPack(&parsed.m_params, sent.data(), &u32Length, &u32Addr, &u16Port);
      ASSERT_EQ(u32Length == kMsgHeaderSize, row.m_u32Id == kMsgOsdDeInit) << row.m_pName;
      sent.resize(u32Length);
      datagram.resize(u32Length);
      ASSERT_EQ(sent, datagram) << row.m_pName << " of " << kept;
    }
  }
}

TEST(Codec, WhatDoesNotFitADatagramIsCut) {
  T_MsgOsdStringShow show;
  show.m_u32Flag = kMaskText;
  show.m_u16StrLen = 0xFFFF;
  EXPECT_EQ(BodySize(show), 24) << "a text that is not there";
  show.m_pStr = std::make_unique<char[]>(0xFFFF);
  EXPECT_EQ(BodySize(show), 0xFFFF) << "saturated";
  Bytes sent(kMaxDatagram);
  EXPECT_EQ(EncodeMessage(show, sent.data()), kMaxDatagram);
}

TEST(AssertionDeathTest, NullPointersAreNamed) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  UInt8 aBuf[kMaxDatagram] = {};
  UInt32 u32 = 0;
  UInt16 u16 = 0;
  // Lines of apiparser.cpp: the sources that it includes or calls have less than a hundred.
  EXPECT_DEATH(CAPIParser::PrintMsg(RES_MSG_ACK, kMainCtl, nullptr),
               "apiparser:1..: .*::PrintMsg\\(.*Assertion `NULL != i_ptMsgParams' failed");
  EXPECT_DEATH(
      CAPIParser::ParseMsgOsdDispImage(aBuf, 8, {}, nullptr),
      "apiparser:1..: .*::ParseMsgOsdDispImage\\(.*Assertion `NULL != o_pMsgOsdIconShow' failed");
  EXPECT_DEATH(CAPIParser::MsgPack(nullptr, aBuf, &u32, &u32, &u16),
               "::MsgPack\\(.*Assertion `NULL != i_tMsgParams' failed");
}
