// Icons and guide screens whose pictures are on their way or cannot be had: what is asked last
// wins, and a failure changes nothing. The pictures come from the real worker.
#include <sys/stat.h>

#include <csignal>
#include <filesystem>
#include <random>
#include <set>

#include "tests/osd/scene.h"
#include "tests/png_files.h"

namespace {

constexpr UInt32 kRed = 0xFFFF0000;
constexpr UInt32 kBlue = 0xFF0000FF;
using Pixels = std::vector<UInt32>;

// One pixel of the canvas is 100 of the grid.
class Icons : public Renderer {
 protected:
  Icons() {
    Init(0, 0, 160, 90);
    Init(7, 7, 160, 90);  // for DeliverAll
  }
  ~Icons() override { setenv("PATH", m_path.c_str(), 1); }

  // A picture of one colour.
  static std::string Plain(const std::string& i_name, UInt32 i_u32Colour, UInt32 i_u32W = 10) {
    T_Picture picture{0, 0, i_u32W, 10};
    std::fill(picture.m_pixels.begin(), picture.m_pixels.end(), i_u32Colour);
    return WritePng(SystemPath(("/" + i_name).c_str()), picture);
  }
  UInt32 ShowIcon(UInt32 i_u32Seq, const std::string& i_path, UInt32 i_u32X = 0, UInt32 i_u32W = 0,
                  UInt16 i_u16Output = 0) {
    T_DispRecord record{};
    record.m_u16VoSeq = i_u16Output;
    record.m_u16Seq = static_cast<UInt16>(i_u32Seq);
    record.m_u16Time = T_DispRecord::kForever;
    record.m_u32X = i_u32X * 100;
    record.m_u32W = i_u32W * 100;
    record.m_u16Opacity = 255;
    record.m_u16Line = 1;
    i_path.copy(record.m_aText[0], i_path.size());
    return Show<T_OsdIconShow>(record);
  }
  void Guide(UInt32 i_u32Output, UInt32 i_u32Seq, const std::string& i_path) {
    std::string path = i_path;
    T_OsdPicture picture{};
    picture.m_u16Output = static_cast<UInt16>(i_u32Output);
    picture.m_u16OsdSeq = static_cast<UInt16>(i_u32Seq);
    picture.m_pPath = path.data();
    Send(picture);
  }
  void HideImage(UInt32 i_u32Output, UInt32 i_u32Seq) {
    Send(T_OsdIconHide{static_cast<UInt16>(i_u32Output), static_cast<UInt16>(i_u32Seq), 0});
  }
  // Until nothing is on its way: the worker goes by turns, and a result may ask for another one.
  void DeliverAll() {
    for (SInt32 s32Delivered = 0; s32Delivered != 1;) {
      ShowIcon(0x7FE, "/last", 0, 0, 7);
      s32Delivered = 0;
      for (Bool bLast = false; !bLast; ++s32Delivered) {
        const T_ModuleMsg result = NextResult();
        bLast = result.Read<T_OsdPictureResult>().m_pResult->m_stJob.m_strPath == "/last";
        Handle(result);
      }
    }
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
  for (UInt32 i = 0; i <= 16; ++i) EXPECT_EQ(ShowIcon(0x300 + i, i == 1 ? "/no" : red, i * 9), 1u);
  Guide(7, 1, red);  // waits like the last of them
  Send(T_OsdDelete{0x301});
  Send(T_OsdTextCancel{0, 0x302});
  ShowIcon(0x303, red, 152);
  EXPECT_EQ(Show(Text(0x304, "", 1)), 1u) << "a text instead";
  Send(T_OsdIconHide{0, 0x101, 0});
  ExpectEnds(decoder);
  Deliver(15);
  for (const std::string& line : m_log.Take())
    EXPECT_EQ(line.find("> is not shown"), line.npos) << "nobody wants it any more: " << line;
  EXPECT_EQ(Row({4, 13, 22, 31, 40, 49, 156}), (Pixels{kRed, 0, 0, 0, 0, kRed, kRed}));
  EXPECT_EQ(SizeAfterDelete(0x3FF), "INFO m_listDispInfo.size=2");
}

TEST_F(Icons, StoppingEndsADecoder) {
  m_osd->Start();
  const pid_t decoder = ShowEndless(0x101);
  m_osd->Stop();
  EXPECT_EQ(kill(decoder, 0), -1);
  for (const std::string& line : m_log.Take())
    EXPECT_EQ(line.find("> is not shown"), line.npos) << "its time was up: " << line;
}

TEST_F(Icons, WhatCannotBeReadChangesNothing) {
  ShowIcon(0x101, "/nowhere/\n.png");
  EXPECT_EQ(ShowIcon(0x103, "/nowhere.png", 160), 1u);  // outside: nothing is read
  DeliverAll();
  EXPECT_TRUE(
      m_log.Has("ERROR picture </nowhere/\\x0a.png> is not shown: No such file or directory"));
  EXPECT_EQ(SizeAfterDelete(0x102), "INFO m_listDispInfo.size=1");
  ShowIcon(0x101, Plain("red.png", kRed));
  Deliver(1);
  std::filesystem::remove(SystemPath("/red.png"));
  for (const char* pName : {"/red.png", "/a", "/b", "/c", "/d", "/e"})
    ShowIcon(0x101, SystemPath(pName), 50);
  DeliverAll();
  EXPECT_EQ(Row({0, 9, 10, 50}), (Pixels{kRed, kRed, 0, 0}));
  EXPECT_EQ(SizeAfterDelete(0x102), "INFO m_listDispInfo.size=2");
  Send(T_OsdGuide{0, 0x700});
  Send(T_OsdIconHide{0xFF, 0xFFFF, 0xFF});  // the guide alone, before it is there
  EXPECT_EQ(Show(Text(0x102, "no guide", 6)), 1u);
  EXPECT_TRUE(
      m_log.Has("INFO osd disp: bGS<0>,seq<0x102>,rect<0,0>,line<1>,time<10>,str<no guide>,"
                "hide<0>,voseq<0>"));
  EXPECT_EQ(Row({0, 9, 10}), (Pixels{kRed, kRed, 0}));
}

TEST_F(Icons, AResultWaitsUntilTheInboxHasRoom) {
  T_ModuleMsg other{kAsyncMsg, kModuleEndpoint, kModuleOsd, kMsgNone, {}};
  while (g_objResults.Push(&other) != 0) continue;
  ShowIcon(0x101, Plain("red.png", kRed));
  while (!m_log.Has("ERROR buf<57> overflow, msg<src:4,dst:4,msgtype:0x50b> discard"))
    CThread::Sleep(1);
  Deliver(57);
  EXPECT_EQ(Row({0}), Pixels{0});
  Deliver(1);
  EXPECT_EQ(Row({0}), Pixels{kRed});
}

TEST_F(Icons, PicturesAreKeptWhileTheirFilesStay) {
  const std::string red = Plain("red.png", kRed);
  // To a clock that is not set, files are from the future.
  std::filesystem::last_write_time(
      red, std::filesystem::file_time_type::clock::now() + std::chrono::hours(1));
  for (const UInt32 u32X : {150u, 0u}) {  // cut at the edge, it is another one
    ShowIcon(0x201, red, u32X, 20);
    Deliver(1);
  }
  Send(T_OsdIconHide{0, 0x201, 0});
  EXPECT_EQ(Row({5}), Pixels{0});
  ShowIcon(0x202, red, 20, 20);
  EXPECT_EQ(Row({20, 39, 40}), (Pixels{kRed, kRed, 0})) << "at once, at another place";
  std::filesystem::rename(Plain("blue.png", kBlue), red);
  ShowIcon(0x202, red, 20, 20);
  EXPECT_EQ(Row({20}), Pixels{kRed}) << "until the new one is there";
  Deliver(1);
  EXPECT_EQ(Row({20}), Pixels{kBlue});
  // What may be written to in the same second is read again, here in a size that leaves 1 px.
  std::filesystem::last_write_time(
      red, std::filesystem::file_time_type::clock::now() + std::chrono::seconds(1));
  for (const UInt32 u32X : {50u, 60u}) {
    T_DispRecord tiny = Text(0x203, red, 1, u32X * 100, 500);
    tiny.m_u32W = 1;
    tiny.m_u16Opacity = 255;
    Show<T_OsdIconShow>(tiny);
    EXPECT_EQ(Row({u32X}), Pixels{0});
    Deliver(1);
    EXPECT_EQ(Row({u32X - 1, u32X, u32X + 1}), (Pixels{0, kBlue, 0}));
  }
}

TEST_F(Icons, WhatIsShownTakes256MiBAtMost) {
  const std::string red = Plain("red.png", kRed);
  ShowIcon(0x101, red, 0, 1);
  const T_ModuleMsg result = NextResult();
  result.Read<T_OsdPictureResult>().m_pResult->m_loaded->m_vecPictures[0] =
      std::make_shared<CPicture>(T_Extent{8192, 8192});  // nearly all of it is never touched
  Handle(result);
  ShowIcon(0x102, red, 20);
  Deliver(1);
  EXPECT_EQ(Row({20}), Pixels{0});
  EXPECT_TRUE(m_log.Has("ERROR picture <" + red +
                        "> is not shown: all that are shown would take 268435856 bytes, at most "
                        "268435456; hide some, or show them smaller"));
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
  ShowIcon(0x103, red, 80, 30);
  ShowIcon(0x201, red, 130);
  Init(0, 0, 160, 90);  // asked for again in the new size
  DeliverAll();
  EXPECT_EQ(Row({15, 16, 80, 109, 110, 130}), (Pixels{kRed, 0, kRed, kRed, 0, 0}));
  Init(1, 1, 160, 90);
  ShowIcon(0x301, red, 0, 0, 255);
  DeliverAll();  // it may have been kept by now
  Init(1, 1, 160, 90);
  ShowIcon(0x301, "/nowhere.png", 0, 0, 255);
  DeliverAll();
  EXPECT_EQ(Row({5}, 160, '1'), Pixels{0}) << "what a new layer left out does not come back";
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
  Send(T_OsdDelete{0x102});
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
  EXPECT_EQ(shown(), (Pixels{0, kBlue}));
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
  std::filesystem::remove(blue);
  for (const std::string& path : {blue, blue + "1", blue + "2", blue + "3", blue + "4"})
    Guide(1, 6, path);
  DeliverAll();
  EXPECT_EQ(shown(), (Pixels{kRed, kBlue}));
  DeInit(1);
  HideImage(255, 2);
  Init(1, 1, 160, 90);
  DeliverAll();
  EXPECT_EQ(shown(), (Pixels{kRed, 0}));
  HideImage(0, 0xFFFF);
  EXPECT_EQ(shown(), (Pixels{0, 0}));
}

TEST_F(Icons, AMoveToAnotherOutputMayBeHiddenOrFail) {
  const std::string red = Plain("red.png", kRed);
  const auto shown = [] { return Pixels{Row({5})[0], Row({5}, 160, '1')[0]}; };
  Init(1, 1, 160, 90);
  ShowIcon(0x101, red);
  Deliver(1);
  const std::string moved = Plain("moved.png", kBlue);
  ShowIcon(0x101, moved);
  const T_ModuleMsg late = NextResult();
  std::filesystem::remove(moved);
  ShowIcon(0x101, moved, 0, 0, 1);
  Handle(late);  // of the other output
  DeliverAll();
  EXPECT_EQ(shown(), (Pixels{kRed, 0}));
  ShowIcon(0x101, Plain("moved.png", kBlue), 0, 0, 1);
  Send(T_OsdTextCancel{1, 0x101});
  DeliverAll();
  EXPECT_EQ(shown(), (Pixels{0, 0})) << "it had moved there";
  ShowIcon(0x101, moved, 0, 0, 1);
  HideImage(0, 0x101);
  DeliverAll();
  EXPECT_EQ(shown(), (Pixels{0, kBlue}));
  ShowIcon(0x101, "/nowhere");
  Init(1, 1, 160, 90);
  DeliverAll();
  DeliverAll();
  EXPECT_EQ(shown(), (Pixels{0, kBlue}));
  ShowIcon(0x102, Plain("late.png", kRed));
  ShowIcon(0x102, "/nowhere", 0, 0, 1);
  DeInit();
  DeliverAll();
  EXPECT_EQ(SizeAfterDelete(0x333), "INFO m_listDispInfo.size=2");
}

TEST_F(Icons, AskingAgainDoesNotPutOffWhatIsUnderWay) {
  const std::string red = Plain("red.png", kRed, 50);
  ShowIcon(0x101, red);
  const T_ModuleMsg first = NextResult();
  std::filesystem::rename(Plain("blue.png", kBlue, 50), red);
  ShowIcon(0x101, red, 150);
  Handle(first);  // made for another place, where nothing was cut off
  EXPECT_EQ(Row({0, 149, 150, 159}), (Pixels{0, 0, kRed, kRed}));
  DeliverAll();
  EXPECT_EQ(Row({149, 150}), (Pixels{0, kBlue})) << "as it is by now";
  ShowIcon(0x101, Plain("blue.png", kBlue));
  DeInit();
  Init(0, 0, 160, 90);
  DeliverAll();
  EXPECT_EQ(Row({9, 150}), (Pixels{kBlue, 0}));
  ShowIcon(0x101, Plain("other.png", kRed), 50);
  ShowIcon(0x101, "/nowhere", 90);
  DeliverAll();
  EXPECT_EQ(Row({9, 50, 90}), (Pixels{0, kRed, 0})) << "the last that can be read, at its place";
}

TEST_F(Icons, ATextWhoseIconFailsIsOnANewLayerUntilItsTimeIsUp) {
  const T_DispRecord text = Text(0x101, "text", 6);
  for (const int ticks : {9, 10}) {
    EXPECT_EQ(Show(text) + ShowIcon(0x101, "/nowhere"), 2u);
    Tick(1);
    Init(0, 0, 160, 90);
    EXPECT_TRUE(Shows({}, '0', 160, 90)) << "not below the icon";
    Tick(ticks);
    DeliverAll();
    EXPECT_TRUE(Shows(std::vector<T_DispRecord>(ticks < 10 ? 1 : 0, text), '0', 160, 90));
  }
}

TEST_F(Icons, ANewLayerGetsMoreIconsThanMayWait) {
  for (UInt32 i = 0; i < 40; ++i) {
    ShowIcon(0x100 + i, Plain(std::to_string(i) + ".png", kRed, 3), i * 4, 3);
    Deliver(1);
  }
  Init(0, 0, 320, 180);
  std::vector<UInt32> columns;
  Pixels shown(40, kRed);
  for (UInt32 i = 0; i < 40; ++i) columns.push_back(i * 8);
  for (UInt32 i = 0; i < 18; ++i) {  // among them all that the worker holds
    HideImage(0, 0x100 + i);
    shown[i] = 0;
  }
  DeliverAll();
  EXPECT_EQ(Row(columns, 320), shown);
}

TEST_F(Icons, AHiddenPictureOfClass2LeavesTheList) {
  const std::string red = Plain("red.png", kRed);
  for (UInt32 i = 0; i < 70; ++i) {
    ShowIcon(0x200 + i, red);
    HideImage(0, i % 2 ? 0x200 + i : 0xFFFF);
  }
  EXPECT_EQ(SizeAfterDelete(0x333), "INFO m_listDispInfo.size=0");
}

TEST_F(Icons, WhatIsCancelledBeforeItComesLeavesItsPixelsToo) {
  ShowIcon(0x101, Plain("red.png", kRed));
  Send(T_OsdCancelAll{});
  DeliverAll();
  EXPECT_EQ(Row({0, 9, 10}), (Pixels{kRed, kRed, 0}));
  ShowIcon(0x102, SystemPath("/red.png"), 20);
  Send(T_OsdCancelAll{});
  ShowIcon(0x103, SystemPath("/red.png"), 25);
  HideImage(0, 0x103);
  EXPECT_EQ(Row({20, 25}), (Pixels{kRed, 0})) << "left for good";
  Init(0, 0, 160, 90);
  DeliverAll();
  EXPECT_EQ(Row({0}), Pixels{0});
}

// Whatever is asked for, the screen at the end must be the one that a decoder without delay leaves.
class Sequences : public Icons {
 protected:
  struct T_Options {
    UInt32 m_u32Numbers;
    Bool m_bBad;  // one of the pictures cannot be read
  };
  // Plays the sequence of a seed; i_deliver is asked before every step whether what was read so far
  // comes now. What both layers show then.
  std::string Play(UInt32 i_u32Seed, const T_Options& i_options,
                   const std::function<Bool(UInt32)>& i_deliver) {
    std::mt19937 random(i_u32Seed);
    const auto below = [&](UInt32 i_u32End) { return static_cast<UInt32>(random() % i_u32End); };
    Stop();
    m_osd.emplace();
    Init(0, 0, 160, 90);
    Init(1, 1, 160, 90);
    Init(7, 7, 160, 90);
    const UInt32 u32Bad = i_options.m_bBad ? 10 + below(10) : kSteps;
    for (UInt32 step = 0; step < kSteps; ++step) {
      if (i_deliver(step)) DeliverAll();
      Step(below(9), below(i_options.m_u32Numbers), below(3), step == u32Bad ? 3 : below(3),
           step == u32Bad ? 0 : below(9));
    }
    DeliverAll();
    return Screen('0') + Screen('1');
  }
  static std::string Screen(char i_digit) {
    const std::string file = ReadFile(SystemPath("/dev/fb") + i_digit);
    UInt32 aHeader[9];  // from the eighth byte on; rows, bytes a row, and whether it is shown
    std::memcpy(aHeader, file.data(), sizeof(aHeader));
    return aHeader[8] != 0 ? file.substr(4096, size_t{aHeader[4]} * aHeader[5]) : "";
  }
  static constexpr UInt32 kSteps = 30;

