#include "framework/ev.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/select.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <utility>

#include "framework/assert.h"

namespace {

constexpr SInt32 kMaxFDs = FD_SETSIZE;
constexpr SInt32 kFreeSlot = -1;
constexpr SInt32 kSelectTimeoutInSecs = 15;
constexpr size_t kMaxDrainedBytes = 4096;

struct T_Watched {
  fd_set m_stReadSet;
  fd_set m_stWriteSet;
  SInt32 m_s32MaxFDPos;           // the bound of the next select()
  UInt32 m_aCookies[kMaxFDs];     // by descriptor
  SInt32 m_aFDsToClose[kMaxFDs];  // removed ones, up to the first free slot
};

// What the last select() found and how far it is delivered.
struct T_Round {
  fd_set m_stReadSet = {};
  fd_set m_stWriteSet = {};
  // The bound of its select(): removals may lower the one of the next while descriptors between
  // them still wait for delivery.
  SInt32 m_s32MaxFDPos = 0;
  // select()'s result; what leaves the sets undelivered is taken off again, so that it always is
  // the number processed plus the number of bits still set.
  SInt32 m_s32NumFDs = 0;
  SInt32 m_s32Errno = 0;
  SInt32 m_s32NumFDsProcessed = 0;
  SInt32 m_s32CurrentFDPos = 0;
  Bool m_bInReadSet = true;
};

T_Watched g_stWatched GUARDED_BY(ReadSetMutex());
T_Round g_stRound GUARDED_BY(ReadSetMutex());
SInt32 g_aPipes[2] = {-1, -1};  // never changes once it is made
// A wake-up byte was asked for and is not read yet: what is asked for meanwhile rides on it.
Bool g_bWakeUnread GUARDED_BY(ReadSetMutex()) = false;

Bool InRange(SInt32 i_s32FileDesc) { return i_s32FileDesc >= 0 && i_s32FileDesc < kMaxFDs; }

// Whether the caller is the one who has to write the byte, once it has released the lock.
Bool AskForWakeUp() REQUIRES(ReadSetMutex()) { return !std::exchange(g_bWakeUnread, true); }

// Returns 1, unless the byte could not be written. At most one is in the pipe.
SInt32 WakeSelect() {
  ssize_t sWritten = 0;
  do sWritten = write(g_aPipes[1], "p", 1);
  while (sWritten < 0 && errno == EINTR);
  return static_cast<SInt32>(sWritten);
}

void DropReturned(SInt32 i_s32FileDesc, fd_set* io_pReturned) REQUIRES(ReadSetMutex()) {
  if (!FD_ISSET(i_s32FileDesc, io_pReturned)) return;
  FD_CLR(i_s32FileDesc, io_pReturned);
  --g_stRound.m_s32NumFDs;
}

// What the last round found ready and did not deliver yet still is: an owner that arms a descriptor
// again after its read event gets the write event of the same round too, and asks again after it.
void Watch(SInt32 i_s32FileDesc, Bool i_bWatched, fd_set* io_pWatched) {
  if (i_bWatched)
    FD_SET(i_s32FileDesc, io_pWatched);
  else
    FD_CLR(i_s32FileDesc, io_pWatched);
}

SInt32 HighestWatchedBelow(SInt32 i_s32FileDesc) REQUIRES(ReadSetMutex()) {
  SInt32 s32Pos = i_s32FileDesc - 1;
  while (s32Pos > 0 && !FD_ISSET(s32Pos, &g_stWatched.m_stReadSet) &&
         !FD_ISSET(s32Pos, &g_stWatched.m_stWriteSet))
    --s32Pos;
  return s32Pos;
}

void CloseRemoved() REQUIRES(ReadSetMutex()) {
  for (SInt32& refSlot : g_stWatched.m_aFDsToClose) {
    if (refSlot == kFreeSlot) return;
    close(std::exchange(refSlot, kFreeSlot));
  }
}

void DrainPipe() REQUIRES(ReadSetMutex()) {
  char aBytes[kMaxDrainedBytes];
  [[maybe_unused]] const ssize_t sDrained = read(g_aPipes[0], aBytes, sizeof(aBytes));
  g_bWakeUnread = false;
  DropReturned(g_aPipes[0], &g_stRound.m_stReadSet);
}

// Finds the next ready descriptor at or after the current position and takes its bit out.
Bool TakeNext(fd_set* io_pReturned) REQUIRES(ReadSetMutex()) {
  SInt32& refPos = g_stRound.m_s32CurrentFDPos;
  while (refPos <= g_stRound.m_s32MaxFDPos && !FD_ISSET(refPos, io_pReturned)) ++refPos;
  if (refPos > g_stRound.m_s32MaxFDPos) return false;
  FD_CLR(refPos, io_pReturned);
  return true;
}

// What left the watched sets during the select() leaves the result too. Returns the bits kept.
SInt32 KeepWatched(const fd_set& i_refWatched, SInt32 i_s32MaxFDPos, fd_set* io_pReady) {
  SInt32 s32Kept = 0;
  for (SInt32 s32Pos = 0; s32Pos <= i_s32MaxFDPos; ++s32Pos) {
    if (!FD_ISSET(s32Pos, io_pReady)) continue;
    if (FD_ISSET(s32Pos, &i_refWatched))
      ++s32Kept;
    else
      FD_CLR(s32Pos, io_pReady);
  }
  return s32Kept;
}

// Until select() has returned, the round is its own: other threads change what is watched meanwhile.
void RunSelect() {
  T_Round stRound;
  {
    CMutexLocker objLocker(ReadSetMutex());
    stRound.m_stReadSet = g_stWatched.m_stReadSet;
    stRound.m_stWriteSet = g_stWatched.m_stWriteSet;
    stRound.m_s32MaxFDPos = g_stWatched.m_s32MaxFDPos;
  }
  sched_yield();
  timeval stTimeout = {kSelectTimeoutInSecs, 0};
  stRound.m_s32NumFDs = select(stRound.m_s32MaxFDPos + 1, &stRound.m_stReadSet,
                               &stRound.m_stWriteSet, nullptr, &stTimeout);
  stRound.m_s32Errno = errno;

  CMutexLocker objLocker(ReadSetMutex());
  if (stRound.m_s32NumFDs > 0) {
    stRound.m_s32NumFDs =
        KeepWatched(g_stWatched.m_stReadSet, stRound.m_s32MaxFDPos, &stRound.m_stReadSet) +
        KeepWatched(g_stWatched.m_stWriteSet, stRound.m_s32MaxFDPos, &stRound.m_stWriteSet);
  } else {
    FD_ZERO(&stRound.m_stReadSet);  // a failed one leaves them as they were
    FD_ZERO(&stRound.m_stWriteSet);
  }
  g_stRound = stRound;
}

}  // namespace

