// What is kept of the font: of each pixel size that was asked for its cell, and the masks of the
// characters that were drawn in it. All sizes together stay within a limit of bytes; what was used
// longest ago goes first. Owned by the glyph drawer.
#pragma once

#include <array>
#include <list>
#include <memory>
#include <unordered_map>

#include "common/osd/placement.h"

// A mask holds one byte for four pixels, bit 0 for the leftmost; rows are whole bytes, and bits
// beyond the cell are 0.
struct T_FontSize {
  static constexpr UInt32 kGroup = 4;

  UInt32 m_u32Size;  // px
  SInt32 m_s32Ascender;
  T_Cell m_stCell;
  std::array<std::unique_ptr<UInt8[]>, 256> m_apMask{};  // by character

  UInt32 RowBytes() const { return (m_stCell.m_u32W + kGroup - 1) / kGroup; }
  size_t MaskBytes() const { return size_t{RowBytes()} * m_stCell.m_u32H; }
  // With all its masks.
  size_t Bytes() const;
};

class CFontSizes {
 public:
  // Makes i_u32Size the size in use, which stays until another is; null when it is not kept.
  T_FontSize* Use(UInt32 i_u32Size);
  // Makes a size the one in use that is not kept yet.
  T_FontSize* Add(UInt32 i_u32Size, SInt32 i_s32Ascender, const T_Cell& i_cell);

  // A mask of background only for a character of the size in use that has none. The masks of the
  // other characters of i_pText stay, if need be beyond the limit.
  UInt8* AddMask(UInt8 i_u8Char, const char* i_pText);

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
