#include <random>
#include <tuple>

#include "tests/system/daemon.h"

namespace {

class Wire : public CServedTest {
 protected:
  void SetUp() override {
    m_u32Replies = s_pPeer->AwaitAnswer();
    ASSERT_GT(m_u32Replies, 0U);
  }
  // The next datagram for i_peer is this one, and the daemon sent no other since the last one.
  void Expect(CPeer& i_peer, UInt32 i_u32Id, const Bytes& i_body,
              const std::string& i_type = "RES") {
    EXPECT_EQ(i_peer.Await(), Datagram(m_u32Replies++, i_u32Id, i_body, i_type));
  }
  // Sends a request and takes its ACK.
  void Acknowledged(UInt32 i_u32Id, const Bytes& i_body, const std::string& i_type = "CMD") {
    const UInt32 u32Seq = s_pPeer->NextSeq();
    s_pPeer->Send(Datagram(u32Seq, i_u32Id, i_body, i_type));
    Expect(*s_pPeer, 0, Pack(u32Seq, i_u32Id));
  }
  // Such a request gets nothing: the next datagram will be another's.
  void Unanswered(UInt32 i_u32Id, const Bytes& i_body) {
    s_pPeer->Send(Datagram(s_pPeer->NextSeq(), i_u32Id, i_body));
  }

  UInt32 m_u32Replies = 0;
};

TEST_F(Wire, EveryResultCodeHasItsReply) {
  constexpr UInt16 kNone = 9;
  const auto changed = [](std::ptrdiff_t i_at, const Bytes& i_bytes) {
    Bytes datagram = Datagram(77, kCalibrate, {2});
    std::copy(i_bytes.begin(), i_bytes.end(), datagram.begin() + i_at);
    return datagram;
  };
  const UInt32 u32Show = 0x20000;
  const std::tuple<Bytes, UInt16, Bytes, const char*> kCases[] = {
      {Bytes(17, 0x55), kNone, {}, "WARN Msg head len error"},
      {{}, kNone, {}, "WARN Msg head len error"},
      {changed(0, {0x88, 0x77, 0x66, 0x55}), 3, Pack(0x88776655),
       "WARN Msg magic error: magic<0x88776655>"},
      {changed(4, {1}), 4, {1, 0}, "WARN Msg version error: version<1>"},
      {changed(5, {'c', 'm', 'd'}), 5, {'c', 'm', 'd'}, "WARN Msg type error: type<cmd>"},
      {changed(12, Pack(0x20007)), 7, Pack(77, 0x20007), "WARN Msg id error: id<0x20007>"},
      {Datagram(77, u32Show, Bytes(11)), 8, Pack(77, u32Show, UInt16{11}, UInt16{12}),
       "WARN Msg param len err: len<11>"},
      {Datagram(77, 0x20002, {1, 0, 17}), kNone, {}, "WARN Msg parse body error"}};
  for (const auto& [datagram, u16Reply, body, pLog] : kCases) {
    s_pPeer->Send(datagram);
    if (u16Reply != kNone) Expect(*s_pPeer, u16Reply, body);
    Acknowledged(kCalibrate, {2});
    EXPECT_TRUE(s_pRoot->Logs(pLog));
  }
  CPeer(9638).Send(Datagram(77, kCalibrate, {2}));
  EXPECT_TRUE(s_pRoot->Logs("WARN Parse MsgSeq fail, RemotePort<9638> is undefine"));
  EXPECT_TRUE(s_pRoot->Logs("ERROR parse error nRet<9>"));
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
  EXPECT_TRUE(s_pRoot->Logs("WARN kWriteEvent signal"));
  for (const UInt8 type : Bytes{0, 1, 3, 4, 5, 255}) Acknowledged(kHide, {0, 0, 1, type});
  EXPECT_TRUE(mpp.Await(0).empty());
}

TEST_F(Wire, OnlyTheNineRequestsAreAcknowledgedWhateverTheirSize) {
  for (const char* type : {"CMD", "RES", "EVT"}) {
    for (UInt32 id = 0x10000; id <= 0x10006; ++id) Acknowledged(id, {9, 9, 9, 9}, type);
    for (const UInt32 id : {kInit, kDeInit}) Acknowledged(id, Bytes(24), type);
  }
  for (UInt32 id = 0; id <= 8; ++id) Unanswered(id, Bytes(12));
  Unanswered(0x20001, {1, 0, 3, 2});
  T_Text text{.m_text = std::string(4096 - 18 - 24, 'x')};
  Acknowledged(kText, text.Body());
  Bytes larger = text.Body();
  larger.resize(60000);
  Acknowledged(kText, larger);
  text.m_text += "xx";
  Unanswered(kText, text.Body());
  for (const UInt32 id : {0x10003U, 0x10005U}) Unanswered(id, Pack(0, 0xFFFFFFFF));
  Acknowledged(kCalibrate, {2});
}

TEST_F(Wire, ABurstWaitsUntilItIsRead) {
  kill(s_pDaemon->Pid(), SIGSTOP);
  for (UInt32 i = 0; i < 1000; ++i)
    s_pPeer->Send(Datagram(s_pPeer->NextSeq(), kCalibrate, Bytes(96 - 18, 2)));
  kill(s_pDaemon->Pid(), SIGCONT);
  const UInt32 u32Answers = s_pPeer->AwaitAnswer() - m_u32Replies;
  UInt32 u32Bytes = 0;  // what the kernel granted
  for (const std::string& line : s_pRoot->Log())
    std::sscanf(line.c_str(), "INFO the receive buffer has %u bytes", &u32Bytes);
  const auto allowed = 2 * std::stoul(ReadFile("/proc/sys/net/core/rmem_max"));
  EXPECT_GE(u32Bytes, std::min(1000 * 1024UL, allowed));
  EXPECT_LE(u32Bytes, 1000 * 1024U) << "more than it needs";
  EXPECT_GE(u32Answers, std::min(1000U, u32Bytes / 1024) + 1);
}

TEST_F(Wire, NoFloodAndNoGarbageMakesItDeaf) {
  CPeer camera(9639);
  for (UInt32 i = 0; i < 2000; ++i)
    camera.Send(Datagram(camera.NextSeq(), kText, T_Text{.m_text = "flood"}.Body()));
  ASSERT_GT(camera.AwaitAnswer(), 0U);
  std::mt19937 random(20261121);
  for (UInt32 i = 0; i < 4000; ++i) {
    Bytes datagram = Datagram(i + 9999, kText + i % 7, Bytes(random() % 60));
    for (size_t at = i % 4 ? 18 : 0; at < datagram.size(); ++at)
      datagram[at] = static_cast<UInt8>(random());
    s_pPeer->Send(datagram);
    s_pPeer->Await(0);
  }
  ASSERT_GT(s_pPeer->AwaitAnswer(), 0U);
}

}  // namespace
