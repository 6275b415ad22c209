// osdctl as a person runs it: the real program against a stand-in for the daemon, on its port.
#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <system_error>

#include "tools/client.h"

namespace {

using testing::HasSubstr;
using testing::MatchesRegex;

// Bytes of hexadecimal digits; blanks are for the reader.
std::string Bytes(const std::string& i_szHex) {
  std::string szBytes;
  std::string szDigits;
  for (char c : i_szHex)
    if (c != ' ') szDigits += c;
  for (size_t i = 0; i < szDigits.size(); i += 2)
    szBytes += static_cast<char>(std::stoi(szDigits.substr(i, 2), nullptr, 16));
  return szBytes;
}

class CUdp {
 public:
  // A holder that would share its port must not let osdctl in.
  explicit CUdp(UInt16 i_u16Port, int i_s32Shared = 0)
      : m_s32Fd(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    const timeval patience = {20, 0};
    ::setsockopt(m_s32Fd, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    ::setsockopt(m_s32Fd, SOL_SOCKET, SO_REUSEADDR, &i_s32Shared, sizeof i_s32Shared);
    m_stPeer.sin_port = htons(i_u16Port);
    m_stPeer.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::bind(m_s32Fd, Peer(), sizeof m_stPeer) != 0)
      throw std::system_error(errno, std::generic_category(), "port " + std::to_string(i_u16Port));
  }
  ~CUdp() { ::close(m_s32Fd); }
  CUdp(const CUdp&) = delete;
  CUdp& operator=(const CUdp&) = delete;

  // The next datagram; its sender is where Send goes from then on.
  std::string Receive() {
    std::string szBytes(kMaxDatagram, '\0');
    socklen_t length = sizeof m_stPeer;
    const ssize_t got = ::recvfrom(m_s32Fd, szBytes.data(), szBytes.size(), 0, Peer(), &length);
    return szBytes.substr(0, got > 0 ? static_cast<size_t>(got) : 0);
  }
  void Send(const std::string& i_szBytes) {
    ::sendto(m_s32Fd, i_szBytes.data(), i_szBytes.size(), 0, Peer(), sizeof m_stPeer);
  }
  UInt16 PeerPort() const { return ntohs(m_stPeer.sin_port); }
  void SetPeerPort(UInt16 i_u16Port) { m_stPeer.sin_port = htons(i_u16Port); }

 private:
  sockaddr* Peer() { return reinterpret_cast<sockaddr*>(&m_stPeer); }

  const SInt32 m_s32Fd;
  sockaddr_in m_stPeer = {AF_INET, 0, {}, {}};
};

// osdctl, started with words for the shell.
class COsdctl {
 public:
  explicit COsdctl(const std::string& i_szWords)
      : m_pPipe(::popen((OSDCTL " " + i_szWords + " 2>&1").c_str(), "r")) {}

  // Its exit code and whatever it said.
  std::pair<SInt32, std::string> Finish() {
    std::string szSaid;
    for (int c = std::getc(m_pPipe); c != EOF; c = std::getc(m_pPipe))
      szSaid += static_cast<char>(c);
    return {WEXITSTATUS(::pclose(m_pPipe)), szSaid};
  }

 private:
  FILE* const m_pPipe;
};

auto Says(SInt32 i_s32Exit, const std::string& i_szWords) {
  return testing::Pair(i_s32Exit, HasSubstr(i_szWords));
}

// A reply to the hide of element 1.5: magic, version, "RES", the daemon's number, then i_szRest.
std::string Reply(const std::string& i_szRest) {
  return Bytes("55667788 00 524553 07000000" + i_szRest);
}
const std::string kAck = Reply("00000000 0800 00000000 01000100");

class Osdctl : public testing::Test {
 protected:
  auto Answered(const std::string& i_szReply, const std::string& i_szWords = "hide --id 1.5") {
    COsdctl osdctl(i_szWords);
    m_daemon.Receive();
    m_daemon.Send(i_szReply);
    return osdctl.Finish();
  }

