#include "framework/log.h"

#include <gmock/gmock.h>

#include "tests/log_capture.h"

namespace {

TEST(Log, NoTextEndsALineOrTakesItsSourceAway) {
  CLogCapture log;
  LOG_INFO("<%s>", "a\n\x1f \x7f\x80\x9f\xa0\\");
  LOG_INFO(" --[%s", std::string(9000, '\r').c_str());  // would be taken for the missing source
  std::string strCut = "INFO  --[";
  for (size_t i = strlen(" --["); i < 8191; ++i) strCut += "\\x0d";
  EXPECT_THAT(log.Take(), testing::ElementsAre("INFO <a\\x0a\\x1f \\x7f\\x80\\x9f\xa0\\>", strCut));
}

}  // namespace
