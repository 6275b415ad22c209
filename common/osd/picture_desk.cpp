#include "common/osd/picture_desk.h"

#include <cmath>
#include <ctime>
#include <utility>

namespace {

// Whether it may be written to once more without a change of the time that tells contents apart,
// which file systems round to as much as two seconds. A file from the future is not young: to a
// device whose clock is not set yet, all are.
Bool IsYoung(const T_FileId& i_file) {
  return std::abs(std::difftime(std::time(nullptr), i_file.m_seconds)) <= 2;
}

}  // namespace

// All pictures of its job, or not all.
Bool CPictureDesk::FindAll(T_PictureResult& io_result) {
  const T_PictureJob& job = io_result.m_stJob;
  // A path that is unknown is not looked at: its file system may be slow.
  if (job.m_bWholeScreen || !m_objCache.Knows(job.m_strPath)) return false;
  const T_FileId file = IdentifyFile(job.m_strPath);
  for (const auto& target : job.m_vecTargets) {
    auto pPicture = m_objCache.Find(job.m_strPath, file, target.m_stSize);
    if (pPicture == nullptr) return false;
    io_result.m_stLoaded.m_vecPictures.push_back(std::move(pPicture));
  }
  return true;
}

T_PictureResult CPictureDesk::Ask(T_PictureJob i_stJob) {
  T_PictureResult result{0, std::move(i_stJob), {}};
  if (FindAll(result)) return result;
  UInt64 u64Dropped = 0;
  const UInt64 u64Ticket = m_objWorker.Add(std::move(result.m_stJob), &u64Dropped);
  if (u64Dropped != 0) m_vecDropped.push_back(u64Dropped);
  return {u64Ticket, {}, {}};
}

void CPictureDesk::Keep(const T_PictureResult& i_result) {
  const T_PictureJob& job = i_result.m_stJob;
  const T_Loaded& loaded = i_result.m_stLoaded;
  if (job.m_bWholeScreen || !loaded.m_strError.empty() || IsYoung(loaded.m_stFile)) return;
  for (size_t i = 0; i < job.m_vecTargets.size(); ++i)
    m_objCache.Keep(job.m_strPath, loaded.m_stFile, loaded.m_stOwn, job.m_vecTargets[i].m_stSize,
                    loaded.m_vecPictures[i]);
}

T_PictureResult CPictureDesk::TakeDropped() {
  T_PictureResult result{0, {}, {}};
  if (m_vecDropped.empty()) return result;
  result.m_u64Ticket = m_vecDropped.back();
  result.m_stLoaded.m_strError = "dropped";
  result.m_bDropped = true;
  m_vecDropped.pop_back();
  return result;
}
