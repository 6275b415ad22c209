#include "framework/assert.h"

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

// As g++ writes it: clang has "T *f(U *)" where g++ has "T* f(U*)". Only that is mended; templates,
// references, lambdas and unnamed namespaces still read as the compiler at hand writes them.
std::string Signature(const char* i_pFunction) {
  std::string signature;
  for (const char* p = i_pFunction; *p != '\0'; ++p) {
    if (p[0] == ' ' && p[1] == '*') continue;
    signature += *p;
    if (p[0] == '*' && std::isalpha(p[1])) signature += ' ';
  }
  return signature;
}

}  // namespace

void AssertFailed(const char* i_pText, const char* i_pSource, UInt32 i_u32Line,
                  const char* i_pFunction) {
  std::fflush(stdout);
  std::fprintf(stderr, "%s: %s:%u: %s: Assertion `%s' failed.\n", program_invocation_short_name,
               i_pSource, i_u32Line, Signature(i_pFunction).c_str(), i_pText);
  std::fflush(stderr);
  std::abort();
}
