// osdctl as a person runs it: the real program against a stand-in for the daemon, on its port.
#include <gmock/gmock.h>
#include <sys/wait.h>

#include <cstdio>
#include <filesystem>

#include "tests/system/peer.h"

namespace {

using testing::HasSubstr;

// Bytes of hexadecimal digits; blanks are for the reader.
Bytes Hex(std::string i_strDigits) {
  std::erase(i_strDigits, ' ');
  Bytes bytes;
  for (size_t i = 0; i < i_strDigits.size(); i += 2)
    bytes.push_back(static_cast<UInt8>(std::stoi(i_strDigits.substr(i, 2), nullptr, 16)));
  return bytes;
}

FILE* Start(const std::string& i_strWords) {
  return ::popen((OSDCTL " " + i_strWords + " 2>&1").c_str(), "r");
}

// The exit code of a started osdctl and whatever it said.
std::pair<SInt32, std::string> Finish(FILE* i_pOsdctl) {
  std::string strSaid;
  for (int c = std::getc(i_pOsdctl); c != EOF; c = std::getc(i_pOsdctl))
    strSaid += static_cast<char>(c);
  return {WEXITSTATUS(::pclose(i_pOsdctl)), strSaid};
}

auto Says(SInt32 i_s32Exit, const std::string& i_strWords) {
  return testing::Pair(i_s32Exit, HasSubstr(i_strWords));
}

// A reply to the hide of element 1.5: magic, version, "RES", the daemon's number, then i_strRest.
Bytes Reply(const std::string& i_strRest) { return Hex("55667788 00 524553 07000000" + i_strRest); }
const Bytes kAck = Reply("00000000 0800 00000000 01000100");

class Osdctl : public testing::Test {
 protected:
  void SetUp() override {
    sockaddr_in own = {AF_INET, htons(9636), {htonl(INADDR_LOOPBACK)}, {}};
    ASSERT_EQ(::bind(m_s32Fd, reinterpret_cast<sockaddr*>(&own), sizeof own), 0);
  }
  void TearDown() override { ::close(m_s32Fd); }

  // The next datagram; its sender is where Send goes from then on.
  Bytes Receive() {
    Bytes bytes(4096);
    socklen_t length = sizeof m_stPeer;
    const ssize_t got = ::recvfrom(m_s32Fd, bytes.data(), bytes.size(), 0, Peer(), &length);
    bytes.resize(got > 0 ? static_cast<size_t>(got) : 0);
    return bytes;
  }
  void Send(const Bytes& i_bytes) {
    ::sendto(m_s32Fd, i_bytes.data(), i_bytes.size(), 0, Peer(), sizeof m_stPeer);
  }
  auto Answered(const Bytes& i_reply, const std::string& i_strWords = "hide --id 1.5") {
    FILE* const pOsdctl = Start(i_strWords);
    Receive();
    Send(i_reply);
    return Finish(pOsdctl);
  }
  sockaddr* Peer() { return reinterpret_cast<sockaddr*>(&m_stPeer); }