  CUdp m_daemon{kDaemonPort};
};

TEST_F(Osdctl, SendsTheBytesOfEachCommand) {
  const struct {
    const char* m_pWords;
    UInt16 m_u16Port;
    const char* m_pHex;  // from the sequence number on
  } rows[] = {
      {"init", 9634,
       "00000000 feff0100 1800 00000000 00000000 00000000 00000000 80070000 38040000"},
      {"init --dev -1 --layer 7 --x -2 --y 0x10 --width 1366 --height 768", 9634,
       "00000000 feff0100 1800 ffffffff 07000000 feffffff 10000000 56050000 00030000"},
      {"deinit --dev 2 --from HdmiIn", 9640,
       "01000000 ffff0100 1800 02000000 00000000 00000000 00000000 00000000 00000000"},
      {"--from MainCtl text Hi", 9635,
       "00000000 00000100 1a00 0000 0101 10000000 01 0000 0000 00 00000000 00000000 0200 4869"},
      {"text --out all --id 3.0x0A --at bottom-right --x 800 --y 600 --size 64 --colour '#80123456' "
       "--background transparent --forever -- '-x C'",
       9634,
       "00000000 00000100 1c00 ff00 0a03 3f000000 06 2003 5802 40 56341280 ffffff00 0400 2d782043"},
      {"text --y 7 --color FF8000", 9634,
       "00000000 00000100 1600 0000 0101 05000000 01 0000 0700 00 0080ffff 00000000"},
      {"text '' --at 8 --background '#00000000'", 9634,
       "00000000 00000100 1800 0000 0101 19000000 08 0000 0000 00 00000000 00000000 0000"},
      {"hide --class 2 --out 3", 9634, "00000000 01000100 0400 0300 ff02"},
      {"hide --id 0x0105", 9634, "00000000 01000100 0400 0000 0501"},
      {"delete --all", 9634, "00000000 02000100 0400 0000 ffff"},
      {"calibrate", 9634, "00000000 04000100 0100 00"},
      {"calibrate --end", 9634, "00000000 04000100 0100 01"},
  };
  for (const auto& row : rows) {
    COsdctl osdctl(row.m_pWords);
    const std::string szRequest = m_daemon.Receive();
    EXPECT_EQ(szRequest, Bytes(std::string("55667788 00 434d44") + row.m_pHex)) << row.m_pWords;
    EXPECT_EQ(m_daemon.PeerPort(), row.m_u16Port);
    m_daemon.Send(Reply("00000000 0800") + szRequest.substr(8, 8));
    EXPECT_THAT(osdctl.Finish(), Says(0, "acknowledged after"));
  }
}

TEST_F(Osdctl, PutsEachErrorReplyIntoWords) {
  const char* const rows[][2] = {
      {"02000000 0c00 00000000 01000100 2a000000", "error code 0x2a"},
      {"03000000 0400 88776655", "magic number 0x55667788"},
      {"04000000 0200 01 00", "version 1 and knows version 0"},
      {"05000000 0300 636d64", "type \"cmd\""},
      {"06000000 0800 00000000 09000000", "number 0 again; the last it noted of this peer is 9"},
      {"07000000 0800 00000000 01000100", "id 0x10001, which it does not know"},
      {"08000000 0c00 00000000 01000100 0400 0c00", "4 bytes in message 0x10001, which takes 12"},
  };
  for (const auto& row : rows) EXPECT_THAT(Answered(Reply(row[0])), Says(1, row[1]));
}

TEST_F(Osdctl, DropsWhatIsNoReplyToItsRequest) {
  COsdctl osdctl("hide --id 1.5");
  m_daemon.Receive();
  const std::string strays[] = {
      "",
      Reply("00000000 0800 01000000 01000100"),  // another sequence number
      Reply("00000000 0800 00000000 02000100"),  // another id
      Reply("06000000 0800 05000000 05000000"),  // a repeat of another sequence number
      Reply("01000000 0800 00000000 01000100"),  // processed, which is no acknowledgement
      kAck.substr(0, 25),
      Bytes("55667788 00 434d44 07000000 00000000 0800 00000000 01000100"),  // a command
      Bytes("88776655 00 524553 07000000 00000000 0800 00000000 01000100"),  // another protocol
  };
  for (const std::string& szStray : strays) m_daemon.Send(szStray);
  CUdp stranger(0);
  stranger.SetPeerPort(m_daemon.PeerPort());
  stranger.Send(kAck);
  m_daemon.Send(Reply("08000000 0c00 00000000 01000100 0400 0c00"));
  EXPECT_THAT(osdctl.Finish(), Says(1, "which takes 12"));
}

TEST_F(Osdctl, GivesUpWhenItsTimeIsOver) {
  const auto start = std::chrono::steady_clock::now();
  EXPECT_THAT(Answered("stray", "init --timeout 80"), Says(2, "did not answer within 80 ms"));
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(80));
}

