#include "framework/log.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <thread>

#include "tests/log_capture.h"

namespace {

TEST(Log, NoTextEndsALineOrTakesItsSourceAway) {
  CLogCapture log;
  LOG_INFO("<%s>", "a\n\x1f \x7f\x80\x9f\xa0\\");
  LOG_INFO(" --[%s", std::string(9000, '\r').c_str());  // would be taken for the missing source
  std::string strCut = "INFO  --[";
  for (size_t i = strlen(" --["); i < 8191; ++i) strCut += "\\x0d";
  EXPECT_TRUE(log.Has("INFO <a\\x0a\\x1f \\x7f\\x80\\x9f\xa0\\>"));
  EXPECT_TRUE(log.Has(strCut));
}

TEST(Log, NoLineIsLostWhileItsFileMovesAndALossIsTold) {
  const std::filesystem::path folder = testing::TempDir() + "osd-log-" + std::to_string(getpid());
  const std::filesystem::path conf = folder.string() + ".conf", file = folder / "log";
  std::filesystem::create_directory(folder);
  std::ofstream(conf) << "log4cpp.rootCategory=INFO, FILE\nlog4cpp.appender.FILE=FileAppender\n"
                         "log4cpp.appender.FILE.fileName="
                      << file.string() << "\nlog4cpp.appender.FILE.layout=SimpleLayout\n";
  ASSERT_TRUE(CLog::Configure(conf.c_str()));
  std::thread writer([] {
    for (int line = 0; line < 20000; ++line) LOG_INFO("line");
  });
  for (int move = 0; move < 1000; ++move) {
    std::filesystem::rename(file, file.string() + std::to_string(move));
    CLog::FollowFiles();
  }
  writer.join();
  SInt64 lines = 0;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    std::ifstream text(entry.path());
    lines += std::count(std::istreambuf_iterator(text), {}, '\n');
  }
  EXPECT_EQ(lines, 20000);
  std::filesystem::remove_all(folder);
  CLog::FollowFiles();
  testing::internal::CaptureStderr();
  LOG_INFO("lost");
  EXPECT_THAT(testing::internal::GetCapturedStderr(), testing::StartsWith("osdsrv: cannot write"));
  CLog::Shutdown();
  std::filesystem::remove(conf);
}

}  // namespace
