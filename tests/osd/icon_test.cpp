// Icons and guide screens whose pictures are on their way or cannot be had: what is asked last
// wins, and a failure changes nothing. The pictures come from the real worker.
#include <sys/stat.h>

#include <csignal>
#include <filesystem>

#include "tests/osd/scene.h"
#include "tests/pictures.h"

namespace {

constexpr UInt32 kRed = 0xFFFF0000;
constexpr UInt32 kBlue = 0xFF0000FF;
using Pixels = std::vector<UInt32>;

// One pixel of the canvas is 100 of the grid.
class Icons : public Renderer {
 protected:
  Icons() { Init(0, 0, 160, 90); }
  ~Icons() override { setenv("PATH", m_path.c_str(), 1); }

  // A picture of one colour.
  static std::string Plain(const std::string& i_name, UInt32 i_u32Colour, UInt32 i_u32W = 10) {
    T_Picture picture{0, 0, i_u32W, 10};
    std::fill(picture.m_pixels.begin(), picture.m_pixels.end(), i_u32Colour);
    return WritePng(SystemPath(("/" + i_name).c_str()), picture);
  }
  UInt32 ShowIcon(UInt32 i_u32Seq, const std::string& i_path, UInt32 i_u32X = 0, UInt32 i_u32W = 0,
                  UInt16 i_u16VoSeq = 0) {
    T_DispRecord record{};
    record.m_u16VoSeq = i_u16VoSeq;
    record.m_u16Seq = static_cast<UInt16>(i_u32Seq);
    record.m_u16Time = T_DispRecord::kForever;
    record.m_u32X = i_u32X * 100;
    record.m_u32W = i_u32W * 100;
    record.m_u16Opacity = 255;
    record.m_u16Line = 1;
    i_path.copy(record.m_aText[0], i_path.size());
    return Show(record, kOsdIconShow);
  }
  void Guide(UInt32 i_u32Output, UInt32 i_u32Seq, const std::string& i_path) {
    T_ModuleMsg msg = Message(kOsdPicture);
    msg.PutWord(kPictureOutSeqWord, i_u32Seq << 16 | i_u32Output);
    char* const pPath = new char[i_path.size() + 1]();
    i_path.copy(pPath, i_path.size());
    msg.Put(kPicturePathOffset, pPath);
    Send(msg);
  }
  void HideImage(UInt32 i_u32Output, UInt32 i_u32Seq) {
    Send(Message(kOsdIconHide, {i_u32Seq << 16 | i_u32Output}));
  }
  // Everything that was asked for before has come then: the worker goes by turns.
  void DeliverAll() {
    m_log.Take();
    ShowIcon(0x7FE, "/last");
    while (!m_log.Has("ERROR picture </last> is not shown: No such file or directory"))
      CThread::Sleep(1);
    for (T_ModuleMsg result; g_objResults.Pop(20, &result) != 0;) Send(result);
  }
  // What the layer shows in row 5 of these columns.
  static Pixels Row(const std::vector<UInt32>& i_columns, UInt32 i_u32W = 160, char i_digit = '0') {
    const std::string file = ReadFile(SystemPath("/dev/fb") + i_digit);
    Pixels pixels;
    for (const UInt32 column : i_columns)
      std::memcpy(&pixels.emplace_back(), file.data() + 4096 + (i_u32W * 5 + column) * 4, 4);
    return pixels;
  }
  // Shows a picture for which the decoder never ends. The decoder's process.
  pid_t ShowEndless(UInt32 i_u32Seq) {
    const std::string folder = SystemPath("/bin");
    std::filesystem::create_directory(folder);
    std::filesystem::remove(folder + "/pid");
    std::ofstream(folder + "/djpeg") << "#!/bin/sh\necho $$ >" + folder + "/pid\nexec sleep 999\n";
    chmod((folder + "/djpeg").c_str(), 0755);
    setenv("PATH", (folder + ":" + m_path).c_str(), 1);
    constexpr char kJpeg[] = "\xFF\xD8\xFF\xC0\0\x0B\x08\0\x08\0\x08\x01\x01\x11";
    std::ofstream(SystemPath("/endless.jpg")) << std::string(kJpeg, sizeof(kJpeg));
    EXPECT_EQ(ShowIcon(i_u32Seq, SystemPath("/endless.jpg")), 1u);
    std::string pid;
    while ((pid = ReadFile(folder + "/pid")).empty()) CThread::Sleep(1);
    return std::stoi(pid);
  }
  static void ExpectEnds(pid_t i_pid) {
    while (kill(i_pid, 0) == 0) CThread::Sleep(1);  // the test's own limit of time ends it
    EXPECT_EQ(errno, ESRCH);
  }

