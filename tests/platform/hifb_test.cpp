#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "platform/platform.h"
#include "tests/log_capture.h"

TEST(HifbMemory, AMissingLibraryIsNamedAndLookedForAgain) {
  char aFolder[] = "/tmp/osd-hifb.XXXXXX";
  ASSERT_EQ(chdir(mkdtemp(aFolder)), 0);
  CLogCapture log;
  T_ContiguousMemory memory{};
  EXPECT_FALSE(ContiguousAlloc(4096, &memory));
  EXPECT_EQ(log.Take().at(0).find("ERROR media SDK library ./libstandin.so not loaded: "), 0U);
  std::filesystem::create_symlink(STAND_IN_SDK, "libstandin.so");
  EXPECT_TRUE(ContiguousAlloc(4096, &memory));
  EXPECT_EQ(memory.m_u32Physical, 0x81234000U);
  EXPECT_FALSE(ContiguousAlloc(1, &memory));
  ContiguousFree(memory);
  EXPECT_EQ(log.Take(), std::vector<std::string>{
                            "ERROR no canvas memory of 1 bytes: StandInAlloc gave 0xffffffff"});
  std::filesystem::remove_all(aFolder);
}
