// Where the renderer asks for pictures: it has them at once from the cache, or hears of them later
// from the worker. Owned by the renderer and used under its mutexes.
#pragma once

#include <optional>
#include <utility>

#include "common/osd/picture_cache.h"
#include "common/osd/picture_worker.h"

class CPictureDesk {
 public:
  // All pictures that i_job, which has at least one target, asks for, if they are at hand.
  std::optional<T_PictureResult> Find(const T_PictureJob& i_job);

  // Has them read. The ticket that the result will bear; 0 when there is no room for one more: ask
  // again after a result or a withdrawal.
  UInt64 Ask(T_PictureJob i_stJob) { return m_objWorker.Add(std::move(i_stJob)); }
  Bool HasRoom() { return m_objWorker.HasRoom(); }

  // The result of that ticket is not wanted any more; 0 and unknown ones are ignored.
  void Withdraw(UInt64 i_u64Ticket) { m_objWorker.Withdraw(i_u64Ticket); }

  // Keeps what has come, for those who ask again, unless its file was written to just now.
  void Keep(const T_PictureResult& i_result);

  // Starts the worker's thread, and ends it.
  void Start() { m_objWorker.StartOnce(); }
  void Stop() { m_objWorker.Stop(); }

 private:
  CPictureCache m_objCache;
  CPictureWorker m_objWorker;
};