// Never destroyed: the event thread outlives main().
CMutex* ReadSetMutex() {
  static CMutex* const s_pMutex = new CMutex;
  return s_pMutex;
}

void select_startevents() {
  CMutexLocker objLocker(ReadSetMutex());
  g_stWatched = {};
  g_stRound = {};
  g_bWakeUnread = false;
  std::ranges::fill(g_stWatched.m_aFDsToClose, kFreeSlot);
  const SInt32 s32Err = pipe2(g_aPipes, O_CLOEXEC | O_NONBLOCK);
  OSD_ASSERT(s32Err == 0 && InRange(g_aPipes[0]), "s32Err == 0", "ev", 63);
  g_stWatched.m_s32MaxFDPos = g_aPipes[0];
  FD_SET(g_aPipes[0], &g_stWatched.m_stReadSet);
}

SInt32 select_removeevent(SInt32 i_s32FileDesc) {
  Bool bWake = false;
  {
    CMutexLocker objLocker(ReadSetMutex());
    FD_CLR(i_s32FileDesc, &g_stWatched.m_stReadSet);
    FD_CLR(i_s32FileDesc, &g_stWatched.m_stWriteSet);
    DropReturned(i_s32FileDesc, &g_stRound.m_stReadSet);
    DropReturned(i_s32FileDesc, &g_stRound.m_stWriteSet);
    g_stWatched.m_aCookies[i_s32FileDesc] = 0;
    if (i_s32FileDesc == g_stWatched.m_s32MaxFDPos && i_s32FileDesc > 0)
      g_stWatched.m_s32MaxFDPos = HighestWatchedBelow(i_s32FileDesc);
    SInt32* const pSlot = std::ranges::find(g_stWatched.m_aFDsToClose, kFreeSlot);
    OSD_ASSERT(pSlot != std::end(g_stWatched.m_aFDsToClose), "g_pFDsToCloseArray[u32Index] == -1",
               "ev", 111);
    *pSlot = i_s32FileDesc;
    bWake = AskForWakeUp();
  }
  const SInt32 s32Err = bWake ? WakeSelect() : 1;
  OSD_ASSERT(s32Err == 1, "s32Err == 1", "ev", 120);
  return 0;
}

