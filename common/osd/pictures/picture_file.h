// A picture's file, opened once and read from its start on by one thread. Never mapped into memory:
// a file that is cut meanwhile is a short read and no signal.
#pragma once

#include <string>

#include "common/osd/pictures/file_id.h"
#include "common/osd/pictures/result.h"
#include "framework/descriptor.h"
#include "framework/types.h"

class CPictureFile {
 public:
  static constexpr size_t kMaxBytes = size_t{64} << 20;

  // Follows links. Without a side effect on what is no regular file: a pipe is not waited for, a
  // device not touched. Needs /proc. Refused when it is none, cannot be read, is empty or above
  // kMaxBytes.
  static CResult<CPictureFile> Open(const std::string& i_strPath);

  // Takes over i_file, a regular file, of whatever size it has now.
  explicit CPictureFile(CDescriptor i_file);

  const T_FileId& Id() const { return m_stId; }
  size_t Bytes() const { return static_cast<size_t>(m_stId.m_bytes); }
  // At the file's start for whoever inherits it: what is read here does not move it.
  SInt32 Descriptor() const { return m_file.Get(); }

  // Exactly i_bytes bytes from where the last one stopped. false when they are not there, with
  // errno, which is 0 at the end of the file.
  Bool Read(void* o_pBytes, size_t i_bytes);
  // The next byte that Read gives; may lie beyond the end, where there is none.
  void Seek(size_t i_offset) { m_offset = i_offset; }
  size_t Offset() const { return m_offset; }

  // Whether it was written to since it was opened.
  Bool HasChanged() const;

 private:
  CDescriptor m_file;
  T_FileId m_stId;
  size_t m_offset = 0;
};
