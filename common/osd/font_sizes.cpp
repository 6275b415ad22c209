#include "common/osd/font_sizes.h"

#include <algorithm>
#include <cstring>

size_t T_FontSize::Bytes() const {
  const auto none = std::count(m_apMask.begin(), m_apMask.end(), nullptr);
  return sizeof(*this) +
         (m_apMask.size() - static_cast<size_t>(none)) * m_stCell.MaskWords() * sizeof(UInt32);
}

T_FontSize* CFontSizes::Use(UInt32 i_u32Size) {
  const auto known = m_mapBySize.find(i_u32Size);
  if (known == m_mapBySize.end()) return nullptr;
  m_lstSizes.splice(m_lstSizes.begin(), m_lstSizes, known->second);
  return &m_lstSizes.front();
}

T_FontSize* CFontSizes::Add(UInt32 i_u32Size, SInt32 i_s32Ascender, const T_Cell& i_cell) {
  MakeRoom(sizeof(T_FontSize));
  m_lstSizes.push_front({i_u32Size, i_s32Ascender, i_cell});
  m_mapBySize[i_u32Size] = m_lstSizes.begin();
  m_bytes += sizeof(T_FontSize);
  return &m_lstSizes.front();
}

UInt32* CFontSizes::AddMask(UInt8 i_u8Char, const char* i_pText) {
  T_FontSize& size = m_lstSizes.front();
  const size_t words = size.m_stCell.MaskWords();
  const size_t bytes = words * sizeof(UInt32);
  MakeRoom(bytes);
  if (m_bytes + bytes > kMaxBytes) KeepOnly(i_pText);
  size.m_apMask[i_u8Char] = std::make_unique<UInt32[]>(words);
  m_bytes += bytes;
  return size.m_apMask[i_u8Char].get();
}

void CFontSizes::Clear() {
  m_mapBySize.clear();
  m_lstSizes.clear();
  m_bytes = 0;
}

// Drops sizes until there is room for i_bytes more; the size in use stays.
void CFontSizes::MakeRoom(size_t i_bytes) {
  while (m_bytes + i_bytes > kMaxBytes && m_lstSizes.size() > 1) {
    m_bytes -= m_lstSizes.back().Bytes();
    m_mapBySize.erase(m_lstSizes.back().m_u32Size);
    m_lstSizes.pop_back();
  }
}

// Drops the masks of the size in use, the only one that is left, but for those characters.
void CFontSizes::KeepOnly(const char* i_pText) {
  T_FontSize& size = m_lstSizes.front();
  for (UInt32 character = 0; character < size.m_apMask.size(); ++character)
    if (std::strchr(i_pText, static_cast<int>(character)) == nullptr)
      size.m_apMask[character].reset();
  m_bytes = size.Bytes();
}
