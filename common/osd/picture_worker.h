// The thread "osdpicture", which reads and decodes pictures so that the renderer never waits for
// one. It sends each result over the bus, as the message kOsdPicture
// from the renderer to itself, whose block is a T_PictureResult that the receiver deletes.
//
// Its lock is the innermost one: nothing is called or logged under it.
#pragma once

#include <deque>
#include <stop_token>
#include <string>
#include <vector>

#include "common/osd/canvas.h"
#include "common/osd/pictures/loader.h"
#include "framework/cond.h"
#include "framework/mutex.h"
#include "framework/thread.h"

// What is to be read, and for which canvases.
struct T_PictureJob {
  struct T_Target {
    SInt32 m_s32VoDev;
    T_Extent m_stCanvas;    // px
    T_WantedSize m_stSize;  // of a whole screen: not used
  };
  std::string m_strPath;
  Bool m_bWholeScreen = false;  // as LoadScreen makes it
  std::string m_strOverlay;     // of a whole screen; may be empty
  std::vector<T_Target> m_vecTargets;
};

struct T_PictureResult {
  UInt64 m_u64Ticket;
  T_PictureJob m_stJob;
  T_Loaded m_stLoaded;  // a picture for each target; an error was logged already

  // What was made for the layer of that output as it is now; null when nothing was.
  std::shared_ptr<const CPicture> For(SInt32 i_s32VoDev, const T_Canvas& i_canvas) const;
};

class CPictureWorker : public CThread {
 public:
  static constexpr size_t kMaxWaiting = 16;

  ~CPictureWorker() override { Stop(); }

  // The ticket that the result will bear; 0 when kMaxWaiting jobs wait already. One thread.
  UInt64 Add(T_PictureJob i_stJob);
  // Whether Add would take one. That thread.
  Bool HasRoom();

  // Starts the thread unless it runs, which the first Add does, too. A process that can have no more
  // threads ends: better before it serves anybody. That thread.
  void StartOnce();

  // Nobody wants the result any more. One that is under way to the renderer still arrives.
  void Withdraw(UInt64 i_u64Ticket);

  // Gives up what is under way, kills a decoder, and joins the thread. The owner's thread; again is
  // harmless, and jobs that are added later are never begun.
  void Stop();

 protected:
  void Entry() override;

 private:
  struct T_Waiting {
    UInt64 m_u64Ticket;
    T_PictureJob m_stJob;
  };

  Bool Take(T_Waiting* o_pWaiting, std::stop_token* o_pStop);
  void Send(T_PictureResult* i_pResult);

  CMutex m_objLock;
  CCond m_objChanged;
  // Guarded by m_objLock.
  std::deque<T_Waiting> m_dequeWaiting;
  UInt64 m_u64UnderWay = 0;  // its ticket
  std::stop_source m_objStop;
  UInt64 m_u64LastTicket = 0;
  Bool m_bStarted = false;
};
