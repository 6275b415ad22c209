#include "common/osd/pictures/desk.h"

#include <cmath>
#include <ctime>

namespace {

// Whether the file may be written to once more while its time of modification, by which contents
// are told apart, stays the same: file systems round it to as much as two seconds. A file from the
// future is not young, because to a device whose clock is not set all files are from the future.
Bool IsYoung(const T_FileId& i_file) {
  return std::abs(std::difftime(std::time(nullptr), i_file.m_seconds)) <= 2;
}

}  // namespace

std::optional<T_PictureResult> CPictureDesk::Find(const T_PictureJob& i_job) {
  // A path that is unknown is not looked at: its file system may be slow.
  if (i_job.m_bWholeScreen || !m_objCache.Knows(i_job.m_strPath)) return std::nullopt;
  T_PictureResult result{0, i_job, {}};
  const T_FileId file = IdentifyFile(i_job.m_strPath);
  for (const auto& target : i_job.m_vecTargets) {
    auto pPicture = m_objCache.Find(i_job.m_strPath, file, target.m_stSize);
    if (pPicture == nullptr) return std::nullopt;
    result.m_loaded->m_vecPictures.push_back(std::move(pPicture));
  }
  return result;
}

void CPictureDesk::Keep(const T_PictureResult& i_result) {
  const T_PictureJob& job = i_result.m_stJob;
  if (job.m_bWholeScreen || !i_result.m_loaded) return;
  const T_Loaded& loaded = *i_result.m_loaded;
  if (IsYoung(loaded.m_stFile)) return;
  for (size_t i = 0; i < job.m_vecTargets.size(); ++i)
    m_objCache.Keep(job.m_strPath, loaded.m_stFile, loaded.m_stOwn, job.m_vecTargets[i].m_stSize,
                    loaded.m_vecPictures[i]);
}
