#include "common/osd/pictures/picture_file.h"

#include <fcntl.h>

#include <cerrno>
#include <cstring>

namespace {

// All zeros, which is no file, when the system cannot tell.
struct stat Status(const CDescriptor& i_file) {
  struct stat status {};
  if (fstat(i_file.Get(), &status) != 0) status = {};
  return status;
}

const char* KindOf(mode_t i_mode) {
  if (S_ISDIR(i_mode)) return "a folder";
  if (S_ISFIFO(i_mode)) return "a pipe";
  if (S_ISSOCK(i_mode)) return "a socket";
  if (i_mode == 0) return "of an unknown kind";
  return "a device";
}

}  // namespace

CPictureFile::CPictureFile(CDescriptor i_file)
    : m_file(std::move(i_file)), m_stId(T_FileId::Of(Status(m_file))) {}

// The path is looked up once. The descriptor that only names the object tells what it is, and the
// object is opened for reading through that descriptor.
CResult<CPictureFile> CPictureFile::Open(const std::string& i_strPath) {
  const CDescriptor named(open(i_strPath.c_str(), O_PATH | O_CLOEXEC));
  if (named.Get() < 0) return Refuse("%s", std::strerror(errno));
  const struct stat status = Status(named);
  if (!S_ISREG(status.st_mode)) return Refuse("it is %s, not a file", KindOf(status.st_mode));
  const std::string self = "/proc/self/fd/" + std::to_string(named.Get());
  CDescriptor opened(open(self.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));  // waits for no lease
  if (opened.Get() < 0)
    return Refuse("it cannot be read, through %s: %s", self.c_str(), std::strerror(errno));
  CPictureFile file(std::move(opened));
  const off_t bytes = file.Id().m_bytes;
  if (bytes == 0) return Refuse("it is empty");
  if (bytes > static_cast<off_t>(kMaxBytes))
    return Refuse("its %lld bytes exceed %zu", static_cast<long long>(bytes), kMaxBytes);
  return file;
}

CResult<> CPictureFile::Read(void* o_pBytes, size_t i_bytes) {
  char* pNext = static_cast<char*>(o_pBytes);
  while (i_bytes > 0) {
    const ssize_t got = pread(Descriptor(), pNext, i_bytes, static_cast<off_t>(m_offset));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return Refuse("%s", std::strerror(errno));
    if (got == 0) return Refuse("it ends too early");
    pNext += got;
    i_bytes -= static_cast<size_t>(got);
    m_offset += static_cast<size_t>(got);
  }
  return {};
}

Bool CPictureFile::HasChanged() const { return T_FileId::Of(Status(m_file)) != m_stId; }
