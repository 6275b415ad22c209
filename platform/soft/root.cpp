#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "platform/platform.h"

namespace {

const std::string& StartFolder() {
  std::error_code ignored;
  static const std::string& s_folder =
      *new std::string(std::filesystem::current_path(ignored).string());
  return s_folder;
}

// Taken before main: a daemon changes to "/", and a relative device root must not move with it.
[[maybe_unused]] const std::string& s_startFolder = StartFolder();

std::string ReadRoot() {
  const char* pNamed = std::getenv("OSD_ROOT");
  if (pNamed == nullptr || *pNamed == '\0') return OSD_DEFAULT_ROOT;
  if (*pNamed == '/') return pNamed;
  return StartFolder() + "/" + pNamed;
}

}  // namespace

std::string SystemPath(const char* i_pPath) {
  static const std::string& s_root = *new std::string(ReadRoot());
  return s_root + i_pPath;
}

std::string NamedPath(const std::string& i_strPath) {
  if (!i_strPath.starts_with('/')) return i_strPath;
  std::string underRoot = SystemPath(i_strPath.c_str());
  return access(underRoot.c_str(), F_OK) == 0 ? underRoot : i_strPath;
}