 private:
  void Step(UInt32 i_u32Place, UInt32 i_u32Number, UInt32 i_u32Output, UInt32 i_u32Picture,
            UInt32 i_u32What) {
    const auto output = static_cast<UInt16>(i_u32Output < 2 ? i_u32Output : 255);
    const auto seq = static_cast<UInt16>((1 + i_u32Number % 2) << 8 | i_u32Number);
    const std::string& picture = m_pictures[i_u32Picture];
    T_DispRecord text = Text(seq, "t", 1, i_u32Number * 500, 8000);  // touches no other
    text.m_u16VoSeq = static_cast<UInt16>(i_u32Number % 2);          // nor leaves its output
    text.m_u16Time = T_DispRecord::kForever;
    switch (i_u32What) {
      case 3:
        Guide(output, i_u32Number % 2, picture);
        break;
      case 4:
        HideImage(output, i_u32Number % 3 ? seq : i_u32Number % 2);
        break;
      case 5:
        Send(T_OsdTextCancel{output, seq});
        break;
      case 6:
        Send(T_OsdDelete{i_u32Place ? seq : UInt16(seq | 0xFF)});
        break;
      case 7:
        output == 255 ? DeInit(i_u32Place % 2)
                      : Init(output, output, i_u32Place % 2 ? 160 : 200, 90);
        break;
      case 8:
        Show(text);
        break;
      default:
        ShowIcon(seq, picture, i_u32Place * 15, 0, output);
    }
  }

  const std::vector<std::string> m_pictures = {Plain("red.png", kRed), Plain("blue.png", kBlue, 25),
                                               Plain("half.png", 0x80008000, 40), "/nowhere.png"};
};

TEST_F(Sequences, DoNotDependOnTheDecodersSpeed) {
  std::mt19937 pace(20261122);
  for (UInt32 seed = 0; seed < 30; ++seed) {
    const T_Options options{seed % 2 ? 24U : 3U, false};
    const std::string quick = Play(seed, options, [](UInt32) { return true; });
    EXPECT_TRUE(quick == Play(seed, options, [](UInt32) { return false; })) << seed;
    EXPECT_TRUE(quick == Play(seed, options, [&](UInt32) { return pace() % 4 == 0; })) << seed;
  }
}

TEST_F(Sequences, HaveTwoScreensAtMostWhenOnePictureCannotBeRead) {
  for (UInt32 seed = 0; seed < 6; ++seed) {
    std::set<std::string> screens;
    for (UInt32 at = 0; at < kSteps; ++at)
      screens.insert(Play(seed, {1, true}, [=](UInt32 i_u32Step) { return i_u32Step == at; }));
    EXPECT_LE(screens.size(), 2u) << seed;
  }
}

}  // namespace
