#include "framework/assert.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>

void AssertFailed(const char* i_pText, const char* i_pSource, UInt32 i_u32Line,
                  const char* i_pFunction) {
  std::fflush(stdout);
  std::fprintf(stderr, "%s: %s:%u: %s: Assertion `%s' failed.\n", program_invocation_short_name,
               i_pSource, i_u32Line, i_pFunction, i_pText);
  std::fflush(stderr);
  std::abort();
}
