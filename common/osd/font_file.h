// The font's file, as FreeType reads it: through a descriptor and never mapped into memory, so that
// a file that is cut while it is in use makes FreeType fail instead of the process. Owned by the
// glyphs; used under the renderer's mutexes.
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
  // Opens the file. One that is missing, or is no regular file, reads as empty; a pipe is not
  // waited for.
  explicit CFontFile(std::string i_strPath);
  CFontFile(const CFontFile&) = delete;
  CFontFile& operator=(const CFontFile&) = delete;

  // Whether nobody wrote to the file since it was opened: what was read from it belongs together.
  Bool IsUnchanged() const;
  // Whether the path still leads to this file, and nobody wrote to it.
  Bool IsCurrent() const;

  // Good as long as this object.
  FT_StreamRec* Stream() { return &m_stStream; }

 private:
  struct T_Block {
    unsigned long m_start = 0;
    std::vector<UInt8> m_vecBytes;  // fewer than kBlockBytes at the end of the file
  };

  // As FreeType asks for it: returns how many bytes were read. A count of 0 only asks whether
  // i_offset lies within the file: 0 means that it does.
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
