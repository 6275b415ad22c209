#include "common/osd/text_rules.h"

#include <cstring>

namespace {

size_t TextLength(const T_DispRecord& i_record) { return std::strlen(i_record.m_aText[0]); }

}  // namespace

// A request without text counts as one with an empty text here, although the stored text stays: it
// is erased and drawn again.
Bool CoversText(const T_DispRecord& i_new, const T_DispRecord& i_stored, Bool i_bAllLines) {
  if (!(i_new.m_u32Mask & kMaskText)) return TextLength(i_stored) == 0;
  if (!i_bAllLines) return TextLength(i_stored) == TextLength(i_new);
  if (i_stored.m_u16Line != i_new.m_u16Line) return false;
  for (UInt32 line = 0; line < i_stored.m_u16Line; ++line)
    if (std::strlen(i_stored.m_aText[line]) != std::strlen(i_new.m_aText[line])) return false;
  return true;
}

void MergeText(const T_DispRecord& i_new, Bool i_bAllLines, T_DispRecord& io_stored) {
  if (!(i_new.m_u32Mask & kMaskText)) return;
  if (i_bAllLines) {
    std::memcpy(io_stored.m_aText, i_new.m_aText, sizeof(io_stored.m_aText));
    io_stored.m_u16Line = i_new.m_u16Line;
    return;
  }
  std::memcpy(io_stored.m_aText[0], i_new.m_aText[0], T_DispRecord::kLineChars);
  io_stored.m_aText[0][T_DispRecord::kLineChars] = '\0';
  io_stored.m_u16Line = 1;
}

void MergeFields(const T_DispRecord& i_new, T_DispRecord& io_stored) {
  const UInt32 u32Mask = i_new.m_u32Mask;
  if (u32Mask & kMaskPosition) {
    io_stored.m_u32Position = i_new.m_u32Position;
    io_stored.m_u32X = i_new.m_u32X;
    io_stored.m_u32Y = i_new.m_u32Y;
  }
  if (u32Mask & kMaskFontSize) io_stored.m_u16FontSize = i_new.m_u16FontSize;
  if (u32Mask & kMaskTextColour) io_stored.m_u32TextColour = i_new.m_u32TextColour;
  if (u32Mask & kMaskBackground) io_stored.m_u32Background = i_new.m_u32Background;
  io_stored.m_u16Time =
      u32Mask & kMaskForever ? T_DispRecord::kForever : T_DispRecord::kTimedSeconds;
  io_stored.m_u8Hide = 0;
  io_stored.m_u16VoSeq = i_new.m_u16VoSeq;
}
