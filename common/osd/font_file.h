// The font's file, as FreeType reads it: through a descriptor and never mapped into memory, so that
// a file that is cut while it is in use is an error of FreeType's and no signal. Used by one thread.
#pragma once

#include <ft2build.h>

#include <string>
#include <vector>

#include "common/osd/pictures/file_id.h"
#include "framework/descriptor.h"
#include "framework/types.h"
#include FT_SYSTEM_H

class CFontFile {
 public:
  // What is missing or no regular file reads as an empty one; nothing is waited for.
  explicit CFontFile(std::string i_strPath);
  CFontFile(const CFontFile&) = delete;
  CFontFile& operator=(const CFontFile&) = delete;

  // Whether it is as it was when it was opened, so that all that was read belongs together.
  Bool IsUnchanged() const;
  // Whether its path leads to it still, and it is unchanged.
  Bool IsCurrent() const;

  // Good as long as this object.
  FT_StreamRec* Stream() { return &m_stStream; }

 private:
  struct T_Block {
    unsigned long m_start = 0;
    std::vector<UInt8> m_vecBytes;  // fewer than kBlockBytes at the end of the file
  };

  // As FreeType wants it: how many bytes were read; for a count of 0 not 0 where nothing can be.
  static unsigned long Read(FT_StreamRec* i_pStream, unsigned long i_offset, UInt8* o_pBytes,
                            unsigned long i_count);
  const T_Block& BlockAt(unsigned long i_offset);
  void Fill(T_Block& o_block, unsigned long i_start) const;

  const std::string m_strPath;
  const CDescriptor m_file;
  T_FileId m_stId;
  FT_StreamRec m_stStream{};
  // FreeType reads a glyph in turns from two places, some bytes at a time. The last used is first.
  T_Block m_aBlocks[2];
};
