// The rows of a picture's file from the top, each decoded when it is asked for: however large the
// picture is, some rows are all that is in memory. Each way to read a file ends with the reason when
// the file is damaged or of a kind that is not read. One thread.
#pragma once

#include <memory>
#include <stop_token>

#include "common/osd/pictures/picture.h"
#include "common/osd/pictures/picture_file.h"
#include "common/osd/pictures/result.h"

class CRowReader {
 public:
  CRowReader(const T_Extent& i_stExtent, Bool i_bAlpha)
      : m_stExtent(i_stExtent), m_bAlpha(i_bAlpha) {}
  virtual ~CRowReader() = default;
  CRowReader(const CRowReader&) = delete;
  CRowReader& operator=(const CRowReader&) = delete;

  // Within CPicture's limits.
  const T_Extent& Extent() const { return m_stExtent; }
  // Whether an alpha other than 255 may occur.
  Bool HasAlpha() const { return m_bAlpha; }

  // The next row, as a CPicture has it; asked for once for each.
  virtual CResult<> Read(UInt32* o_pRow) = 0;
  // After the last row: whether the rest of the file is whole, too.
  virtual CResult<> Finish() { return {}; }

 private:
  const T_Extent m_stExtent;
  const Bool m_bAlpha;
};

using T_File = std::shared_ptr<CPictureFile>;
using T_Rows = std::unique_ptr<CRowReader>;

// Ends when i_stop is asked for.
CResult<T_Rows> ReadPng(const T_File& i_pFile, const std::stop_token& i_stop);

// 24 and 32 bits a pixel.
CResult<T_Rows> ReadBmp(const T_File& i_pFile, const std::stop_token& i_stop);

// By the program djpeg, which has done all its work when this returns. Its result is a file without
// a name in the temporary folder, "/yuvfile". Ends when i_stop is asked for.
CResult<T_Rows> ReadJpeg(const T_File& i_pFile, const std::stop_token& i_stop);

// Why CPictureFile::Read failed just now.
const char* WhyNotRead();

// Whether a picture may have i_u64W x i_u64H pixels.
CResult<> CheckSize(UInt64 i_u64W, UInt64 i_u64H);
