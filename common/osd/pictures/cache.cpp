#include "common/osd/pictures/cache.h"

#include <algorithm>

// How much of the scaled picture is cut off counts, not where it lies: places that cut nothing off,
// or the same, share an entry.
Bool CPictureCache::T_Entry::Is(const std::string& i_strPath, const T_FileId& i_file,
                                const T_WantedSize& i_size) const {
  if (!(m_stFile == i_file) || m_strPath != i_strPath) return false;
  const T_Extent cut{std::min(m_stScaled.m_u32W, i_size.m_stRoom.m_u32W),
                     std::min(m_stScaled.m_u32H, i_size.m_stRoom.m_u32H)};
  return ScaledExtent(m_stOwn, i_size.m_stScaled) == m_stScaled && m_pPicture->Extent() == cut;
}

Bool CPictureCache::Knows(const std::string& i_strPath) const {
  return std::any_of(m_lstEntries.begin(), m_lstEntries.end(),
                     [&](const T_Entry& i_entry) { return i_entry.m_strPath == i_strPath; });
}

std::shared_ptr<const CPicture> CPictureCache::Find(const std::string& i_strPath,
                                                    const T_FileId& i_file,
                                                    const T_WantedSize& i_size) {
  const auto found =
      std::find_if(m_lstEntries.begin(), m_lstEntries.end(),
                   [&](const T_Entry& i_entry) { return i_entry.Is(i_strPath, i_file, i_size); });
  if (found == m_lstEntries.end()) return nullptr;
  m_lstEntries.splice(m_lstEntries.begin(), m_lstEntries, found);
  return found->m_pPicture;
}

void CPictureCache::Keep(const std::string& i_strPath, const T_FileId& i_file,
                         const T_Extent& i_own, const T_WantedSize& i_size,
                         std::shared_ptr<const CPicture> i_pPicture) {
  if (i_pPicture->Bytes() > kMaxBytes || Find(i_strPath, i_file, i_size) != nullptr) return;
  m_bytes += i_pPicture->Bytes();
  m_lstEntries.push_front(
      {i_strPath, i_file, i_own, ScaledExtent(i_own, i_size.m_stScaled), std::move(i_pPicture)});
  while (m_lstEntries.size() > kMaxEntries || m_bytes > kMaxBytes) {
    m_bytes -= m_lstEntries.back().m_pPicture->Bytes();
    m_lstEntries.pop_back();
  }
}