TEST_F(Osdctl, SaysWhoMayHoldThePeersPort) {
  const CUdp holder(9634, 1);
  EXPECT_THAT(COsdctl("init").Finish(), Says(4, "9634 is taken: by the process \"Test\""));
  EXPECT_THAT(Answered(kAck, "hide --id 1.5 --from Mpp"), Says(0, "acknowledged"));
}

TEST_F(Osdctl, ReportsInWordsInJsonOrNotAtAll) {
  EXPECT_THAT(Answered(kAck).second,
              MatchesRegex("acknowledged after .* ms: hiding of element 1.5 on output 0\n"));
  EXPECT_EQ(Answered(kAck, "--quiet hide --id 1.5").second, "");
  EXPECT_THAT(
      Answered(kAck, "hide --id 1.5 --json").second,
      MatchesRegex(
          "\\{\"outcome\":\"done\",\"exit\":0,\"request\":\"hiding .*\",\"from\":\"Test\",\"milliseconds\":[0-9.e-]*\\}\n"));
  EXPECT_THAT(COsdctl("--json text --at \xff").Finish(),
              Says(3, "{\"outcome\":\"bad usage\",\"exit\":3"));
}

TEST_F(Osdctl, NotesWhatTheDaemonWillNotDrawAsMeant) {
  const std::string szAck = Reply("00000000 0800 00000000 00000100");
  const std::string szLong(64, 'a');
  const std::string szSaid = Answered(szAck, "text --colour red " + szLong + "\xc3\xbc").second;
  EXPECT_THAT(szSaid, HasSubstr("has 66 bytes; the daemon draws the first 64"));
  EXPECT_THAT(szSaid, HasSubstr("beyond ASCII"));
  EXPECT_THAT(szSaid, HasSubstr("colours show on an element that has a size"));
  EXPECT_THAT(Answered(szAck, "text Hi --size 9"),
              Says(0, "if it does not show, add --colour white"));
  EXPECT_EQ(Answered(szAck, "--quiet text --colour red --size 9 " + szLong).second, "");
}

TEST(OsdctlAlone, RefusesBadUsageWithTheReason) {
  const std::string szTooLong = "text " + std::string(4055, 'a');
  const char* const rows[][2] = {
      {"", "name a command"},
      {"text Hi there", "not expected: there"},
      {szTooLong.c_str(), "4055 bytes; a request holds 4054"},
      {"text --at 9", "--at takes a code 0 to 8"},
      {"text --id 1.256", "--id takes"},
      {"text --x 65536", "--x takes"},
      {"text --size 0", "--size takes"},
      {"text --colour '#12345'", "--colour takes"},
      {"text --background -1234567", "--background takes"},
      {"hide", "Exactly 1 option"},
      {"init --layer 8", "--layer takes a layer 0 to 7"},
      {"init --from Upgrade", "keeps no sequence number"},
      {"init --from Osd", "is the daemon itself"},
      {"init --timeout 0", "--timeout"},
  };
  for (const auto& row : rows) EXPECT_THAT(COsdctl(row[0]).Finish(), Says(3, row[1]));
}

TEST(OsdctlAlone, HelpTeachesByExample) {
  for (std::string szCommand :
       {"init", "deinit", "text", "hide", "delete", "calibrate", "screenshot"})
    EXPECT_THAT(COsdctl(szCommand + " --help").Finish(), Says(0, "\n  osdctl " + szCommand));
}

TEST(OsdctlAlone, SaysWhatThisMachineLacks) {
  EXPECT_THAT(COsdctl("init --timeout 60000").Finish(),
              Says(2, "nobody listens at 127.0.0.1:9636"));
  const Bool bSoft = std::string(OSD_PLATFORM) == "soft";
  EXPECT_THAT(COsdctl("screenshot /tmp/never.png --root /nonexistent").Finish(),
              Says(5, bSoft ? "/nonexistent/dev/fb0" : "OSD_PLATFORM=soft"));
}

}  // namespace