  const std::string m_path = std::getenv("PATH");
};

TEST_F(Icons, NobodyWaitsForADecoderAndWhatIsAskedLastWins) {
  const std::string red = Plain("red.png", kRed, 8);
  const pid_t decoder = ShowEndless(0x101);
  EXPECT_EQ(Show(Text(0x102, "text", 6)), 1u);
  EXPECT_TRUE(Shows({Text(0x102, "text", 6)}, '0', 160, 90));
  ShowIcon(0x300, Plain("first.png", kRed), 0);
  for (UInt32 i = 1; i <= 16; ++i) ShowIcon(0x300 + i, red, i * 9);
  EXPECT_TRUE(m_log.Has("WARN picture <" + SystemPath("/first.png") +
                        "> is not shown: 16 pictures that were asked for later wait already"));
  Send(Message(kOsdDelete, {0x301}));
  Send(Message(kOsdTextCancel, {0x302 << 16}));
  ShowIcon(0x303, red, 152);
  EXPECT_EQ(Show(Text(0x304, "", 1)), 1u) << "a text instead";
  Send(Message(kOsdIconHide, {0x101 << 16}));
  ExpectEnds(decoder);
  Deliver(13);
  for (const std::string& line : m_log.Take())
    EXPECT_EQ(line.find("did not end"), line.npos) << "its time was up: " << line;
  EXPECT_EQ(Row({4, 13, 22, 31, 40, 49, 156}), (Pixels{0, 0, 0, 0, 0, kRed, kRed}));
  EXPECT_EQ(SizeAfterDelete(0x3FF), "INFO m_listDispInfo.size=2") << "the first one is gone";
}

TEST_F(Icons, StoppingEndsADecoder) {
  m_osd->Start();
  const pid_t decoder = ShowEndless(0x101);
  m_osd->Stop();
  ExpectEnds(decoder);
}

TEST_F(Icons, WhatCannotBeReadChangesNothing) {
  ShowIcon(0x101, "/nowhere/\n.png");
  Deliver(1);
  EXPECT_TRUE(
      m_log.Has("ERROR picture </nowhere/\\x0a.png> is not shown: No such file or directory"));
  EXPECT_EQ(SizeAfterDelete(0x102), "INFO m_listDispInfo.size=0");
  ShowIcon(0x101, Plain("red.png", kRed));
  Deliver(1);
  ShowIcon(0x101, "/nowhere.png", 50);
  Deliver(1);
  EXPECT_EQ(Row({0, 9, 10, 50}), (Pixels{kRed, kRed, 0, 0}));
  Send(Message(kOsdGuide, {0x700 << 16}));
  Send(Message(kOsdIconHide, {0xFFFF00FF, 0xFF}));  // the guide alone, before it is there
  EXPECT_EQ(Show(Text(0x102, "no guide", 6)), 1u);
  EXPECT_TRUE(
      m_log.Has("INFO osd disp: bGS<0>,seq<0x102>,rect<0,0>,line<1>,time<10>,str<no guide>,"
                "hide<0>,voseq<0>"));
  EXPECT_EQ(Row({0, 9, 10}), (Pixels{kRed, kRed, 0}));
}

TEST_F(Icons, PicturesAreKeptWhileTheirFilesStay) {
  const std::string red = Plain("red.png", kRed);
  // To a clock that is not set, files are from the future.
  std::filesystem::last_write_time(
      red, std::filesystem::file_time_type::clock::now() + std::chrono::hours(1));
  ShowIcon(0x201, red, 0, 20);
  Deliver(1);
  Send(Message(kOsdIconHide, {0x201 << 16}));
  EXPECT_EQ(Row({5}), Pixels{0});
  ShowIcon(0x202, red, 20, 20);
  EXPECT_EQ(Row({20, 39, 40}), (Pixels{kRed, kRed, 0})) << "at once, at another place";
  std::filesystem::rename(Plain("blue.png", kBlue), red);
  ShowIcon(0x202, red, 20, 20);
  EXPECT_EQ(Row({20}), Pixels{kRed}) << "until the new one is there";
  Deliver(1);
  EXPECT_EQ(Row({20}), Pixels{kBlue});
}

TEST_F(Icons, ANewLayerGetsItsIconsInItsOwnSize) {
  const std::string red = Plain("red.png", kRed);
  DeInit();
  EXPECT_EQ(ShowIcon(0x101, red, 0, 16) + ShowIcon(0x102, "/nowhere.png"), 2u);
  EXPECT_EQ(ShowIcon(0x201, red, 80, 10), 1u);
  Init(0, 0, 320, 180);
  Deliver(2);
  EXPECT_EQ(Row({31, 32, 160}, 320), (Pixels{kRed, 0, 0})) << "those of class 2 do not come back";
  EXPECT_EQ(SizeAfterDelete(0x333), "INFO m_listDispInfo.size=3") << "what fails here stays";
  ShowIcon(0x201, red, 80, 30);
  Init(0, 0, 160, 90);  // asked for again in the new size
  while (Row({80}) != Pixels{kRed}) Deliver(1);
  EXPECT_EQ(Row({15, 16, 80, 109, 110}), (Pixels{kRed, 0, kRed, kRed, 0}));
}

TEST_F(Icons, ATextThatCannotBeDrawnOverTheGuideIsToldApart) {
  const std::string font = SystemPath("/usr/share/fonts/monos.ttf");
  Guide(0, 1, Plain("red.png", kRed));
  Deliver(1);
  EXPECT_EQ(Row({34, 35, 80, 125}), (Pixels{0xFF000000, kRed, kRed, 0xFF000000}));
  T_DispRecord text = Text(0x101, "text");
  std::filesystem::rename(font, font + ".away");
  text.m_u16FontSize = 200;
  EXPECT_EQ(Show(text), 0u);
  EXPECT_TRUE(m_log.Has("ERROR REFRESH <text> disp failed!"));
  std::filesystem::rename(font + ".away", font);
  EXPECT_EQ(Show(text), 1u);
  // One that is nowhere any more harms no other.
  text.m_u32Position = 9;
  EXPECT_EQ(Show(text), 0u);
  EXPECT_EQ(Show(Text(0x102, "other")), 1u);
  Send(Message(kOsdDelete, {0x102}));
  EXPECT_EQ(Row({80}), Pixels{kRed});
}

TEST_F(Icons, EveryOutputHasItsOwnGuide) {
  const std::string red = Plain("red.png", kRed), blue = Plain("blue.png", kBlue);
  const auto shown = [] { return Pixels{Row({80})[0], Row({80}, 160, '1')[0]}; };
  Init(1, 1, 160, 90);
  Guide(255, 1, red);
  Deliver(1);
  Guide(255, 2, blue);
  HideImage(0, 2);
  Deliver(1);
  EXPECT_EQ(shown(), (Pixels{kRed, kBlue}));
  HideImage(0, 1);
  Init(0, 0, 160, 90);
  DeliverAll();
  EXPECT_EQ(shown(), (Pixels{0, kBlue})) << "hidden for good";
  Guide(0, 3, blue);
  Deliver(1);
  Guide(0, 4, red);
  Init(0, 0, 160, 90);
  DeliverAll();
  EXPECT_EQ(shown(), (Pixels{kRed, kBlue})) << "the one asked for last";
  Guide(0, 5, "/nowhere");
  Init(0, 0, 160, 90);
  DeliverAll();
  DeliverAll();
  EXPECT_EQ(shown(), (Pixels{kRed, kBlue})) << "what was there stays";
  DeInit(1);
  HideImage(255, 2);
  Init(1, 1, 160, 90);
  DeliverAll();
  EXPECT_EQ(shown(), (Pixels{kRed, 0}));
}

TEST_F(Icons, AMoveToAnotherOutputMayBeHiddenOrFail) {
  const std::string red = Plain("red.png", kRed);
  const auto shown = [] { return Pixels{Row({5})[0], Row({5}, 160, '1')[0]}; };
  Init(1, 1, 160, 90);
  ShowIcon(0x101, red);
  Deliver(1);
  ShowIcon(0x101, Plain("moved.png", kBlue), 0, 0, 1);
  Send(Message(kOsdTextCancel, {0x101 << 16 | 1}));
  DeliverAll();
  EXPECT_EQ(shown(), (Pixels{kRed, 0}));
  ShowIcon(0x101, SystemPath("/moved.png"), 0, 0, 1);
  HideImage(0, 0x101);
  DeliverAll();
  EXPECT_EQ(shown(), (Pixels{0, kBlue}));
  ShowIcon(0x101, "/nowhere");
  Init(1, 1, 160, 90);
  DeliverAll();
  DeliverAll();
  EXPECT_EQ(shown(), (Pixels{0, kBlue}));
}

TEST_F(Icons, AskingAgainDoesNotPutOffWhatIsUnderWay) {
  const std::string red = Plain("red.png", kRed, 50);
  ShowIcon(0x101, red);
  ShowIcon(0x101, red, 150);
  Deliver(1);  // made for another place, where nothing was cut off
  EXPECT_EQ(Row({0, 149, 150, 159}), (Pixels{0, 0, kRed, kRed}));
  ShowIcon(0x101, Plain("blue.png", kBlue));
  DeInit();
  Deliver(1);
  Init(0, 0, 160, 90);
  DeliverAll();
  EXPECT_EQ(Row({9, 150}), (Pixels{kBlue, 0}));
}

TEST_F(Icons, ANewLayerGetsMoreIconsThanMayWait) {
  for (UInt32 i = 0; i < 40; ++i) {
    ShowIcon(0x100 + i, Plain(std::to_string(i) + ".png", kRed, 3), i * 4, 3);
    Deliver(1);
  }
  Init(0, 0, 320, 180);
  std::vector<UInt32> columns;
  for (UInt32 i = 0; i < 40; ++i) columns.push_back(i * 8);
  while (Row(columns, 320) != Pixels(40, kRed)) Deliver(1);
}

}  // namespace
