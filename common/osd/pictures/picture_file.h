// A picture's file, opened once and read by one thread. It is never mapped into memory: a file that
// is cut meanwhile is a refusal and no signal.
#pragma once

#include <string>

#include "common/osd/pictures/file_id.h"
#include "common/osd/pictures/result.h"
#include "framework/descriptor.h"
#include "framework/types.h"

class CPictureFile {
 public:
  static constexpr size_t kMaxBytes = size_t{64} << 20;

  // Opens the file; links are followed. Refused when it is no regular file (without a side effect:
  // a pipe is not waited for, a device not touched), when it cannot be opened, for which /proc is
  // needed, and when it is empty or above kMaxBytes.
  static CResult<CPictureFile> Open(const std::string& i_strPath);

  // Takes over i_file, a regular file, of whatever size it has now.
  explicit CPictureFile(CDescriptor i_file);

  const T_FileId& Id() const { return m_stId; }
  size_t Bytes() const { return static_cast<size_t>(m_stId.m_bytes); }
  // Borrowed. A process that inherits it reads from the file's start: Read does not move that.
  SInt32 Descriptor() const { return m_file.Get(); }

  // Exactly i_bytes bytes from where the last one stopped. Refused when the file ends before, and
  // when it cannot be read.
  CResult<> Read(void* o_pBytes, size_t i_bytes);
  // The offset of the byte that Read gives next. It may lie beyond the end, where there is none.
  void Seek(size_t i_offset) { m_offset = i_offset; }
  size_t Offset() const { return m_offset; }

  // Whether somebody wrote to the file since it was opened.
  Bool HasChanged() const;

 private:
  CDescriptor m_file;
  T_FileId m_stId;
  size_t m_offset = 0;
};
