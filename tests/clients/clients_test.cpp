// The clients for other processes against the daemon's own codec: every message, whole, cut off
// anywhere, and damaged.
#include "clients/osd_client.h"

#include <gmock/gmock.h>

#include <cstdio>

#include "tests/protocol/parsed.h"

namespace {

// What the daemon makes of a datagram.
struct T_Case {
  Bytes m_datagram;
  UInt32 m_u32Result;
  Bytes m_again;    // its message as the daemon would send it, when decoded
  Bool m_bTextCut;  // parts that clients point to did not all arrive: they may refuse it
};

template <class Message>
T_Case CaseOf(const Bytes& i_datagram) {
  T_Case made{i_datagram, Parse(i_datagram).m_eResult, {}, false};
  if (made.m_u32Result != kCmdSuccess) return made;
  const size_t received = std::min<size_t>(i_datagram.size(), kMaxDatagram) - kMsgHeaderSize;
  Message message;
  made.m_u32Result = DecodeBody(i_datagram.data() + kMsgHeaderSize, static_cast<UInt32>(received),
                                DecodeHeader(i_datagram.data()), &message);
  message.m_stHeader.m_u16ParamLen = BodySize(message);
  made.m_again.resize(kMaxDatagram);
  made.m_again.resize(EncodeMessage(message, made.m_again.data()));
  if constexpr (
      requires { message.m_pStr; } || requires { message.m_pPath; } ||
      requires { message.m_aEdid; })
    made.m_bTextCut = BodySize(message) > received;
  return made;
}

template <class Message>
void AddCases(UInt32 i_u32Id, std::mt19937& io_random, std::vector<T_Case>& o_cases) {
  for (size_t kept = 0; kept <= kMsgHeaderSize + kBodySize; ++kept) {
    Bytes datagram = RandomDatagram(*FindMessage(i_u32Id), io_random);
    datagram.resize(kept);
    o_cases.push_back(CaseOf<Message>(datagram));
  }
  for (const size_t size : {0U, 17U, 18U, 60U, 200U, 4096U, 4097U, 5000U})
    for (UInt32 i = 0; i < 8; ++i) {
      Bytes datagram = Datagram(static_cast<UInt32>(io_random()), i_u32Id, Bytes(5000));
      for (UInt8& byte : datagram)
        if (const auto at = &byte - datagram.data();
            at >= 16 || (at / 3 != 4 && io_random() % 99 == 0))
          byte = static_cast<UInt8>(io_random() % 3 ? io_random() : io_random() % 9);
      const UInt32 u32Required = FindMessage(i_u32Id)->m_u32RequiredLen;
      if (u32Required != kAnyLength && i % 4)
        datagram[16] = static_cast<UInt8>(u32Required), datagram[17] = 0;
      datagram.resize(size);
      o_cases.push_back(CaseOf<Message>(datagram));
    }
}

std::vector<T_Case> AllCases() {
  std::vector<T_Case> cases;
  std::mt19937 random(20261122);
#define OSD_MESSAGE(i_id, i_Name, i_Record, ...) AddCases<i_Record>(i_id, random, cases);
#define OSD_ERROR_REPLY(i_id, i_Name, i_Record) AddCases<i_Record>(i_id, random, cases);
#include "protocol/messages.def"
  const auto add = [&]<class Message>(UInt32 i_u32Id, const Bytes& i_body) {
    cases.push_back(CaseOf<Message>(Datagram(7, i_u32Id, i_body)));
  };
  for (const UInt32 length : {0U, 1U, 2U})
    add.operator()<T_MsgOsdGuideShow>(kGuide, Pack(0, length, std::string("/a")));
  for (UInt16 length = 4054; length < 4057; ++length)
    add.operator()<T_MsgOsdStringShow>(kText,
                                       Pack(0, 0x10, 0, 0, 0, UInt16{}, length, Bytes(4054)));
  add.operator()<T_MsgMppDispStatusChg>(kMsgMppDispStatusChg,
                                        Pack(UInt16{}, UInt16{0x200}, UInt16{5000}));
  for (UInt8 entries = 16; entries < 18; ++entries)
    add.operator()<T_MsgMppBatchShow>(kMsgMppBatchShow,
                                      Pack(UInt16{}, entries, Bytes(10U * entries)));
  return cases;
}

std::string Hex(const Bytes& i_bytes) {
  std::string strHex = "-";
  for (const UInt8 byte : i_bytes) {
    constexpr char kDigits[] = "0123456789abcdef";
    strHex += {kDigits[byte >> 4], kDigits[byte & 15]};
  }
  return strHex;
}

// A script with a line for each case on its standard input; more may follow.
FILE* StartWithCases(const std::string& i_strScript) {
  FILE* pScript = ::popen(("python3 " OSD_SCRIPTS "/" + i_strScript).c_str(), "w");
  for (const T_Case& expected : AllCases())
    std::fprintf(pScript, "%s %u %s %d\n", Hex(expected.m_datagram).c_str(), expected.m_u32Result,
                 Hex(expected.m_again).c_str(), expected.m_bTextCut);
  return pScript;
}

}  // namespace

