#include "common/osd/font_file.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace {

constexpr unsigned long kBlockBytes = 4096;

}  // namespace

CFontFile::CFontFile(std::string i_strPath)
    : m_strPath(std::move(i_strPath)),
      m_file(open(m_strPath.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {
  m_stStream.descriptor.pointer = this;
  m_stStream.read = Read;
  struct stat status {};
  if (fstat(m_file.Get(), &status) != 0 || !S_ISREG(status.st_mode)) return;
  m_stId = T_FileId::Of(status);
  m_stStream.size = static_cast<unsigned long>(status.st_size);
}

Bool CFontFile::IsUnchanged() const {
  struct stat status {};
  return fstat(m_file.Get(), &status) == 0 && T_FileId::Of(status) == m_stId;
}

Bool CFontFile::IsCurrent() const {
  struct stat status {};
  return stat(m_strPath.c_str(), &status) == 0 && T_FileId::Of(status) == m_stId;
}

unsigned long CFontFile::Read(FT_StreamRec* i_pStream, unsigned long i_offset, UInt8* o_pBytes,
                              unsigned long i_count) {
  if (i_count == 0) return i_offset > i_pStream->size;
  CFontFile& self = *static_cast<CFontFile*>(i_pStream->descriptor.pointer);
  unsigned long done = 0;
  while (done < i_count) {
    const T_Block& block = self.BlockAt(i_offset + done);
    const size_t from = i_offset + done - block.m_start;
    if (from >= block.m_vecBytes.size()) break;
    const size_t bytes = std::min<size_t>(block.m_vecBytes.size() - from, i_count - done);
    std::copy_n(block.m_vecBytes.begin() + static_cast<std::ptrdiff_t>(from), bytes,
                o_pBytes + done);
    done += bytes;
  }
  return done;
}

const CFontFile::T_Block& CFontFile::BlockAt(unsigned long i_offset) {
  const unsigned long start = i_offset - i_offset % kBlockBytes;
  const auto holds = [=](const T_Block& i_block) {
    return i_block.m_start == start && !i_block.m_vecBytes.empty();
  };
  if (holds(m_aBlocks[0])) return m_aBlocks[0];
  std::swap(m_aBlocks[0], m_aBlocks[1]);
  if (!holds(m_aBlocks[0])) Fill(m_aBlocks[0], start);
  return m_aBlocks[0];
}

void CFontFile::Fill(T_Block& o_block, unsigned long i_start) const {
  o_block.m_start = i_start;
  o_block.m_vecBytes.resize(kBlockBytes);
  ssize_t got = 0;
  do got = pread(m_file.Get(), o_block.m_vecBytes.data(), kBlockBytes, static_cast<off_t>(i_start));
  while (got < 0 && errno == EINTR);
  o_block.m_vecBytes.resize(static_cast<size_t>(std::max<ssize_t>(got, 0)));
}