SInt32 select_modwatch(eventreq* i_pReq, SInt32 i_s32Which) {
  Bool bWake = false;
  {
    CMutexLocker objLocker(ReadSetMutex());
    OSD_ASSERT(InRange(i_pReq->er_handle), "i_pReq->er_handle < (SInt32)(sizeof(fd_set) * 8)", "ev",
               179);
    OSD_ASSERT(i_pReq->er_data != 0, "i_pReq->er_data != NULL", "ev", 180);
    const SInt32 s32FileDesc = i_pReq->er_handle;
    Watch(s32FileDesc, (i_s32Which & EV_RE) != 0, &g_stWatched.m_stReadSet);
    Watch(s32FileDesc, (i_s32Which & EV_WR) != 0, &g_stWatched.m_stWriteSet);
    g_stWatched.m_s32MaxFDPos = std::max(g_stWatched.m_s32MaxFDPos, s32FileDesc);
    g_stWatched.m_aCookies[s32FileDesc] = i_pReq->er_data;
    bWake = AskForWakeUp();
  }
  const SInt32 s32Err = bWake ? WakeSelect() : 1;
  OSD_ASSERT(s32Err == 1, "s32Err == 1", "ev", 186);
  return 0;
}

SInt32 constructeventreq(eventreq* o_pReq, SInt32 i_s32FileDesc, SInt32 i_s32Event) {
  OSD_ASSERT(InRange(i_s32FileDesc), "i_s32FileDesc < (SInt32)(sizeof(fd_set) * 8)", "ev", 193);
  o_pReq->er_handle = i_s32FileDesc;
  o_pReq->er_eventbits = i_s32Event;
  o_pReq->er_data = g_stWatched.m_aCookies[i_s32FileDesc];
  ++g_stRound.m_s32CurrentFDPos;
  ++g_stRound.m_s32NumFDsProcessed;
  FD_CLR(i_s32FileDesc, &g_stWatched.m_stReadSet);
  FD_CLR(i_s32FileDesc, &g_stWatched.m_stWriteSet);
  return 0;
}

SInt32 select_waitevent(eventreq* o_pReq, void* /*i_pArg*/) {
  {
    // Both searches under one lock: a removal between them would take away the bit that the count
    // still promises.
    CMutexLocker objLocker(ReadSetMutex());
    if (g_stRound.m_s32NumFDsProcessed < g_stRound.m_s32NumFDs) {
      if (g_stRound.m_bInReadSet) {
        if (TakeNext(&g_stRound.m_stReadSet))
          return constructeventreq(o_pReq, g_stRound.m_s32CurrentFDPos, EV_RE);
        g_stRound.m_bInReadSet = false;
        g_stRound.m_s32CurrentFDPos = 0;
      }
      if (TakeNext(&g_stRound.m_stWriteSet))
        return constructeventreq(o_pReq, g_stRound.m_s32CurrentFDPos, EV_WR);
      OSD_ASSERT(g_stRound.m_s32NumFDs > 0, "g_s32NumFDsBackFromSelect > 0", "ev", 280);
    }
    g_stRound = {};
  }
  while (!selecthasdata()) RunSelect();

  CMutexLocker objLocker(ReadSetMutex());
  if (g_stRound.m_s32NumFDs >= 0) return EINTR;
  errno = g_stRound.m_s32Errno;
  return g_stRound.m_s32NumFDs;
}

Bool selecthasdata() {
  CMutexLocker objLocker(ReadSetMutex());
  if (g_stRound.m_s32NumFDs < 0)
    return g_stRound.m_s32Errno != EINTR && g_stRound.m_s32Errno != EBADF;
  if (g_stRound.m_s32NumFDs == 0) return false;
  if (FD_ISSET(g_aPipes[0], &g_stRound.m_stReadSet)) {
    DrainPipe();
    CloseRemoved();
  }
  OSD_ASSERT(!FD_ISSET(g_aPipes[0], &g_stRound.m_stReadSet),
             "!FD_ISSET(g_aPipes[0], &g_stReturnedReadSet)", "ev", 435);
  OSD_ASSERT(!FD_ISSET(g_aPipes[0], &g_stRound.m_stWriteSet),
             "!FD_ISSET(g_aPipes[0], &g_stReturnedWriteSet)", "ev", 436);
  return g_stRound.m_s32NumFDs != 0;
}