TEST(Clients, CReadsAndWritesWhatTheDaemonDoes) {
  for (const T_Case& expected : AllCases()) {
    SCOPED_TRACE(Hex(expected.m_datagram));
    osd_message message;
    const UInt32 u32Result =
        osd_unpack(expected.m_datagram.data(), expected.m_datagram.size(), &message);
    if (expected.m_bTextCut && u32Result == OSD_BAD_BODY) continue;
    ASSERT_EQ(u32Result, expected.m_u32Result);
    if (u32Result != OSD_DONE) continue;
    Bytes again(expected.m_again.size());
    ASSERT_EQ(osd_pack(&message, again.data(), again.size()), again.size());
    ASSERT_EQ(again, expected.m_again);
    ASSERT_EQ(osd_pack(&message, again.data(), again.size() - 1), 0U) << "it does not fit";
  }
}

TEST(Clients, WhatPassesADatagramIsNotSent) {
  osd_message message = osd_make(OSD_STRING_SHOW);
  message.body.string_show.flag = OSD_MASK_TEXT;
  const Bytes text(kMaxDatagram);
  message.body.string_show.str = reinterpret_cast<const char*>(text.data());
  message.body.string_show.str_len = kMaxDatagram - kMsgHeaderSize - 24;
  Bytes buffer(2 * kMaxDatagram);
  EXPECT_EQ(osd_pack(&message, buffer.data(), buffer.size()), kMaxDatagram);
  ++message.body.string_show.str_len;
  EXPECT_EQ(osd_pack(&message, buffer.data(), buffer.size()), 0U);
}

TEST(Clients, PythonReadsAndWritesWhatTheDaemonDoes) {
  FILE* pPython = StartWithCases("cases.py");
  for (UInt16 port = 9630; port < 9652; ++port) {
    const T_Peer* pPeer = FindPeer(port);
    std::fprintf(pPython, "%u %u %d %u\n", port, kDaemonPort, pPeer && pPeer->HasSlot(),
                 pPeer ? pPeer->m_u32AlwaysAccepted : 0);
  }
  for (UInt32 size = 0; size < 256; ++size)
    for (const UInt32 canvas : {320U, 1366U, 3840U})
      std::fprintf(pPython, "cell %u %u %u\n", size, canvas,
                   osd_text_width(&osd_dejavu_sans_mono, size, canvas, 1));
  EXPECT_EQ(::pclose(pPython), 0);
}

TEST(Clients, TheDissectorShowsWhatTheDaemonSees) {
  EXPECT_EQ(::pclose(StartWithCases("dissector.py")), 0);
}

