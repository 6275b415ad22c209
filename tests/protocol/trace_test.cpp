#include <tuple>
#include <utility>

#include "tests/log_capture.h"
#include "tests/protocol/parsed.h"

namespace {

using namespace std::literals;
using Lines = std::vector<std::string>;

// What PrintMsg writes about a received message.
Lines TraceOf(UInt32 i_u32Id, const Bytes& i_body) {
  const T_Parsed parsed = Parse(Datagram(7, i_u32Id, i_body));
  EXPECT_EQ(parsed.m_eResult, kCmdSuccess) << i_u32Id;
  CLogCapture log;
  CAPIParser::PrintMsg(MsgId{i_u32Id}, kMainCtl, &parsed.m_params);
  return log.Take();
}

}  // namespace

TEST(Trace, EachKindOfFieldHasItsPlaceInTheLine) {
  const Bytes text{1, 2, 3, 4, 0x30, 0, 0, 0, 8, 9, 0, 10, 0, 11, 1, 0, 0, 0, 2, 0, 0, 0, 5, 0};
  Bytes noText = text;
  noText[4] = 0x2F;
  // clang-format off
  const std::tuple<UInt32, Bytes, std::string> cases[] = {
      {kMsgAck, Counting(8), "res_msg_ack[MainCtl]: msgSeq<67305985> msgId<0x8070605>"},
      {kMsgProcessSuccess, Counting(8), "res_msg_process_success[MainCtl]: msgSeq<0x4030201>, msgId<0x8070605>"},
      {kMsgOsdInit, Bytes(24, 0xFF), "cmd_osd_init[MainCtl]: VoDev<-1> VideoLayer<-1> x<-1> y<-1> w<4294967295> h<4294967295>"},
      {kMsgMppShow, Counting(12), "cmd_show[MainCtl]: vout<0x201> vin<0x4-0x3> pos<1541:2055:2569:3083>"},
      {kMsgMppModifyRes, {1, 2, 3, 4, 5, 6, 7, 8, 9, 0, 1}, "cmd_mdfy_res[MainCtl]: vout<0x201> mode<3> res<1284x1798@2312> pixfmt<YUV444> colorDepth<30bit>"},
      {kMsgMppModifyRes, {1, 2, 3, 4, 5, 6, 7, 8, 9, 4, 3}, "cmd_mdfy_res[MainCtl]: vout<0x201> mode<3> res<1284x1798@2312> pixfmt<BUTT> colorDepth<24bit>"},
      {kMsgMppQueryResAckExt, {1, 0, 0, 0, 5, 6, 7, 8, 9, 10, 11, 12, 1, 2}, "res_query_res_ext[MainCtl]: vout<0x605> seq<1> res<2055x2569:RGB444>"},
      {kMsgMppDispStatusChg, {1, 2, 1, 2, 3, 0, 0xA, 0xB, 0xC}, "cmd_disp_chg[MainCtl]: vout<0x201> bConnected<1> edidLen<3>"},
      {kMsgMppDispStatusChg, {1, 2, 1, 1, 3, 0, 0xA, 0xB, 0xC}, "cmd_disp_chg[MainCtl]: vout<0x201> bConnected<1> edidLen<0>"},
      {kMsgOsdGuideShow, Pack(Bytes{1, 2, 3, 4, 2, 0, 0, 0}, "ab?"s), "cmd_osd_guide[MainCtl]: osdOut<0x201> osdSeq<0x403> pathLen<2> path<ab>"},
      {kMsgOsdGuideShow, Pack(Bytes{1, 2, 3, 4, 1, 0, 0, 0}, "ab?"s), "cmd_osd_guide[MainCtl]: osdOut<0x201> osdSeq<0x403> pathLen<0> path<>"},
      {kMsgOsdDispImage, Pack(Bytes{1, 2, 3, 4, 3, 0, 0, 0}, "a/b1234567890"s), "cmd_osd_image_show[MainCtl]: voutSeq<0x201> osdSeq<0x403> x<12849> y<13363> width<13877> height<14391> opacity<0x3039> strlen<3> path<a/b>"},
      {kMsgOsdStringShow, Pack(text, "hello!"s), "cmd_osd_str_show[MainCtl]: voutSeq<0x201> osdSeq<0x403> flag<0x30> align<8> x<9> y<10> fsize<11> fcolor<0x1> bground<0x2> strlen<5> str<hello>"},
      {kMsgOsdStringShow, Pack(noText, "ignored"s), "cmd_osd_str_show[MainCtl]: voutSeq<0x201> osdSeq<0x403> flag<0x2f> align<8> x<9> y<10> fsize<11> fcolor<0x1> bground<0x2> strlen<0> str<>"},
  };
  // clang-format on
  for (const auto& [u32Id, body, line] : cases)
    EXPECT_EQ(TraceOf(u32Id, body), Lines{"INFO " + line});
}

TEST(Trace, ABatchHasOneMoreLinePerEntryUnlessRefused) {
  Bytes body = Counting(23);
  body[2] = 2;
  EXPECT_EQ(TraceOf(kMsgMppBatchShow, body),
            (Lines{"INFO cmd_batch_show[MainCtl]: vout<0x201> num<2>",
                   "INFO show[0]: vinSeq<0x5-0x4> pos<1798:2312:2826:3340>",
                   "INFO show[1]: vinSeq<0xf-0xe> pos<4368:4882:5396:5910>"}));
  body[2] = 255;
  const T_Parsed refused = Parse(Datagram(7, kMsgMppBatchShow, body));
  ASSERT_EQ(refused.m_eResult, kCmdBody);
  CLogCapture log;
  CAPIParser::PrintMsg(kMsgMppBatchShow, kMainCtl, &refused.m_params);
  EXPECT_EQ(log.Take(), Lines{"INFO cmd_batch_show[MainCtl]: vout<0x201> num<255>"});
}

TEST(Trace, MessagesWithoutAFormatLeaveAWarning) {
  const Lines warning{"WARN CAPIParser PrintMsg fail, ID is undefine"};
  for (UInt32 u32Id : {kMsgOsdDeInit, ERR_RES_MSG_MAGIC_NUM, ERR_RES_MSG_PARAM_LEN})
    EXPECT_EQ(TraceOf(u32Id, Counting(24)), warning);
  CLogCapture log;
  for (UInt32 u32Id : {0x00020007u, static_cast<UInt32>(kMsgOsdInit)}) {
    const T_MsgParams empty;
    CAPIParser::PrintMsg(MsgId{u32Id}, kMainCtl, &empty);
    EXPECT_EQ(log.Take(), warning) << u32Id;
  }
}
