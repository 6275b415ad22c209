// The thread "osdpicture", which reads and decodes one picture after the other, so that who wants
// them never waits for one. It hands each result to its owner's function.
//
// Owned by the desk. "The caller's thread" below is whichever holds the renderer's mutex. The
// worker's own lock is the innermost one: nothing is called or logged under it.
#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <stop_token>
#include <string>
#include <utility>
#include <vector>

#include "common/osd/pictures/loader.h"
#include "framework/cond.h"
#include "framework/mutex.h"
#include "framework/thread.h"
#include "framework/thread_annotations.h"

// What is to be read, and for which canvases.
struct T_PictureJob {
  struct T_Target {
    SInt32 m_s32Output;
    T_Extent m_stCanvas;    // px
    T_WantedSize m_stSize;  // of a whole screen: not used
  };
  std::string m_strPath;        // as a request names it
  Bool m_bWholeScreen = false;  // for LoadScreen, else for LoadPicture
  std::string m_strOverlay;     // of a whole screen; empty: none
  std::vector<T_Target> m_vecTargets;
};

// What became of a job.
struct T_PictureResult {
  UInt64 m_u64Ticket;  // as Add returned it; 0 when it came from the cache
  T_PictureJob m_stJob;
  CResult<T_Loaded> m_loaded;  // a picture for each target, in order; a refusal was logged

  // What was made for that output with a canvas of that size; null when nothing was.
  std::shared_ptr<const CPicture> For(SInt32 i_s32Output, const T_Extent& i_stCanvas) const;
};

// Takes a result over, or leaves it where it is: false, there is no room for it just now. Called by
// the worker's thread, which tries again every 100 ms until it is stopped.
using T_DeliverPicture = std::function<Bool(std::unique_ptr<T_PictureResult>& io_pResult)>;

class CPictureWorker : public CThread {
 public:
  static constexpr size_t kMaxWaiting = 16;  // jobs, beside the one under way

  explicit CPictureWorker(T_DeliverPicture i_deliver) : m_deliver(std::move(i_deliver)) {}
  ~CPictureWorker() override { Stop(); }

  // Queues a job. Returns the ticket that its result will bear; 0 when kMaxWaiting jobs wait
  // already. The caller's thread.
  UInt64 Add(T_PictureJob i_stJob);
  // Whether Add would take one more. The caller's thread.
  Bool HasRoom();

  // Starts the thread unless it runs. The first Add does, too, but a process that can have no more
  // threads ends, and better before it serves anybody. The caller's thread.
  void StartOnce();

  // Nobody wants the result of that ticket any more: a job that waits is dropped, one under way is
  // given up. One that is being handed over still arrives. 0 and unknown ones are ignored. The
  // caller's thread.
  void Withdraw(UInt64 i_u64Ticket);

  // Gives up the job under way, kills its decoder, and joins the thread. The owner's thread,
  // without the renderer's mutexes; again is harmless, and jobs that are added later are never
  // begun.
  void Stop();

 protected:
  void Entry() override;

 private:
  struct T_Waiting {
    UInt64 m_u64Ticket;
    T_PictureJob m_stJob;
  };

  Bool Take(T_Waiting* o_pWaiting, std::stop_token* o_pStop);
  void Deliver(std::unique_ptr<T_PictureResult> i_pResult);

  const T_DeliverPicture m_deliver;
  CMutex m_objLock;
  CCond m_objChanged;
  std::deque<T_Waiting> m_dequeWaiting GUARDED_BY(m_objLock);
  UInt64 m_u64UnderWay GUARDED_BY(m_objLock) = 0;  // the ticket of the job that the thread works on
  std::stop_source m_objStop GUARDED_BY(m_objLock);
  UInt64 m_u64LastTicket GUARDED_BY(m_objLock) = 0;
  Bool m_bStarted = false;  // the thread's that adds
};
