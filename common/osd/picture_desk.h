// Where the renderer asks for pictures: it has them at once from the cache, or hears of them later
// from the worker. Owned by the renderer and used under its mutexes.
#pragma once

#include <vector>

#include "common/osd/picture_cache.h"
#include "common/osd/picture_worker.h"

class CPictureDesk {
 public:
  // What i_stJob, which has at least one target, asks for: complete with ticket 0, or with nothing
  // but the ticket of the result to come.
  T_PictureResult Ask(T_PictureJob i_stJob);

  // The result of that ticket is not wanted any more; 0 and unknown ones are.
  void Withdraw(UInt64 i_u64Ticket) { m_objWorker.Withdraw(i_u64Ticket); }

  // Keeps what has come, for those who ask again, unless its file was written to just now.
  void Keep(const T_PictureResult& i_result);

  // The result, with an error, of a ticket that was dropped because too many were asked for; each
  // is told once, then ticket 0.
  T_PictureResult TakeDropped();

  // Ends the worker's thread.
  void Stop() { m_objWorker.Stop(); }

 private:
  Bool FindAll(T_PictureResult& io_result);

  CPictureCache m_objCache;
  CPictureWorker m_objWorker;
  std::vector<UInt64> m_vecDropped;
};
