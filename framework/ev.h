// The readiness layer: which descriptors the process watches, and the one select() that waits for
// them. A descriptor that became ready is delivered once and disarmed; its owner arms it again.
// Only descriptors below 1024 can be watched. The state is process-wide and never torn down. Any
// thread may arm and remove; only the event thread waits.
#pragma once

#include "framework/mutex.h"
#include "framework/thread_annotations.h"
#include "framework/types.h"

enum EventBits : SInt32 { EV_RE = 1, EV_WR = 2 };

struct eventreq {
  SInt32 er_type;    // 1: a descriptor
  SInt32 er_handle;  // the descriptor
  UInt32 er_data;    // the cookie that comes back with every event; not 0 when arming
  SInt32 er_rcnt;
  SInt32 er_wcnt;
  SInt32 er_ecnt;
  SInt32 er_eventbits;  // requested or delivered EventBits
};
static_assert(sizeof(eventreq) == 28);

// Guards what is watched and what is being delivered.
CMutex* ReadSetMutex();

// Once, before the event thread starts and before anything is armed.
void select_startevents();

// Arms i_pReq's descriptor for exactly the bits in i_s32Which, which reaches a select() in
// progress; what the last one found is delivered, and disarms, all the same. Returns 0.
SInt32 select_modwatch(eventreq* i_pReq, SInt32 i_s32Which);

// Ends the watch of a descriptor and gives it away: the event thread closes it once no select()
// can see it any more, so the number is not reused under one. Returns 0.
SInt32 select_removeevent(SInt32 i_s32FileDesc);

// Event thread only; blocks. 0: o_pReq is an event; EINTR: call again; negative: select() failed
// for good and errno says why. i_pArg is not used.
SInt32 select_waitevent(eventreq* o_pReq, void* i_pArg) EXCLUDES(ReadSetMutex());

// Event thread only. Makes o_pReq the event EV_RE or EV_WR of the descriptor, counts it as delivered
// and disarms the descriptor. Returns 0; a descriptor of 1024 or above is fatal.
SInt32 constructeventreq(eventreq* o_pReq, SInt32 i_s32FileDesc, SInt32 i_s32Event)
    REQUIRES(ReadSetMutex());

// Event thread only. Whether the last select() left something to deliver: an event, or an error
// other than EINTR and EBADF. Drains the wake-up pipe and closes what select_removeevent was given.
Bool selecthasdata();
