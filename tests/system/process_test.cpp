#include <fcntl.h>
#include <sys/file.h>

#include <filesystem>
#include <fstream>

#include "tests/system/daemon.h"
#include "tests/system/oracle.h"

namespace {

constexpr char kUsage[] =
    "osdsrv [options]\n    -h --help           show this help\n"
    "    -D --daemonize      Daemonize after startup\n";

TEST(Process, ServesWithHelpAndGoesOnWhenFontAndLayerAreThere) {
  const CDeviceRoot root;
  const std::string font = root.Path("/usr/share/fonts/monos.ttf");
  COracle oracle(font);
  std::filesystem::rename(font, font + ".away");
  std::filesystem::remove(root.Path("/dev/fb1"));
  CDaemon daemon(root, "-h");
  CPeer peer(9634);
  ASSERT_GT(peer.AwaitAnswer(), 0U);
  EXPECT_NE(daemon.Out().find(kUsage), std::string::npos);
  EXPECT_EQ(root.PidInFile(), daemon.Pid());
  const int fd = open(root.Path("/var/run/osd.pid").c_str(), O_RDWR);
  EXPECT_NE(flock(fd, LOCK_EX | LOCK_NB), 0);
  close(fd);

  const Bytes screen = Pack(0, 1, 0, 0, 640, 360);
  const T_Text text{.m_text = "font"};
  peer.Request(kInit, screen);
  EXPECT_TRUE(root.Logs("/dev/fb1 failed!"));
  std::ofstream(root.Path("/dev/fb1")).flush();
  peer.Request(kInit, screen);
  oracle.Init(0, {0, 0, 640, 360});
  const std::string before = daemon.Out();
  peer.Request(kText, text.Body());
  EXPECT_TRUE(Eventually([&] { return daemon.Out() == before + "create new face falied!"; }));
  EXPECT_TRUE(root.Shows(1, oracle.Pictures().at(0)));
  std::filesystem::rename(font + ".away", font);
  peer.Request(kText, text.Body());
  oracle.Show(text);
  EXPECT_TRUE(root.Shows(1, oracle.Pictures().at(0)));

  CDaemon second(root);
  EXPECT_EQ(second.Stop(0), 1);
  EXPECT_NE(second.Out().find("process allready started\n"), std::string::npos);
  EXPECT_EQ(ReadFile(root.Path("/var/run/osd.pid")), "");
  EXPECT_EQ(daemon.Stop(SIGINT), 0);
  EXPECT_TRUE(daemon.Out().ends_with("\033[0;31mprogram will exit now!\033[0;39m\n"));
}

TEST(Process, ServesWithoutLogConfigurationOnceItsPortIsFree) {
  const CDeviceRoot root;
  std::filesystem::remove(root.Path("/usr/local/etc/ztosdlog.conf"));
  auto pBlocker = std::make_unique<CPeer>(9636);
  CDaemon daemon(root, "--no-such-option");
  // The renderer starts when the endpoint has tried to bind.
  EXPECT_TRUE(Eventually([&] {
    for (const auto& thread :
         std::filesystem::directory_iterator("/proc/" + std::to_string(daemon.Pid()) + "/task"))
      if (ReadFile(thread.path() / "comm") == "osdhifb\n") return true;
    return false;
  }));
  pBlocker.reset();
  EXPECT_GT(CPeer(9634).AwaitAnswer(), 0U);
  EXPECT_EQ(daemon.Out(), kUsage);
  EXPECT_EQ(daemon.Stop(SIGTERM), 0);
  const std::string err = daemon.Err();
  EXPECT_NE(err.find("ztosdlog.conf"), std::string::npos);
  EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 2) << err;  // the option's and the log's
}

TEST(Process, ServesWhileItsLogIsFullAndEndsWithoutItsPidFolder) {
  const CDeviceRoot root;
  std::filesystem::create_symlink("/dev/full", root.Path("/var/log/osdsrv.log"));
  CDaemon daemon(root, "-f");
  const CDeviceRoot other;
  std::filesystem::remove_all(other.Path("/var/run"));
  CDaemon homeless(other);
  EXPECT_GT(CPeer(9634).AwaitAnswer(), 0U);
  EXPECT_NE(daemon.Err().find("No space left on device"), std::string::npos) << daemon.Err();
  EXPECT_EQ(homeless.Stop(0), 1);
  EXPECT_TRUE(other.Logs("ERROR open pid file failed: No such file or directory"));
  EXPECT_EQ(daemon.Stop(SIGTERM), 0);
}

}  // namespace
