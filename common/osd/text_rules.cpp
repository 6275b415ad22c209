#include "common/osd/text_rules.h"

#include <cstring>

namespace {

size_t TextLength(const T_DispRecord& i_item) { return std::strlen(i_item.m_aText[0]); }

// A text of the same length covers its predecessor; otherwise that must be erased first. A request
// without text counts as one of length 0, although the stored text stays.
Bool HasLengthOf(const T_DispRecord& i_item, const T_DispRecord& i_new) {
  return TextLength(i_item) == (i_new.m_u32Mask & kMaskText ? TextLength(i_new) : 0);
}

Bool HasShapeOf(const T_DispRecord& i_item, const T_DispRecord& i_new) {
  if (!(i_new.m_u32Mask & kMaskText)) return HasLengthOf(i_item, i_new);
  if (i_item.m_u16Line != i_new.m_u16Line) return false;
  for (UInt32 line = 0; line < i_item.m_u16Line; ++line)
    if (std::strlen(i_item.m_aText[line]) != std::strlen(i_new.m_aText[line])) return false;
  return true;
}

void MergeFirstLine(const T_DispRecord& i_new, T_DispRecord& io_item) {
  if (!(i_new.m_u32Mask & kMaskText)) return;
  std::memcpy(io_item.m_aText[0], i_new.m_aText[0], T_DispRecord::kLineChars);
  io_item.m_aText[0][T_DispRecord::kLineChars] = '\0';
  io_item.m_u16Line = 1;
}

void MergeAllLines(const T_DispRecord& i_new, T_DispRecord& io_item) {
  if (!(i_new.m_u32Mask & kMaskText)) return;
  std::memcpy(io_item.m_aText, i_new.m_aText, sizeof(io_item.m_aText));
  io_item.m_u16Line = i_new.m_u16Line;
}

}  // namespace

const T_TextRules kFirstLineRules{HasLengthOf, MergeFirstLine};
const T_TextRules kAllLinesRules{HasShapeOf, MergeAllLines};

void MergeFields(const T_DispRecord& i_new, T_DispRecord& io_item) {
  const UInt32 u32Mask = i_new.m_u32Mask;
  if (u32Mask & kMaskPosition) {
    io_item.m_u32Position = i_new.m_u32Position;
    io_item.m_u32X = i_new.m_u32X;
    io_item.m_u32Y = i_new.m_u32Y;
  }
  if (u32Mask & kMaskFontSize) io_item.m_u16FontSize = i_new.m_u16FontSize;
  if (u32Mask & kMaskTextColour) io_item.m_u32TextColour = i_new.m_u32TextColour;
  if (u32Mask & kMaskBackground) io_item.m_u32Background = i_new.m_u32Background;
  io_item.m_u16Time = u32Mask & kMaskForever ? T_DispRecord::kForever : T_DispRecord::kTimedSeconds;
  io_item.m_u8Hide = 0;
  io_item.m_u16VoSeq = i_new.m_u16VoSeq;
}
