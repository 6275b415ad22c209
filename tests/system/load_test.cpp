// What is acknowledged is drawn, also above the renderer's pace: the layer's sequence tells how many
// refreshes it got, and each of these requests makes one.
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include <random>

#include "tests/png_files.h"
#include "tests/system/daemon.h"

namespace {

class Load : public CServedTest {
 protected:
  // Of a layer of that size on which nothing is shown.
  void Init(UInt32 i_u32W, UInt32 i_u32H) {
    static SInt32 s_s32Never = 1000;
    ASSERT_GT(s_pPeer->Request(kDelete, Pack(UInt16{0}, UInt16{0xFFFF})), 0U);
    ASSERT_GT(s_pPeer->Request(kInit, Pack(0, 0, 0, 0, i_u32W, i_u32H)), 0U);
    ASSERT_GT(s_pPeer->Request(kDeInit, Pack(++s_s32Never)), 0U);  // the last one in its order
    ASSERT_TRUE(s_pRoot->Logs("no need osd deinit for [" + std::to_string(s_s32Never) + "]"));
    m_u64Before = Refreshes();
  }
  static UInt64 Word(off_t i_offset) {
    UInt64 u64Word = 0;
    const int fd = open(s_pRoot->Path("/dev/fb0").c_str(), O_RDONLY);
    static_cast<void>(!pread(fd, &u64Word, sizeof(u64Word), i_offset));
    close(fd);
    return u64Word;
  }
  static UInt64 Refreshes() { return Word(48) / 2; }
  void ExpectDrawn(UInt32 i_u32Acknowledged) {
    const UInt64 u64All = m_u64Before + i_u32Acknowledged;
    EXPECT_TRUE(Eventually([=] { return Refreshes() >= u64All; }));
    EXPECT_EQ(Refreshes(), u64All);
    EXPECT_EQ(ReadFile(s_pRoot->Path("/var/log/osdsrv.log")).find("overflow"), std::string::npos);
  }
  // Keeps i_u32Outstanding requests of each peer on their way. How many were acknowledged.
  UInt32 SendTexts(UInt32 i_u32Texts, UInt32 i_u32Outstanding, CPeer& io_second) {
    std::mt19937 random(20261122);
    UInt32 u32Acknowledged = 0;
    CPeer* const aPeers[] = {s_pPeer.get(), &io_second};
    UInt32 aOutstanding[2] = {};
    for (UInt32 sent = 0; sent < i_u32Texts || aOutstanding[0] + aOutstanding[1] > 0;) {
      for (UInt32 peer = 0; peer < 2; ++peer) {
        const T_Text text{.m_u16Seq = static_cast<UInt16>(0x101 + peer),
                          .m_u16Y = static_cast<UInt16>(peer * 4000),
                          .m_u8Size = static_cast<UInt8>(40 + random() % 40),
                          .m_text = kWords};
        for (; sent < i_u32Texts && aOutstanding[peer] < i_u32Outstanding;
             ++aOutstanding[peer], ++sent)
          aPeers[peer]->Send(Datagram(aPeers[peer]->NextSeq(), kText, text.Body()));
        if (aOutstanding[peer] == 0) continue;
        if (aPeers[peer]->Await().empty()) return u32Acknowledged;
        --aOutstanding[peer];
        ++u32Acknowledged;
      }
    }
    return u32Acknowledged;
  }

  static constexpr char kWords[] = "twenty-four characters..";
  UInt64 m_u64Before = 0;
};

TEST_F(Load, TextsFasterThanTheyAreDrawnAreDrawn) {
  CPeer second(9639);
  Init(1920, 1080);
  EXPECT_EQ(SendTexts(20000, 8, second), 20000U);
  ExpectDrawn(20000);
}

TEST_F(Load, TextsBesideBusyProcessesAreDrawn) {
  CPeer second(9639);
  Init(1920, 1080);
  std::vector<pid_t> busy;
  for (int i = 0; i < 2; ++i)
    if (busy.emplace_back(fork()) == 0)
      for (prctl(PR_SET_PDEATHSIG, SIGKILL);;) continue;
  EXPECT_EQ(SendTexts(2000, 8, second), 2000U);
  ExpectDrawn(2000);
  for (const pid_t pid : busy) {
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
  }
}

TEST_F(Load, ABurstWaitsInTheSocketAndIsDrawn) {
  const std::string text(96 - 18 - 24, 'x');
  Init(1920, 1080);
  UInt32 u32Acknowledged = 0;
  for (UInt32 i = 0; i < 1000; ++i) {
    s_pPeer->Send(Datagram(s_pPeer->NextSeq(), kText, T_Text{.m_text = text}.Body()));
    u32Acknowledged += s_pPeer->Await(0).empty() ? 0 : 1;
  }
  while (!s_pPeer->Await(500).empty()) ++u32Acknowledged;
  ExpectDrawn(u32Acknowledged);
  EXPECT_GE(u32Acknowledged, 500U);
}

TEST_F(Load, LargeOnesAreDrawnOneByOne) {
  const std::string path = WritePng(s_pRoot->Path("/full.png"), {0, 0, 1920, 1080});
  Init(1920, 1080);
  const auto fade = [&](UInt32 i_u32Opacity) {
    const Bytes body = Pack(UInt16{0}, UInt16{0x101}, static_cast<UInt32>(path.size()), path,
                            UInt64{0}, static_cast<UInt16>(i_u32Opacity));
    EXPECT_GT(s_pPeer->Request(kImage, body), 0U);
  };
  fade(255);
  ExpectDrawn(1);  // read once, and kept
  for (UInt32 opacity = 0; opacity < 150; ++opacity) fade(opacity);
  ExpectDrawn(151);
  Init(3840, 2160);
  for (UInt32 i = 0; i < 150; ++i)
    EXPECT_GT(s_pPeer->Request(kText, T_Text{.m_u8Size = 255, .m_text = kWords}.Body()), 0U);
  ExpectDrawn(150);
}

}  // namespace