TEST(Clients, CFollowsTheSequenceRuleOfEachPort) {
  std::mt19937 random(20261122);
  for (UInt16 port = 9630; port < 9652; ++port) {
    const osd_peer_row* pPeer = osd_find_peer(port);
    ASSERT_EQ(pPeer != nullptr, FindPeer(port) != nullptr);
    if (pPeer == nullptr) continue;
    EXPECT_STREQ(pPeer->name, CAPIParser::ModuleName(port));
    T_MsgSeq seq{{}, port};
    UInt32 u32Last = 0;
    for (UInt32 i = 0; i < 100; ++i) {
      const auto u32Seq = static_cast<UInt32>(random() % 3);
      const Bool bTaken =
          Parse(Datagram(u32Seq, kMsgOsdElemHide, {}), seq).m_eResult == kCmdSuccess;
      ASSERT_EQ(osd_accepts(pPeer, u32Seq, &u32Last) != 0, bTaken) << port << ": " << u32Seq;
    }
  }
}

namespace {

// A daemon in a few lines: what it sends back, one row a datagram that is asked for.
struct T_Script {
  std::vector<Bytes> m_replies;
  std::vector<Bytes> m_sent;
  UInt32 m_u32Now = 0;
  UInt32 m_u32Others = 0;
};

osd_result Send(osd_client* i_pClient, const UInt8* i_pData, size_t i_length) {
  static_cast<T_Script*>(i_pClient->user)->m_sent.emplace_back(i_pData, i_pData + i_length);
  return OSD_DONE;
}

int Receive(osd_client* i_pClient, UInt8* o_pBuf, size_t, UInt32 i_u32Ms) {
  auto& script = *static_cast<T_Script*>(i_pClient->user);
  const Bytes reply = script.m_replies.empty() ? Bytes{} : script.m_replies.front();
  if (!script.m_replies.empty()) script.m_replies.erase(script.m_replies.begin());
  if (reply.size() == 1) return -reply[0];
  script.m_u32Now += reply.empty() ? i_u32Ms : 1;
  std::copy(reply.begin(), reply.end(), o_pBuf);
  return reply.empty() ? -OSD_NO_ANSWER : static_cast<int>(reply.size());
}

UInt32 Now(osd_client* i_pClient) { return static_cast<T_Script*>(i_pClient->user)->m_u32Now; }

class CClient : public testing::Test {
 protected:
  CClient() {
    EXPECT_EQ(osd_start(&m_client, 9640), OSD_DONE);
    m_client.send = Send, m_client.receive = Receive, m_client.now = Now, m_client.user = &m_script;
    m_client.other = [](osd_client* i_pClient, const osd_message*) {
      ++static_cast<T_Script*>(i_pClient->user)->m_u32Others;
    };
  }
  ~CClient() override {
    EXPECT_EQ(::pclose(m_pPython), 0) << "the client in Python fares otherwise";
  }
  // The result, and the numbers under which it was sent.
  std::pair<osd_result, std::vector<UInt32>> Ask(const std::vector<Bytes>& i_replies,
                                                 Bool i_bProbe = false) {
    m_script.m_replies = i_replies;
    m_script.m_sent.clear();
    osd_message request = osd_make(OSD_ELEM_HIDE), reply;
    const osd_result eResult =
        i_bProbe ? osd_probe(&m_client) : osd_ask(&m_client, &request, &reply);
    std::fprintf(m_pPython, "ask %d %u %u %u", i_bProbe, eResult, m_client.generation,
                 m_script.m_u32Others);
    std::vector<UInt32> numbers;
    for (const Bytes& sent : m_script.m_sent) {
      numbers.push_back(DecodeHeader(sent.data()).m_u32Seq);
      std::fprintf(m_pPython, " %u", numbers.back());
    }
    for (const Bytes& given : i_replies) std::fprintf(m_pPython, " %s", Hex(given).c_str());
    std::fprintf(m_pPython, "\n");
    return {eResult, numbers};
  }
  static Bytes Reply(UInt32 i_u32DaemonSeq, UInt32 i_u32Seq, UInt32 i_u32Reply = 0,
                     UInt32 i_u32Id = kHide) {
    return Datagram(i_u32DaemonSeq, i_u32Reply, Pack(i_u32Seq, i_u32Id, 0), "RES");
  }
  Bool Fresh() { return std::exchange(m_u32Shown, m_client.generation) != m_client.generation; }

