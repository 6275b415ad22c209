#include "endpoint/resolution_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string_view>

#include "framework/descriptor.h"

namespace {

constexpr size_t kMaxBytes = 4096;
constexpr size_t kMaxLine = 19;

// The number after the first "=" of a line that begins with i_pName; a line without one is 0.
void ReadSetting(const char* i_pLine, const char* i_pName, UInt32* io_pu32Value) {
  if (std::strncmp(i_pLine, i_pName, std::strlen(i_pName)) != 0) return;
  const char* const pEqual = std::strchr(i_pLine, '=');
  const long long number = pEqual == nullptr ? 0 : std::strtoll(pEqual + 1, nullptr, 10);
  *io_pu32Value =
      static_cast<UInt32>(std::clamp<long long>(number, 0, std::numeric_limits<UInt32>::max()));
}

T_Resolution Parse(std::string_view i_text) {
  T_Resolution resolution;
  while (!i_text.empty()) {
    std::string line(i_text.substr(0, kMaxLine));
    if (const size_t end = line.find('\n'); end != line.npos) line.resize(end + 1);
    i_text.remove_prefix(line.size());
    ReadSetting(line.c_str(), "width", &resolution.m_u32Width);
    ReadSetting(line.c_str(), "height", &resolution.m_u32Height);
  }
  return resolution;
}

T_Resolution Refuse(const char* i_pReason) { return {0, 0, i_pReason}; }

}  // namespace

// Looked at before it is opened, since that alone may make a device do something. What takes its
// place in between is read for at most as long, and without waiting.
T_Resolution ReadResolutionFile(const std::string& i_strPath) {
  struct stat status {};
  if (stat(i_strPath.c_str(), &status) != 0) return Refuse(std::strerror(errno));
  if (!S_ISREG(status.st_mode)) return Refuse("it is not a regular file");
  const CDescriptor file(open(i_strPath.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (file.Get() < 0) return Refuse(std::strerror(errno));
  char aText[kMaxBytes];
  const ssize_t length = read(file.Get(), aText, sizeof(aText));
  if (length < 0) return Refuse(std::strerror(errno));
  return Parse({aText, static_cast<size_t>(length)});
}
