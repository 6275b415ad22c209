#include <tuple>
#include <utility>

#include "tests/log_capture.h"
#include "tests/protocol/parsed.h"

TEST(ParserHeader, ChecksComeInOrderAndLeaveTheSlotAlone) {
  // What is refused, and what is put where to mend it; the next row shows the next fault.
  const std::tuple<CmdErr, std::string, size_t, Bytes> kFaults[] = {
      {kCmdMagic, "DEBUG CAPIParser MsgHeadParse fail, msg magic error", 0, {0x55, 0x66}},
      {kCmdVersion, "", 4, {0}},
      {kCmdType, "ERROR CAPIParser MsgHeadParse fail, msg type<cmd> error", 5, {'C', 'M', 'D'}},
      {kCmdId, "WARN CheckMsgIdAndMsgLength fail, ID<0x20007> is undefine", 12, {1}},
      {kCmdParamLen, "ERROR CAPIParser CheckMsgIdAndMsgLength fail, error_no<7> error", 16, {4}},
      {kCmdSequence, "", 8, {6}}};
  CLogCapture log;
  T_MsgSeq seq{{7}, kMainCtl};
  Bytes datagram = Datagram(7, 0x00020007, Bytes(3), "cmd");
  datagram[0] = datagram[4] = 1;
  const T_Parsed tooShort = Parse(Bytes(datagram.begin(), datagram.begin() + 17), seq);
  EXPECT_EQ(std::pair(tooShort.m_eResult, tooShort.m_eId), std::pair(kCmdHeadLen, RES_MSG_ACK));
  for (const auto& [eResult, line, at, mended] : kFaults) {
    const T_Parsed parsed = Parse(datagram, seq);
    EXPECT_EQ(parsed.m_eResult, eResult);
    EXPECT_TRUE(line.empty() || log.Has(line)) << line;
    EXPECT_EQ(parsed.m_eId, 0x20000u + datagram[12]);
    ASSERT_TRUE(parsed.m_params.m_pHeadError);
    EXPECT_EQ(parsed.m_params.m_pHeadError->m_stHeader.m_u32Id, parsed.m_eId);
    EXPECT_EQ(seq.m_aSeq[0], 7u);
    std::copy(mended.begin(), mended.end(), datagram.begin() + static_cast<std::ptrdiff_t>(at));
  }
  EXPECT_EQ(Parse(datagram, seq).m_eResult, kCmdSuccess);
  EXPECT_EQ(seq.m_aSeq[0], 6u);
}

TEST(ParserHeader, IsLoggedWithTheNameOfItsPortsPeer) {
  CLogCapture log;
  T_MsgSeq seq{{}, 9633};
  for (const char* pName : {"Unknown", "Test", "MainCtl", "Osd", "Mpp", "Upgrade", "UsbCam",
                            "HdmiIn", "Ipav", "Airplay", "Miracast", "ZtCast", "VkDongle",
                            "Unknown", "ZtDongle", "HIDTrans", "Unknown"}) {
    Parse(Datagram(7, 0x10004, {2}), seq);
    const std::string line =
        std::string("INFO parse msghead[") + pName + "]: type<CMD> seq<7> id<0x10004> paramlen<1>";
    EXPECT_EQ(log.Take().front(), line) << seq.m_u16RemotePort;
    ++seq.m_u16RemotePort;
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
  for (UInt32 u32Id : {9u, 0x10007u, 0x1FFFDu, 0x20008u, 0x2000Eu, 0x80002001u, 0xFFFFFFFFu})
    EXPECT_EQ(check(u32Id, 0), kCmdId) << u32Id;
}

TEST(ParserBody, TextsMayReachTheEndOfTheBufferAndNotFurther) {
  const Bytes flagged = Pack(UInt32{0}, UInt64{0x10}, UInt64{0}, UInt16{0});
  const std::tuple<UInt32, Bytes, size_t> kTexts[] = {{kMsgOsdStringShow, flagged, 2},
                                                      {kMsgOsdDispImage, Bytes(4), 4},
                                                      {kMsgOsdGuideShow, Bytes(4), 4}};
  for (const auto& [u32Id, front, width] : kTexts) {
    const UInt32 u32Room = static_cast<UInt32>(4097 - 18 - front.size() - width);
    for (const UInt32 u32Length : {u32Room, u32Room + 1, 0x7FFFFFFFu, 0x8000FFFFu, 0xFFFFFFF8u}) {
      Bytes length = Pack(u32Length);
      length.resize(width);
      const CmdErr eResult = Parse(Datagram(7, u32Id, Pack(front, length))).m_eResult;
      EXPECT_EQ(eResult, u32Length == u32Room ? kCmdSuccess : kCmdBody) << u32Length;
    }
  }
}

TEST(ParserBody, BytesThatADatagramCannotHaveReadAsZero) {
  const Bytes flagged = Pack(UInt32{0}, UInt64{0x10}, UInt64{0}, UInt16{0}, UInt16{4055});
  const T_Parsed parsed = Parse(Datagram(7, kMsgOsdStringShow, Pack(flagged, Bytes(5000, 'x'))));
  const char* const pText = parsed.m_params.Body<T_MsgOsdStringShow>()->m_pStr.get();
  EXPECT_EQ(std::string(pText, 4055), std::string(4054, 'x') + '\0');
}

TEST(ParserBody, ABatchIsRefusedUnlessItsNumberFits) {
  const std::tuple<UInt8, size_t, CmdErr> kCases[] = {{0, 3, kCmdSuccess},
                                                      {16, 163, kCmdSuccess},
                                                      {17, 173, kCmdBody},
                                                      {2, 24, kCmdBody},
                                                      {255, 2553, kCmdBody}};
  for (const auto& [u8Num, size, eResult] : kCases) {
    Bytes body = Counting(size);
    body[2] = u8Num;
    const T_Parsed parsed = Parse(Datagram(7, kMsgMppBatchShow, body));
    EXPECT_EQ(parsed.m_eResult, eResult);
    ASSERT_TRUE(parsed.m_params.Body<T_MsgMppBatchShow>());
    const T_MsgMppBatchShow& batch = *parsed.m_params.Body<T_MsgMppBatchShow>();
    EXPECT_EQ(std::tie(batch.m_u16Vout, batch.m_u8Num), std::make_tuple(0x0201, u8Num));
    EXPECT_EQ(batch.m_aEntry[15].m_u16H, u8Num == 16 ? 0xA3A2 : 0);
  }
}
