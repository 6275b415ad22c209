#include <set>

#include "tests/system/daemon.h"

namespace {

// One run of the scenario, and all that can be seen of it from outside.
class CRun {
 public:
  explicit CRun(const char* i_pOption) : m_daemon(m_root, i_pOption) {
    // A request before the port is bound would be lost, and would count on the way back.
    Eventually([] { return ReadFile("/proc/net/udp").find(":25A4 0000") != std::string::npos; });
    m_pPeer = std::make_unique<CPeer>(9635);
    Play();
    m_pPeer.reset();  // the next run wants its port
    EXPECT_EQ(m_root.PidInFile(), m_daemon.Pid());
    EXPECT_EQ(m_daemon.Stop(SIGTERM), 0);
    EXPECT_EQ(m_daemon.Err(), "");
    m_log = m_root.Log();
    // Threads log between one another's lines, but each source has its thread.
    const auto source = [](const auto& i_line) { return i_line.substr(i_line.rfind('['), 9); };
    std::ranges::stable_sort(m_log, {}, source);
  }

  std::vector<Bytes> m_replies;
  std::vector<std::string> m_layers, m_log;  // all eight layers after each step

 private:
  void Play() {
    Step(kInit, Pack(0, 2, 10, -20, 640, 360));
    Step(kInit, Pack(1, 7, 0, 0, 320, 240));
    T_Text text{.m_u16X = 901, .m_u16Y = 703, .m_u8Size = 25};
    for (text.m_u8Align = 0; text.m_u8Align < 9; ++text.m_u8Align) {
      text.m_u16Output = static_cast<UInt16>(text.m_u8Align % 4 == 3 ? 255 : text.m_u8Align % 2);
      text.m_text = "Text " + std::to_string(++text.m_u16Seq);
      Step(kText, text.Body());
    }
    Step(kText, T_Text{.m_u16Seq = 0x103, .m_u32Flag = 0x24, .m_u32Colour = 0xFF00FF00}.Body());
    Step(kHide, Pack(UInt16{1}, UInt16{0x103}));
    Step(kDelete, Pack(UInt16{0}, UInt16{0x104}));
    Step(kInit, Pack(1, 7, -5, 7, 400, 200));
    Step(kInit, Pack(1, 6, 0, 0, 400, 0));
    Step(kText, T_Text{.m_u16Output = 255, .m_u16Seq = 0x301, .m_text = "everywhere"}.Body());
    Bytes icon = Pack(UInt16{0}, UInt16{0x201}, static_cast<UInt32>(kIcon.size()));
    icon.insert(icon.end(), kIcon.begin(), kIcon.end());
    for (const UInt8 byte : Pack(UInt16{2000}, UInt16{1000}, UInt16{0}, UInt16{5000}, UInt16{150}))
      icon.push_back(byte);
    Step(kImage, icon, true);
    Step(kGuide, Pack(UInt16{0}, UInt16{1}, 0), true);
    Step(kText, T_Text{.m_u16Seq = 0x302, .m_u16X = 3000, .m_text = "over both"}.Body());
    Step(kImageHide, Pack(UInt16{0}, UInt16{0xFFFF}));
    Step(kCalibrate, {0});
    Step(kCalibrate, {1});
  }
  void Step(UInt32 i_u32Id, const Bytes& i_body, bool i_bPicture = false) {
    if (testing::Test::HasFailure()) return;
    const std::vector<std::string> before = Layers();
    Send(i_u32Id, i_body);
    EXPECT_TRUE(!i_bPicture || Eventually([&] { return Layers() != before; }));
    // The renderer works in order: once it has looked for an output that never was, all is done.
    const auto s32Never = static_cast<SInt32>(1000 + m_layers.size());
    Send(kDeInit, Pack(s32Never));
    EXPECT_TRUE(m_root.Logs("no need osd deinit for [" + std::to_string(s32Never) + "]"));
    std::ranges::copy(Layers(), std::back_inserter(m_layers));
  }
  void Send(UInt32 i_u32Id, const Bytes& i_body) {
    m_pPeer->Send(Datagram(m_pPeer->NextSeq(), i_u32Id, i_body));
    do m_replies.push_back(m_pPeer->Await());
    while (!m_replies.back().empty() && m_replies.back().size() != 26);  // up to its ACK
  }
  std::vector<std::string> Layers() const {
    std::vector<std::string> layers;
    for (char layer = '0'; layer < '8'; ++layer)
      layers.push_back(Seen(ReadFile(m_root.Path("/dev/fb") + layer)));
    return layers;
  }
  // Header and pixels, but neither the clock nor what a larger layer left behind.
  static std::string Seen(const std::string& i_file) {
    if (i_file.size() < 4096) return "";
    UInt32 aSize[2];  // rows, bytes a row
    std::memcpy(aSize, i_file.data() + 16, sizeof(aSize));
    return i_file.substr(0, 56) + i_file.substr(4096, size_t{aSize[0]} * aSize[1]);
  }

  static inline const std::string kIcon = "/usr/local/share/icon.png";
  CDeviceRoot m_root;
  CDaemon m_daemon;
  std::unique_ptr<CPeer> m_pPeer;
};

TEST(Chip, ShowsAnswersAndLogsWhatTheSoftwareScreenDoes) {
  if (std::system(OSD_DAEMON " possible") != 0) GTEST_SKIP() << "unshare is not permitted here";
  const CRun soft(nullptr);
  const CRun chip("chip");
  EXPECT_EQ(chip.m_replies, soft.m_replies);
  EXPECT_EQ(chip.m_log, soft.m_log);
  ASSERT_EQ(chip.m_layers.size(), soft.m_layers.size());
  for (size_t i = 0; i < chip.m_layers.size(); ++i)
    EXPECT_TRUE(chip.m_layers[i] == soft.m_layers[i]) << "layer " << i % 8 << ", step " << i / 8;
  EXPECT_GT(std::set(soft.m_layers.begin(), soft.m_layers.end()).size(), 15U);
}

}  // namespace
