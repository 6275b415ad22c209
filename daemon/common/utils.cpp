#include "daemon/common/utils.h"

#include "framework/log.h"
#include "framework/program.h"

SInt32 my_system(const char* i_pCommand) {
  if (i_pCommand == nullptr) return 1;
  const std::optional<SInt32> status = RunShell(i_pCommand);
  if (!status) LOG_ERROR("my_system vfork err ");  // two blanks before " --[", as always
  const SInt32 s32Status = status.value_or(-1);
  LOG_INFO("my_system cmd<%s> status = %d", i_pCommand, s32Status);
  return s32Status;
}

std::string ShellQuote(std::string_view i_text) {
  std::string quoted = "'";
  for (const char c : i_text.substr(0, i_text.find('\0'))) {
    if (c == '\'')
      quoted += "'\\''";
    else
      quoted += c;
  }
  return quoted + "'";
}
