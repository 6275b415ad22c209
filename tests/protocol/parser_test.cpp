#include <gtest/gtest.h>

#include <functional>
#include <tuple>

#include "tests/log_capture.h"
#include "tests/protocol/datagram.h"

TEST(ParserHeader, ChecksComeInOrderAndLeaveTheSlotAlone) {
  // Each row mends what the one before it was refused for.
  const std::tuple<std::function<void(T_Wire&)>, CmdErr, std::string> kCases[] = {
      {[](T_Wire&) {}, kCmdMagic, "DEBUG CAPIParser MsgHeadParse fail, msg magic error"},
      {[](T_Wire& w) { w.m_magic = T_Wire().m_magic; }, kCmdVersion, ""},
      {[](T_Wire& w) { w.m_u8Version = 0; }, kCmdType,
       "ERROR CAPIParser MsgHeadParse fail, msg type<cmd> error"},
      {[](T_Wire& w) { w.m_type = "CMD"; }, kCmdId,
       "WARN CheckMsgIdAndMsgLength fail, ID<0x20007> is undefine"},
      {[](T_Wire& w) { w.m_u32Id = kMsgMppHide; }, kCmdParamLen,
       "ERROR CAPIParser CheckMsgIdAndMsgLength fail, error_no<7> error"},
      {[](T_Wire& w) { w.m_paramLen = 4; }, kCmdSequence, ""}};
  CLogCapture log;
  T_MsgSeq seq{{7}, kMainCtl};
  T_Wire wire{0x00020007, 7, {}, 3, {0x88, 0x77, 0x66, 0x55}, 1, "cmd"};
  EXPECT_EQ(Parse(Bytes(kMsgHeaderSize - 1), seq).m_eResult, kCmdHeadLen);
  for (const auto& [mend, eResult, line] : kCases) {
    mend(wire);
    const T_Parsed parsed = Parse(wire.Datagram(), seq);
    EXPECT_EQ(parsed.m_eResult, eResult);
    EXPECT_TRUE(line.empty() || log.Has(line)) << line;
    EXPECT_EQ(parsed.m_u32Id, wire.m_u32Id);
    EXPECT_EQ(parsed.m_params.m_pHeadError->m_stHeader.m_u32Id, wire.m_u32Id);
    EXPECT_EQ(seq.m_aSeq[0], 7u);
  }
  wire.m_u32Seq = 6;
  EXPECT_EQ(Parse(wire.Datagram(), seq).m_eResult, kCmdSuccess);
  EXPECT_EQ(seq.m_aSeq[0], 6u);
}

TEST(ParserHeader, EachKindOfPeerHasItsNameAndRestartNumber) {
  const std::tuple<UInt16, const char*, Bool, UInt32> kCases[] = {
      {9633, "Unknown", false, 0}, {9638, "Upgrade", false, 0}, {9646, "Unknown", false, 0},
      {9649, "Unknown", false, 0}, {9634, "Test", true, 0},     {9648, "HIDTrans", true, 0},
      {9640, "HdmiIn", true, 1},   {9645, "VkDongle", true, 1}, {9647, "ZtDongle", true, 1}};
  for (const auto& [u16Port, pName, bSlot, u32Restart] : kCases) {
    SCOPED_TRACE(u16Port);
    EXPECT_STREQ(ModuleName(u16Port), pName);
    T_MsgSeq seq{{}, u16Port};
    const auto send = [&seq](UInt32 i_u32Seq) {
      return Parse(T_Wire{kMsgMppHide, i_u32Seq, {}, 4}.Datagram(), seq).m_eResult;
    };
    if (!bSlot) {
      EXPECT_EQ(send(5), kCmdPort);
      continue;
    }
    EXPECT_EQ(send(0), u32Restart == 0 ? kCmdSuccess : kCmdSequence) << "slots start at 0";
    EXPECT_EQ(send(5), kCmdSuccess);
    EXPECT_EQ(send(5), kCmdSequence);
    EXPECT_EQ(send(3), kCmdSuccess) << "backwards is no repetition";
    EXPECT_EQ(send(u32Restart), kCmdSuccess);
    EXPECT_EQ(send(u32Restart), kCmdSuccess) << "a peer that restarts twice";
  }
}

