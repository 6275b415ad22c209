#include <gmock/gmock.h>
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "framework/log.h"
#include "platform/platform.h"

namespace {

TEST(HifbMemory, AMissingLibraryIsNamedAndLookedForAgain) {
  char aFolder[] = "/tmp/osd-hifb.XXXXXX";
  ASSERT_NE(mkdtemp(aFolder), nullptr);
  ASSERT_EQ(chdir(aFolder), 0);
  std::ofstream("log.conf") << "log4cpp.rootCategory=INFO, FILE\n"
                               "log4cpp.appender.FILE=FileAppender\n"
                               "log4cpp.appender.FILE.fileName=log\n"
                               "log4cpp.appender.FILE.layout=BasicLayout\n";
  ASSERT_TRUE(CLog::Configure("log.conf"));
  T_ContiguousMemory memory{};
  EXPECT_FALSE(ContiguousAlloc(4096, &memory));
  std::filesystem::create_symlink(STAND_IN_SDK, "libstandin.so");
  ASSERT_TRUE(ContiguousAlloc(4096, &memory));
  EXPECT_EQ(memory.m_u32Physical, 0x81234000U);
  T_ContiguousMemory second{};
  EXPECT_FALSE(ContiguousAlloc(4096, &second));  // the stand-in has but one
  ContiguousFree(memory);
  ContiguousFree(memory);
  CLog::Shutdown();
  std::ostringstream log;
  log << std::ifstream("log").rdbuf();
  using testing::HasSubstr;
  EXPECT_THAT(log.str(), testing::AllOf(HasSubstr("library ./libstandin.so not loaded: "),
                                        HasSubstr("No such file"),
                                        HasSubstr("of 4096 bytes: StandInAlloc gave 0xffffffff"),
                                        HasSubstr("not freed: StandInFree gave 0xffffffff")));
  std::filesystem::remove_all(aFolder);
}

}  // namespace
