// The rows of a picture's file from the top, each decoded when it is asked for: however large the
// picture is, only some rows of it are in memory. Whatever reads a file refuses one that is
// damaged, of a kind that is not read, or above CPicture's limits. One thread.
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

  // Writes the next row, as a CPicture has it, to o_pRow. Called once for each row of the extent.
  virtual CResult<> Read(UInt32* o_pRow) = 0;
  // Called after the last row: refused when the rest of the file is damaged.
  virtual CResult<> Finish() { return {}; }

 private:
  const T_Extent m_stExtent;
  const Bool m_bAlpha;
};

using T_File = std::shared_ptr<CPictureFile>;
using T_Rows = std::unique_ptr<CRowReader>;

// Ends with a refusal when i_stop is requested, also while rows are read.
CResult<T_Rows> ReadPng(const T_File& i_pFile, const std::stop_token& i_stop);

// Reads 24 and 32 bits a pixel, without compression.
CResult<T_Rows> ReadBmp(const T_File& i_pFile, const std::stop_token& i_stop);

// Has the program djpeg decode the file, which is done when this returns; its output is a file
// without a name in the temporary folder, "/yuvfile". Also refused when djpeg is missing, fails or
// takes too long, and without room for its output. Ends with a refusal when i_stop is requested.
CResult<T_Rows> ReadJpeg(const T_File& i_pFile, const std::stop_token& i_stop);

// Refused when a picture of i_u64W x i_u64H px has none, or is above CPicture's limits.
CResult<> CheckSize(UInt64 i_u64W, UInt64 i_u64H);