TEST(ParserHeader, OnlyTheRequiredBodyLengthPasses) {
  const auto check = [](UInt32 i_u32Id, UInt32 i_u32Length) {
    T_MsgHeader header;
    header.m_u32Id = i_u32Id;
    header.m_u16ParamLen = static_cast<UInt16>(i_u32Length);
    return CAPIParser::CheckMsgIdAndMsgLength(header);
  };
  UInt32 u32Fixed = 0;
  for (const T_CatalogueRow& row : kCatalogue) {
    const Bool bFixed = row.m_u32RequiredLen != kAnyLength;
    u32Fixed += bFixed;
    for (const UInt32 u32Length : {row.m_u32RequiredLen - 1, row.m_u32RequiredLen + 1})
      EXPECT_EQ(check(row.m_u32Id, u32Length), bFixed ? kCmdParamLen : kCmdSuccess) << row.m_pName;
  }
  EXPECT_EQ(u32Fixed, 18u);
  EXPECT_EQ(std::size(kCatalogue), 38u);
  for (UInt32 u32Id : {9u, 0x10007u, 0x1FFFDu, 0x20008u, 0x2000Eu, 0x80002001u, 0xFFFFFFFFu})
    EXPECT_EQ(check(u32Id, 0), kCmdId) << u32Id;
}

TEST(ParserBody, TextsMayReachTheEndOfTheBufferAndNotFurther) {
  constexpr UInt32 kBody = 4097 - 18;
  Bytes flagged(22);
  flagged[4] = 0x10;
  const struct {
    UInt32 m_u32Id;
    Bytes m_front;
    int m_width;  // bytes of the text's length
  } kTexts[] = {{kMsgOsdStringShow, flagged, 2},
                {kMsgOsdDispImage, Bytes(4), 4},
                {kMsgOsdGuideShow, Bytes(4), 4}};
  for (const auto& [u32Id, front, width] : kTexts) {
    const UInt32 u32Room = kBody - static_cast<UInt32>(front.size()) - static_cast<UInt32>(width);
    for (UInt32 u32Length : {u32Room, u32Room + 1, 0x7FFFFFFFu, 0x8000FFFFu, 0xFFFFFFF8u}) {
      const T_Parsed parsed = Parse(T_Wire{u32Id, 7, Put(front, u32Length, width)}.Datagram());
      const Bool bRecord = parsed.m_params.Body<T_MsgOsdStringShow>() ||
                           parsed.m_params.Body<T_MsgOsdDispImage>() ||
                           parsed.m_params.Body<T_MsgOsdGuideShow>();
      EXPECT_EQ(parsed.m_eResult, u32Length == u32Room ? kCmdSuccess : kCmdBody) << u32Length;
      EXPECT_EQ(bRecord, u32Length == u32Room) << u32Length;
    }
  }
}

TEST(ParserBody, BytesPastTheLongestDatagramAreIgnored) {
  Bytes datagram = T_Wire{kMsgMppDispStatusChg, 7, {1, 0, 1, 2, 0xFF, 0xFF}}.Datagram();
  datagram.resize(5000, 0xEE);
  const T_Parsed parsed = Parse(datagram);
  ASSERT_EQ(parsed.m_eResult, kCmdSuccess);
  const T_MsgMppDispStatusChg& change = *parsed.m_params.Body<T_MsgMppDispStatusChg>();
  EXPECT_EQ(change.m_u16EdidLen, 4073);
  EXPECT_EQ(change.m_aEdid[4071], 0xEE);
  EXPECT_EQ(change.m_aEdid[4072], 0);
}

TEST(ParserBody, ABatchIsRefusedUnlessItsNumberFits) {
  const std::tuple<UInt8, int, CmdErr> kCases[] = {{0, 3, kCmdSuccess},
                                                   {16, 163, kCmdSuccess},
                                                   {17, 173, kCmdBody},
                                                   {2, 24, kCmdBody},
                                                   {255, 2553, kCmdBody}};
  for (const auto& [u8Num, paramLen, eResult] : kCases) {
    Bytes body = Counting(173);
    body[2] = u8Num;
    const T_Parsed parsed = Parse(T_Wire{kMsgMppBatchShow, 7, body, paramLen}.Datagram());
    EXPECT_EQ(parsed.m_eResult, eResult);
    ASSERT_TRUE(parsed.m_params.Body<T_MsgMppBatchShow>());
    const T_MsgMppBatchShow& batch = *parsed.m_params.Body<T_MsgMppBatchShow>();
    EXPECT_EQ(std::tie(batch.m_u16Vout, batch.m_u8Num), std::make_tuple(0x0201, u8Num));
    EXPECT_EQ(batch.m_aEntry[15].m_u16H, u8Num == 16 ? 0xA3A2 : 0);
  }
}
