#include <gmock/gmock.h>

#include <fstream>
#include <random>

#include "tests/system/daemon.h"

namespace {

class Wire : public CServedTest {
 protected:
  // The next datagram for i_peer is this one, and the daemon sent no other since the last one.
  static void Expect(CPeer& i_peer, UInt32 i_u32Id, const Bytes& i_body,
                     const std::string& i_type = "RES") {
    EXPECT_EQ(i_peer.Await(), Datagram(s_u32Replies++, i_u32Id, i_body, i_type));
  }
  // Sends a request and takes its ACK.
  static UInt32 Acknowledged(UInt32 i_u32Id, const Bytes& i_body,
                             const std::string& i_type = "CMD") {
    const UInt32 u32Seq = s_pPeer->NextSeq();
    s_pPeer->Send(Datagram(u32Seq, i_u32Id, i_body, i_type));
    Expect(*s_pPeer, 0, Pack(u32Seq, i_u32Id));
    return u32Seq;
  }
  static void Unanswered(UInt32 i_u32Id, const Bytes& i_body) {
    s_pPeer->Send(Datagram(s_pPeer->NextSeq(), i_u32Id, i_body));
    Acknowledged(kCalibrate, {2});
  }
  // After datagrams whose replies were not counted.
  static void Recount(CPeer& i_peer) {
    ASSERT_GT(i_peer.AwaitAnswer(), 0U);
    s_u32Replies = i_peer.LastReplySeq() + 1;
  }
};

TEST_F(Wire, ATextLeavesItsLogLinesInOrder) {
  Acknowledged(kInit, Pack(UInt64{0}, UInt64{0}, UInt32{640}, UInt32{360}));
  ASSERT_TRUE(s_pRoot->Logs("INFO osd init for [0] ok size[1]"));
  const size_t before = s_pRoot->Log().size();
  const T_Text text{.m_u16Seq = 0x123, .m_u16X = 16, .m_u16Y = 9, .m_text = "Hi %s"};
  const std::string seq = std::to_string(Acknowledged(kText, text.Body()));
  const std::string expected[] = {
      "INFO parse msghead[MainCtl]: type<CMD> seq<" + seq + "> id<0x10000> paramlen<29>",
      "INFO cmd_osd_str_show[MainCtl]: voutSeq<0> osdSeq<0x123> flag<0x3f> align<1> x<16> y<9> "
      "fsize<48> fcolor<0xffffffff> bground<0xc0202080> strlen<5> str<Hi %s>",
      "INFO -Osd_hifb_msg<0x503>",
      "INFO osd disp: bGS<0>,seq<0x123>,rect<16,9>,line<1>,time<65535>,str<Hi %s>,hide<0>,"
      "voseq<0>"};
  ASSERT_TRUE(s_pRoot->Logs(expected[3]));
  const std::vector<std::string> lines = s_pRoot->Log();
  ASSERT_EQ(lines.size(), before + std::size(expected));
  for (size_t i = 0; i < std::size(expected); ++i) {
    const size_t end = lines[before + i].rfind(" --[");
    EXPECT_EQ(lines[before + i].substr(0, end), expected[i]);
    EXPECT_THAT(lines[before + i].substr(end), testing::MatchesRegex(" --\\[[a-z_.]+:[0-9]+\\]"));
  }
}

TEST_F(Wire, EveryResultCodeHasItsReply) {
  constexpr UInt16 kReplies = 9;
  struct T_Case {
    Bytes m_datagram;
    UInt16 m_u16Reply;
    Bytes m_body;
    const char* m_pLog;
  };
  const auto changed = [](size_t i_at, const Bytes& i_bytes) {
    Bytes datagram = Datagram(77, kCalibrate, {2});
    std::copy(i_bytes.begin(), i_bytes.end(), datagram.begin() + static_cast<std::ptrdiff_t>(i_at));
    return datagram;
  };
  const UInt32 u32Show = 0x20000;
  const T_Case kCases[] = {
      {Bytes(17, 0x55), kReplies, {}, "WARN Msg head len error"},
      {{}, kReplies, {}, "WARN Msg head len error"},
      {changed(0, {0x88, 0x77, 0x66, 0x55}), 3, Pack(0x88776655),
       "WARN Msg magic error: magic<0x88776655>"},
      {changed(4, {1}), 4, {1, 0}, "WARN Msg version error: version<1>"},
      {changed(5, {'c', 'm', 'd'}), 5, {'c', 'm', 'd'}, "WARN Msg type error: type<cmd>"},
      {changed(12, Pack(0x20007)), 7, Pack(77, 0x20007), "WARN Msg id error: id<0x20007>"},
      {Datagram(77, u32Show, Bytes(11)), 8, Pack(77, u32Show, UInt16{11}, UInt16{12}),
       "WARN Msg param len err: len<11>"},
      {Datagram(77, 0x20002, {1, 0, 17}), kReplies, {}, "WARN Msg parse body error"}};
  for (const T_Case& row : kCases) {
    s_pPeer->Send(row.m_datagram);
    if (row.m_u16Reply < kReplies) Expect(*s_pPeer, row.m_u16Reply, row.m_body);
    Acknowledged(kCalibrate, {2});
    EXPECT_TRUE(s_pRoot->Logs(row.m_pLog));
  }
  CPeer(9638).Send(Datagram(77, kCalibrate, {2}));
  EXPECT_TRUE(s_pRoot->Logs("WARN Parse MsgSeq fail, RemotePort<9638> is undefine"));
  EXPECT_TRUE(s_pRoot->Logs("ERROR Unknown Error Msg<9>"));
}

TEST_F(Wire, BothKindsOfPeersKeepTheirSequenceRules) {
  for (UInt16 port = 9634; port <= 9648; ++port) {
    if (port == 9635 || port == 9636 || port == 9638 || port == 9646) continue;
    CPeer peer(port);
    const UInt32 u32Restart = CPeer::RestartOf(port);
    for (const UInt32 seq : {5U, 1000U, 4U, u32Restart, u32Restart, 1 - u32Restart}) {
      peer.Send(Datagram(seq, kCalibrate, {2}));
      Expect(peer, 0, Pack(seq, UInt32{kCalibrate}));
    }
    peer.Send(Datagram(1 - u32Restart, kCalibrate, {2}));
    Expect(peer, 6, Pack(1 - u32Restart, port < 9641 || port > 9644 ? 1 - u32Restart : 0));
  }
  EXPECT_TRUE(s_pRoot->Logs("WARN GetMsgPrevSeq fail, RemotePort<9641> is undefine"));
}

TEST_F(Wire, HidesAreAcknowledgedBeforeTheyAreForwarded) {
  CPeer mpp(9637);
  Acknowledged(kHide, {0x34, 0x12, 0xFF, 0xFF, 1, 2, 3}, "EVT");
  Expect(mpp, kHide, {0x34, 0x12, 0xFF, 0xFF}, "EVT");
  Acknowledged(kHide, {0x34, 0x12, 0xAB, 2});
  Expect(mpp, kHide, {0x34, 0, 0xAB, 2}, "CMD");
  for (const UInt8 type : Bytes{0, 1, 3, 4, 5, 255}) Acknowledged(kHide, {0, 0, 1, type});
  EXPECT_TRUE(mpp.Await(0).empty());
  EXPECT_TRUE(s_pRoot->Logs("ERROR ProcessMsgOsdElemHide: Unknown osd type<0x5>"));
  for (const UInt8 type : Bytes{2, 6}) Acknowledged(kDelete, {0, 0, 1, type});
  EXPECT_TRUE(s_pRoot->Logs("WARN delete image, not implement!"));
  EXPECT_TRUE(s_pRoot->Logs("ERROR ProcessMsgOsdElemDel: Unknown osd type<0x6>"));
}

TEST_F(Wire, OnlyTheNineRequestsAreAcknowledged) {
  for (const char* type : {"CMD", "RES", "EVT"}) {
    for (UInt32 id = 0x10000; id <= 0x10006; ++id) Acknowledged(id, {9, 9, 9, 9}, type);
    for (const UInt32 id : {kInit, kDeInit}) Acknowledged(id, Bytes(24), type);
  }
  for (UInt32 id = 0; id <= 8; ++id) Unanswered(id, Bytes(12));
  Unanswered(0x20001, {1, 0, 3, 2});
  EXPECT_TRUE(s_pRoot->Logs("INFO cmd_hide[MainCtl]: vout<0x1> vin<0x2-0x3>"));
  EXPECT_TRUE(s_pRoot->Logs("WARN ProcessOsdMsg: ERR_RES_MSG_PARAM_LEN"));
}

TEST_F(Wire, SizesUpToTheBufferAndBeyond) {
  T_Text text{.m_text = std::string(4096 - 18 - 24, 'x')};
  Acknowledged(kText, text.Body());
  Bytes larger = text.Body();
  larger.resize(60000);
  Acknowledged(kText, larger);
  text.m_text += "xx";
  Unanswered(kText, text.Body());
  for (const UInt32 id : {0x10003U, 0x10005U}) Unanswered(id, Pack(0, 0xFFFFFFFF));
}

TEST_F(Wire, CalibrationTakesTheResolutionFile) {
  const std::string path = s_pRoot->Path("/tmpfile/resolution.cfg");
  Acknowledged(kDelete, {0, 0, 0xFF, 0xFF});
  for (const char* content : {"\x80\xFF=\n\nheight", "width\nheight=-5", "width=0x\nheight=99",
                              "width = 320\r\nheight=240"}) {
    std::ofstream(path) << content;
    Acknowledged(kCalibrate, {0});
  }
  EXPECT_TRUE(s_pRoot->Shows(0, {0, 0, 320, 240}));
  EXPECT_TRUE(s_pRoot->Logs("ERROR HandleOsdInitMsg layer<0> err"));
  Acknowledged(kCalibrate, {1});
  EXPECT_TRUE(s_pRoot->Logs("INFO osd deinit for [0]"));
  unlink(path.c_str());
  Acknowledged(kCalibrate, {0});
  EXPECT_TRUE(s_pRoot->Logs("ERROR can not open resolution.cfg: <No such file or directory>!!!"));
}

TEST_F(Wire, TruncatedRequestsAreReadAsZerosOrDropped) {
  const Bytes path = {0,   0, 1, 2, 5, 0, 0, 0, 'p', 'a', 't', 'h',
                      's', 1, 0, 2, 0, 3, 0, 4, 0,   5,   0};
  const Bytes screen = Pack(UInt64{7}, UInt64{0}, 64, 64);
  const std::pair<UInt32, Bytes> kBodies[] = {
      {kText, T_Text{.m_text = "cut"}.Body()}, {kInit, screen}, {0x10003, path}, {0x10005, path}};
  for (const auto& [id, body] : kBodies)
    for (size_t kept = 0; kept < 18 + body.size(); ++kept) {
      const UInt32 u32Seq = s_pPeer->NextSeq();
      Bytes datagram = Datagram(u32Seq, id, body);
      datagram.resize(kept);
      s_pPeer->Send(datagram);
      if (kept >= 18) Expect(*s_pPeer, 0, Pack(u32Seq, id));
    }
}

TEST_F(Wire, NoFloodAndNoGarbageMakesItDeaf) {
  {
    CPeer camera(9639);
    CPeer hdmi(9640);
    const Bytes text = T_Text{.m_text = "flood"}.Body();
    for (UInt32 i = 0; i < 1000; ++i)
      for (CPeer* pPeer : {&camera, &hdmi}) pPeer->Send(Datagram(pPeer->NextSeq(), kText, text));
    Recount(camera);
  }
  constexpr UInt32 kIds[] = {2,       0x10000, 0x10001, 0x10003, 0x10004,   0x10005,
                             0x10006, 0x1FFFE, 0x20002, 0x20012, 0x80002000};
  std::mt19937 random(20261121);
  for (UInt32 i = 0; i < 4000; ++i) {
    Bytes datagram = Datagram(i + 9999, kIds[i % std::size(kIds)], Bytes(random() % 60));
    for (size_t at = i % 4 ? 18 : 0; at < datagram.size(); ++at)
      datagram[at] = static_cast<UInt8>(random());
    s_pPeer->Send(datagram);
    if (i % 100 == 0) Recount(*s_pPeer);
  }
  Recount(*s_pPeer);
  Acknowledged(kCalibrate, {2});
}

}  // namespace