  osd_client m_client;
  FILE* const m_pPython = ::popen("python3 " OSD_SCRIPTS "/cases.py", "w");
  UInt32 m_u32Shown = 0;
  T_Script m_script;
};

using testing::ElementsAre;
using testing::Pair;

TEST_F(CClient, AsksAgainWithTheNextNumberUntilItsOwnAnswerComes) {
  const Bytes none;
  const Bytes hide = Datagram(7, kHide, Pack(0, 0xFFFF));
  EXPECT_THAT(Ask({none, none, none, Reply(0, 3)}), Pair(OSD_NO_ANSWER, ElementsAre(1, 2, 3)));
  EXPECT_THAT(Ask({Reply(1, 3), Reply(2, 4, 0, kText), hide, {1, 2}, Reply(8, 4)}),
              Pair(OSD_DONE, ElementsAre(4)));
  EXPECT_THAT(Ask({none, Reply(9, 5)}), Pair(OSD_DONE, ElementsAre(5, 6)))
      << "the first one's, late";
  EXPECT_THAT(Ask({Reply(10, 7, 6), Reply(11, 8)}), Pair(OSD_DONE, ElementsAre(7, 8))) << "used";
  EXPECT_THAT(Ask({Reply(12, 9, 0, kText), Reply(12, 9, 1), Reply(12, 9, 8)}),
              Pair(OSD_BAD_PARAM_LEN, ElementsAre(9)));
  EXPECT_THAT(Ask({Datagram(13, 3, Pack(1), "RES")}), Pair(OSD_BAD_MAGIC, ElementsAre(10)));
  EXPECT_THAT(Ask({Reply(14, 11, 2)}), Pair(OSD_FAILURE, ElementsAre(11)));
  EXPECT_THAT(Ask({{OSD_SOCKET}}), Pair(OSD_SOCKET, ElementsAre(12)));
  const std::vector<Bytes> strays(5000, hide);
  EXPECT_EQ(Ask(strays).first, OSD_NO_ANSWER) << "a flood of others does not keep it for ever";
}

TEST_F(CClient, NoticesEveryRestart) {
  Ask({Reply(100, 1)});
  EXPECT_TRUE(Fresh()) << "the first daemon is new, too";
  EXPECT_THAT(Ask({Reply(200, 2, 0, kCalibrate)}, true), Pair(OSD_DONE, ElementsAre(2)));
  EXPECT_FALSE(Fresh()) << "the first number is no sign";
  Ask({Reply(3, 3)});
  EXPECT_TRUE(Fresh()) << "its numbers went back";
  Ask({{OSD_NOBODY}, Reply(50, 5)});
  EXPECT_TRUE(Fresh()) << "it was away";
  Ask({Reply(51, 6)});
  EXPECT_THAT(Ask({Reply(60, 6, 6, kCalibrate)}, true), Pair(OSD_DONE, ElementsAre(6)));
  EXPECT_FALSE(Fresh()) << "it knows the number";
  EXPECT_THAT(Ask({Reply(70, 6, 0, kCalibrate)}, true), Pair(OSD_DONE, ElementsAre(6)));
  EXPECT_TRUE(Fresh()) << "it has forgotten the number";
  Ask({});
  EXPECT_THAT(Ask({Reply(71, 10, 0, kCalibrate)}, true), Pair(OSD_DONE, ElementsAre(10)));
  Ask({Reply(72, 11, 8)});
  EXPECT_THAT(Ask({Reply(73, 12, 0, kCalibrate)}, true), Pair(OSD_DONE, ElementsAre(12)));
  EXPECT_FALSE(Fresh()) << "a number that was not acknowledged is no sign";
}

}  // namespace
