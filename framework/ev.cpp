#include "framework/ev.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/select.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "framework/assert.h"
#include "framework/mutex.h"

namespace {

constexpr SInt32 kMaxFDs = FD_SETSIZE;
constexpr SInt32 kFreeSlot = -1;
constexpr SInt32 kSelectTimeoutInSecs = 15;
constexpr size_t kMaxDrainedBytes = 4096;

// All of it is guarded by the read-set mutex, except the pipe, which never changes.
fd_set g_stReadSet;
fd_set g_stWriteSet;
fd_set g_stReturnedReadSet;
fd_set g_stReturnedWriteSet;
UInt32* g_pCookieArray = nullptr;
SInt32* g_pFDsToCloseArray = nullptr;
SInt32 g_aPipes[2] = {-1, -1};
SInt32 g_s32MaxFDPos = 0;
// The bound of the select() whose sets are being walked: removals may lower the one above while
// descriptors between them still wait for delivery.
SInt32 g_s32RoundMaxFDPos = 0;
// The last select()'s result; what leaves the returned sets undelivered is taken off again, so
// that it always is the number processed plus the number of bits still set.
SInt32 g_s32NumFDsBackFromSelect = 0;
SInt32 g_s32SelectErrno = 0;
SInt32 g_s32CurrentFDPos = 0;
SInt32 g_s32NumFDsProcessed = 0;
Bool g_bInReadSet = true;

// Never destroyed: the event thread outlives main().
CMutex* ReadSetMutex() {
  static CMutex* const s_pMutex = new CMutex;
  return s_pMutex;
}

Bool InRange(SInt32 i_s32FileDesc) { return i_s32FileDesc >= 0 && i_s32FileDesc < kMaxFDs; }

// A full pipe is wake-up enough, so the writer need not wait for it: the event thread itself may be
// the writer.
SInt32 WakeSelect() {
  ssize_t sWritten = 0;
  do sWritten = write(g_aPipes[1], "p", 1);
  while (sWritten < 0 && errno == EINTR);
  return sWritten < 0 && errno == EAGAIN ? 1 : static_cast<SInt32>(sWritten);
}

void DropReturned(SInt32 i_s32FileDesc, fd_set* io_pReturned) {
  if (!FD_ISSET(i_s32FileDesc, io_pReturned)) return;
  FD_CLR(i_s32FileDesc, io_pReturned);
  --g_s32NumFDsBackFromSelect;
}

// What the last round found ready and did not deliver yet still is: an owner that arms a descriptor
// again after its read event gets the write event of the same round too, and asks again after it.
void Watch(SInt32 i_s32FileDesc, Bool i_bWatched, fd_set* io_pWatched) {
  if (i_bWatched)
    FD_SET(i_s32FileDesc, io_pWatched);
  else
    FD_CLR(i_s32FileDesc, io_pWatched);
}

SInt32 HighestWatchedBelow(SInt32 i_s32FileDesc) {
  SInt32 s32Pos = i_s32FileDesc - 1;
  while (s32Pos > 0 && !FD_ISSET(s32Pos, &g_stReadSet) && !FD_ISSET(s32Pos, &g_stWriteSet))
    --s32Pos;
  return s32Pos;
}

void CloseRemoved() {
  for (SInt32 s32Slot = 0; s32Slot < kMaxFDs; ++s32Slot) {
    if (g_pFDsToCloseArray[s32Slot] == kFreeSlot) return;
    close(g_pFDsToCloseArray[s32Slot]);
    g_pFDsToCloseArray[s32Slot] = kFreeSlot;
  }
}

void DrainPipe() {
  char aBytes[kMaxDrainedBytes];
  [[maybe_unused]] const ssize_t sDrained = read(g_aPipes[0], aBytes, sizeof(aBytes));
  DropReturned(g_aPipes[0], &g_stReturnedReadSet);
}

// Finds the next ready descriptor at or after the current position and takes its bit out.
Bool TakeNext(fd_set* io_pReturned) {
  while (g_s32CurrentFDPos <= g_s32RoundMaxFDPos && !FD_ISSET(g_s32CurrentFDPos, io_pReturned))
    ++g_s32CurrentFDPos;
  if (g_s32CurrentFDPos > g_s32RoundMaxFDPos) return false;
  FD_CLR(g_s32CurrentFDPos, io_pReturned);
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

// The sets that select() works on are its own: other threads change the shared ones meanwhile.
void RunSelect() {
  fd_set stReadSet;
  fd_set stWriteSet;
  SInt32 s32MaxFDPos = 0;
  {
    CMutexLocker objLocker(ReadSetMutex());
    stReadSet = g_stReadSet;
    stWriteSet = g_stWriteSet;
    s32MaxFDPos = g_s32MaxFDPos;
  }
  sched_yield();
  timeval stTimeout = {kSelectTimeoutInSecs, 0};
  const SInt32 s32Result = select(s32MaxFDPos + 1, &stReadSet, &stWriteSet, nullptr, &stTimeout);
  const SInt32 s32Errno = errno;

  CMutexLocker objLocker(ReadSetMutex());
  g_s32SelectErrno = s32Errno;
  g_s32NumFDsBackFromSelect = s32Result;
  if (s32Result <= 0) return;
  g_s32NumFDsBackFromSelect = KeepWatched(g_stReadSet, s32MaxFDPos, &stReadSet) +
                              KeepWatched(g_stWriteSet, s32MaxFDPos, &stWriteSet);
  g_stReturnedReadSet = stReadSet;
  g_stReturnedWriteSet = stWriteSet;
  g_s32RoundMaxFDPos = s32MaxFDPos;
}

}  // namespace

void select_startevents() {
  FD_ZERO(&g_stReadSet);
  FD_ZERO(&g_stWriteSet);
  FD_ZERO(&g_stReturnedReadSet);
  FD_ZERO(&g_stReturnedWriteSet);
  g_pCookieArray = new UInt32[kMaxFDs]();
  g_pFDsToCloseArray = new SInt32[kMaxFDs];
  std::fill_n(g_pFDsToCloseArray, kMaxFDs, kFreeSlot);
  const SInt32 s32Err = pipe2(g_aPipes, O_CLOEXEC | O_NONBLOCK);
  OSD_ASSERT(s32Err == 0 && InRange(g_aPipes[0]), "s32Err == 0", "ev", 63);
  g_s32MaxFDPos = g_aPipes[0];
  FD_SET(g_aPipes[0], &g_stReadSet);
}

SInt32 select_removeevent(SInt32 i_s32FileDesc) {
  {
    CMutexLocker objLocker(ReadSetMutex());
    for (fd_set* pWatched : {&g_stReadSet, &g_stWriteSet}) FD_CLR(i_s32FileDesc, pWatched);
    DropReturned(i_s32FileDesc, &g_stReturnedReadSet);
    DropReturned(i_s32FileDesc, &g_stReturnedWriteSet);
    g_pCookieArray[i_s32FileDesc] = 0;
    if (i_s32FileDesc == g_s32MaxFDPos && i_s32FileDesc > 0)
      g_s32MaxFDPos = HighestWatchedBelow(i_s32FileDesc);
    UInt32 u32Index = 0;
    while (u32Index + 1 < kMaxFDs && g_pFDsToCloseArray[u32Index] != kFreeSlot) ++u32Index;
    OSD_ASSERT(g_pFDsToCloseArray[u32Index] == kFreeSlot, "g_pFDsToCloseArray[u32Index] == -1",
               "ev", 111);
    g_pFDsToCloseArray[u32Index] = i_s32FileDesc;
  }
  const SInt32 s32Err = WakeSelect();
  OSD_ASSERT(s32Err == 1, "s32Err == 1", "ev", 120);
  return 0;
}

SInt32 select_modwatch(eventreq* i_pReq, SInt32 i_s32Which) {
  {
    CMutexLocker objLocker(ReadSetMutex());
    OSD_ASSERT(InRange(i_pReq->er_handle), "i_pReq->er_handle < (SInt32)(sizeof(fd_set) * 8)", "ev",
               179);
    OSD_ASSERT(i_pReq->er_data != 0, "i_pReq->er_data != NULL", "ev", 180);
    const SInt32 s32FileDesc = i_pReq->er_handle;
    Watch(s32FileDesc, (i_s32Which & EV_RE) != 0, &g_stReadSet);
    Watch(s32FileDesc, (i_s32Which & EV_WR) != 0, &g_stWriteSet);
    g_s32MaxFDPos = std::max(g_s32MaxFDPos, s32FileDesc);
    g_pCookieArray[s32FileDesc] = i_pReq->er_data;
  }
  const SInt32 s32Err = WakeSelect();
  OSD_ASSERT(s32Err == 1, "s32Err == 1", "ev", 186);
  return 0;
}

SInt32 constructeventreq(eventreq* o_pReq, SInt32 i_s32FileDesc, SInt32 i_s32Event) {
  OSD_ASSERT(InRange(i_s32FileDesc), "i_s32FileDesc < (SInt32)(sizeof(fd_set) * 8)", "ev", 193);
  o_pReq->er_handle = i_s32FileDesc;
  o_pReq->er_eventbits = i_s32Event;
  o_pReq->er_data = g_pCookieArray[i_s32FileDesc];
  ++g_s32CurrentFDPos;
  ++g_s32NumFDsProcessed;
  FD_CLR(i_s32FileDesc, &g_stReadSet);
  FD_CLR(i_s32FileDesc, &g_stWriteSet);
  return 0;
}

SInt32 select_waitevent(eventreq* o_pReq, void* /*i_pArg*/) {
  {
    // Both searches under one lock: a removal between them would take away the bit that the count
    // still promises.
    CMutexLocker objLocker(ReadSetMutex());
    if (g_s32NumFDsProcessed < g_s32NumFDsBackFromSelect) {
      if (g_bInReadSet) {
        if (TakeNext(&g_stReturnedReadSet))
          return constructeventreq(o_pReq, g_s32CurrentFDPos, EV_RE);
        g_bInReadSet = false;
        g_s32CurrentFDPos = 0;
      }
      if (TakeNext(&g_stReturnedWriteSet))
        return constructeventreq(o_pReq, g_s32CurrentFDPos, EV_WR);
      g_s32NumFDsProcessed = g_s32NumFDsBackFromSelect;
      OSD_ASSERT(g_s32NumFDsBackFromSelect > 0, "g_s32NumFDsBackFromSelect > 0", "ev", 280);
    }
    g_s32NumFDsProcessed = 0;
    g_s32NumFDsBackFromSelect = 0;
    g_s32CurrentFDPos = 0;
    g_bInReadSet = true;
  }
  while (!selecthasdata()) RunSelect();

  CMutexLocker objLocker(ReadSetMutex());
  if (g_s32NumFDsBackFromSelect >= 0) return EINTR;
  errno = g_s32SelectErrno;
  return g_s32NumFDsBackFromSelect;
}

Bool selecthasdata() {
  CMutexLocker objLocker(ReadSetMutex());
  if (g_s32NumFDsBackFromSelect < 0) return g_s32SelectErrno != EINTR && g_s32SelectErrno != EBADF;
  if (g_s32NumFDsBackFromSelect == 0) return false;
  if (FD_ISSET(g_aPipes[0], &g_stReturnedReadSet)) {
    DrainPipe();
    CloseRemoved();
  }
  OSD_ASSERT(!FD_ISSET(g_aPipes[0], &g_stReturnedReadSet),
             "!FD_ISSET(g_aPipes[0], &g_stReturnedReadSet)", "ev", 435);
  OSD_ASSERT(!FD_ISSET(g_aPipes[0], &g_stReturnedWriteSet),
             "!FD_ISSET(g_aPipes[0], &g_stReturnedWriteSet)", "ev", 436);
  return g_s32NumFDsBackFromSelect != 0;
}

SInt32 select_highestwatched() {
  CMutexLocker objLocker(ReadSetMutex());
  return g_s32MaxFDPos;
}
