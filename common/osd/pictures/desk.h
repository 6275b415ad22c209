// Where the renderer asks for pictures: it gets them at once from the cache, or later from the
// worker, which hands them to the function of the renderer's on its own thread and under no mutex.
// Owned by the renderer and used under its mutexes; Stop needs none.
#pragma once

#include <optional>
#include <utility>

#include "common/osd/pictures/cache.h"
#include "common/osd/pictures/worker.h"

class CPictureDesk {
 public:
  explicit CPictureDesk(T_DeliverPicture i_deliver) : m_objWorker(std::move(i_deliver)) {}

  // The pictures that i_job, which has at least one target, asks for, if all of them are in the
  // cache. Looks at the file when the cache has its path.
  std::optional<T_PictureResult> Find(const T_PictureJob& i_job);

  // Has them read. Returns the ticket that the result will bear; 0 when too many jobs wait: ask
  // again after a result or a withdrawal.
  UInt64 Ask(T_PictureJob i_stJob) { return m_objWorker.Add(std::move(i_stJob)); }
  // Whether Ask would take one more.
  Bool HasRoom() { return m_objWorker.HasRoom(); }

  // Nobody wants the result of that ticket any more; 0 and unknown ones are ignored. It may still
  // come when it is already on its way.
  void Withdraw(UInt64 i_u64Ticket) { m_objWorker.Withdraw(i_u64Ticket); }

  // Puts the pictures of an icon into the cache, unless its file was written to just now: then a
  // later change might not be noticed.
  void Keep(const T_PictureResult& i_result);

  // Starts the worker's thread, and ends it, as CPictureWorker.
  void Start() { m_objWorker.StartOnce(); }
  void Stop() { m_objWorker.Stop(); }

 private:
  CPictureCache m_objCache;
  CPictureWorker m_objWorker;
};
