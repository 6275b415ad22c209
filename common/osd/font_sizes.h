// What is kept of the font: for each pixel size that was used its cell, and the masks of the
// characters that were drawn in it. All together stay within a limit of bytes; the size that was
// used longest ago is dropped first. Owned by the glyphs.
#pragma once

#include <array>
#include <list>
#include <memory>
#include <unordered_map>

#include "common/osd/cells.h"

struct T_FontSize {
  UInt32 m_u32Size;      // px
  SInt32 m_s32Ascender;  // px from the cell's top to the base line
  T_Cell m_stCell;
  std::array<std::unique_ptr<UInt32[]>, 256> m_apMask{};  // by character

  // What it takes with all its masks.
  size_t Bytes() const;
};

class CFontSizes {
 public:
  // Makes i_u32Size the size in use, which is not dropped; null when it is not kept. What is
  // returned stays good until the next call of Use, Add or Clear.
  T_FontSize* Use(UInt32 i_u32Size);
  // Adds a size that is not kept yet, and makes it the size in use.
  T_FontSize* Add(UInt32 i_u32Size, SInt32 i_s32Ascender, const T_Cell& i_cell);

  // Adds a mask, all background, for a character of the size in use that has none. Other masks may
  // be dropped for it, but not those of the characters of i_pText, even if that exceeds the limit.
  UInt32* AddMask(UInt8 i_u8Char, const char* i_pText);

  void Clear();

 private:
  static constexpr size_t kMaxBytes = size_t{8} << 20;

  void MakeRoom(size_t i_bytes);
  void KeepOnly(const char* i_pText);

  // Most recently used first: the size in use.
  std::list<T_FontSize> m_lstSizes;
  std::unordered_map<UInt32, std::list<T_FontSize>::iterator> m_mapBySize;
  size_t m_bytes = 0;
};
