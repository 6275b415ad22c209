#include "common/osd/pictures/result.h"

#include <cstdarg>
#include <cstdio>

T_Refusal Refuse(const char* i_pFormat, ...) {
  char szText[512];
  va_list arguments;
  va_start(arguments, i_pFormat);
  std::vsnprintf(szText, sizeof(szText), i_pFormat, arguments);
  va_end(arguments);
  return {szText};
}