  const int m_s32Fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  sockaddr_in m_stPeer = {};
};

TEST_F(Osdctl, SendsTheBytesOfEachCommand) {
  const struct {
    const char* m_pWords;
    UInt16 m_u16Port;
    const char* m_pHex;  // from the sequence number on
  } rows[] = {
      {"init --dev -1 --layer 7 --x -2 --y 0x10 --width 1366", 9634,
       "00000000 feff0100 1800 ffffffff 07000000 feffffff 10000000 56050000 38040000"},
      {"deinit --dev 2 --from HdmiIn", 9640,
       "01000000 ffff0100 1800 02000000 00000000 00000000 00000000 00000000 00000000"},
      {"text --out all --id 3.0x0A --at bottom-right --x 800 --y 600 --size 64 --colour '#80123456' "
       "--background transparent --forever -- '-x C'",
       9634,
       "00000000 00000100 1c00 ff00 0a03 3f000000 06 2003 5802 40 56341280 ffffff00 0400 2d782043"},
      {"text --y 7 --color FF8000", 9634,
       "00000000 00000100 1600 0000 0101 05000000 01 0000 0700 00 0080ffff 00000000"},
      {"hide --class 2 --out 3", 9634, "00000000 01000100 0400 0300 ff02"},
      {"delete --all", 9634, "00000000 02000100 0400 0000 ffff"},
      {"image /a.png", 9634,
       "00000000 05000100 1800 0000 0102 06000000 2f612e706e67 0000 0000 0000 0000 ff00"},
      {"image '/a b' --id 1.9 --at 14000,0x190 --size 1600,0 --opacity 7 --out all", 9634,
       "00000000 05000100 1600 ff00 0901 04000000 2f612062 b036 9001 4006 0000 0700"},
      {"image-hide --seq 2.254 --out 3", 9634, "00000000 06000100 0400 0300 fe02"},
      {"image-hide --all --out all", 9634, "00000000 06000100 0400 ff00 ffff"},
      {"guide", 9634, "00000000 03000100 0800 ff00 fe02 00000000"},
      {"guide /g --seq 2.7 --out 1", 9634, "00000000 03000100 0a00 0100 0702 02000000 2f67"},
  };
  for (const auto& row : rows) {
    FILE* const pOsdctl = Start(row.m_pWords);
    const Bytes request = Receive();
    EXPECT_EQ(request, Hex(std::string("55667788 00 434d44") + row.m_pHex)) << row.m_pWords;
    EXPECT_EQ(ntohs(m_stPeer.sin_port), row.m_u16Port);
    Bytes ack = Reply("00000000 0800");
    ack.insert(ack.end(), request.begin() + 8, request.begin() + 16);
    Send(ack);
    EXPECT_THAT(Finish(pOsdctl), Says(0, "acknowledged after"));
  }
}

// The daemon's working folder is another one.
TEST_F(Osdctl, MakesARelativePathAbsolute) {
  FILE* const pOsdctl = Start("image ../a.png --timeout 1");
  const Bytes request = Receive();
  Finish(pOsdctl);
  const std::string strPath = std::filesystem::current_path().string() + "/../a.png";
  ASSERT_GE(request.size(), 26 + strPath.size());
  EXPECT_EQ(request[22], strPath.size() & 0xFF);
  EXPECT_EQ(std::string(request.begin() + 26, request.end() - 10), strPath);
}

TEST_F(Osdctl, DropsWhatIsNoReplyToItsRequest) {
  FILE* const pOsdctl = Start("hide --id 1.5");
  Receive();
  const Bytes strays[] = {
      Reply("00000000 0800 01000000 01000100"),  // another sequence number
      Reply("01000000 0800 00000000 01000100"),  // processed, which is no acknowledgement
      Bytes(kAck.begin(), kAck.end() - 1),
      Hex("55667788 00 434d44 07000000 00000000 0800 00000000 01000100"),  // a command
  };
  for (const Bytes& stray : strays) Send(stray);
  Send(Reply("08000000 0c00 00000000 01000100 0400 0c00"));
  EXPECT_THAT(Finish(pOsdctl), Says(1, "which takes 12"));
}

TEST_F(Osdctl, GivesUpWhenItsTimeIsOverAndWhenItsPortIsTaken) {
  EXPECT_THAT(Answered({1}, "init --timeout 80"), Says(2, "did not answer within 80 ms"));
  const CPeer holder(9634);
  EXPECT_THAT(Finish(Start("init")), Says(4, "9634 is taken: by the process \"Test\""));
}

TEST_F(Osdctl, ReportsInJsonWhenAskedTo) {
  EXPECT_THAT(Answered(kAck, "hide --id 1.5 --json"),
              Says(0, "{\"outcome\":\"done\",\"exit\":0,\"request\":\"hiding "));
}

TEST(OsdctlAlone, RefusesBadUsageWithTheReason) {
  const char* const rows[][2] = {
      {"", "name a command"},
      {"text --at 9", "--at takes a code 0 to 8"},
      {"init --layer 8", "--layer takes a layer 0 to 7"},
      {"image ''", "PATH: it is empty"},
      {"guide /", "PATH: it names a folder"},
      {"image a --at 1,-2", "--at takes the top left corner as X,Y"},
      {"image a --size 65536,0", "--size takes a size as W,H"},
  };
  for (const auto& row : rows) EXPECT_THAT(Finish(Start(row[0])), Says(3, row[1]));
  const std::string strLongest = "/" + std::string(2208, 'a');
  EXPECT_THAT(Finish(Start("image " + strLongest)), Says(2, "nobody listens"));
  EXPECT_THAT(Finish(Start("image " + strLongest + "a")),
              Says(3, "2210 bytes; the daemon takes 2209"));
}

TEST(OsdctlAlone, SaysWhatThisMachineLacks) {
  EXPECT_THAT(Finish(Start("init --timeout 60000")), Says(2, "nobody listens at 127.0.0.1:9636"));
  const Bool bSoft = std::string(OSD_PLATFORM) == "soft";
  EXPECT_THAT(Finish(Start("screenshot /tmp/never.png --root /nonexistent")),
              Says(5, bSoft ? "/nonexistent/dev/fb0" : "OSD_PLATFORM=soft"));
}

}  // namespace
