#include "common/osd/pictures/picture_file.h"

#include <fcntl.h>

#include <cerrno>
#include <cstring>

#include "common/osd/pictures/decoders.h"

namespace {

struct stat Status(const CDescriptor& i_file) {
  struct stat status {};
  fstat(i_file.Get(), &status);
  return status;
}

const char* KindOf(mode_t i_mode) {
  if (S_ISDIR(i_mode)) return "a folder";
  if (S_ISFIFO(i_mode)) return "a pipe";
  if (S_ISSOCK(i_mode)) return "a socket";
  return "a device";
}

}  // namespace

CPictureFile::CPictureFile(CDescriptor i_file)
    : m_file(std::move(i_file)), m_stId(T_FileId::Of(Status(m_file))) {}

// The path is looked up once. The descriptor that only names the object tells what it is, and the
// object is opened for reading through that descriptor.
std::optional<CPictureFile> CPictureFile::Open(const std::string& i_strPath,
                                               std::string* o_pError) {
  const CDescriptor named(open(i_strPath.c_str(), O_PATH | O_CLOEXEC));
  if (named.Get() < 0) return Refuse(o_pError, "%s", std::strerror(errno));
  const struct stat status = Status(named);
  if (!S_ISREG(status.st_mode))
    return Refuse(o_pError, "it is %s, not a file", KindOf(status.st_mode));
  const std::string self = "/proc/self/fd/" + std::to_string(named.Get());
  CPictureFile file(CDescriptor(open(self.c_str(), O_RDONLY | O_CLOEXEC)));
  if (file.Descriptor() < 0) return Refuse(o_pError, "%s", std::strerror(errno));
  if (file.Bytes() == 0) return Refuse(o_pError, "it is empty");
  if (file.Bytes() > kMaxBytes)
    return Refuse(o_pError, "its %zu bytes exceed %zu", file.Bytes(), kMaxBytes);
  return file;
}

Bool CPictureFile::Read(void* o_pBytes, size_t i_bytes) {
  char* pNext = static_cast<char*>(o_pBytes);
  while (i_bytes > 0) {
    const ssize_t got = pread(Descriptor(), pNext, i_bytes, static_cast<off_t>(m_offset));
    if (got < 0 && errno == EINTR) continue;
    if (got == 0) errno = 0;
    if (got <= 0) return false;
    pNext += got;
    i_bytes -= static_cast<size_t>(got);
    m_offset += static_cast<size_t>(got);
  }
  return true;
}

Bool CPictureFile::HasChanged() const { return T_FileId::Of(Status(m_file)) != m_stId; }
