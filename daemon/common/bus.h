// The in-process message bus: one function. Who listens behind it is known to the top of the
// house alone (daemon/modules.cpp).
//
// Lock order, from the outside in:
//   renderer mutex -> bus lock -> timer's handler lock
// is the way of a synchronous request that the renderer sends to the timer service while it
// handles a message. An expiry of a synchronously added timer goes the other way round (timer's
// handler lock -> bus lock -> renderer mutex). The two cannot block each other for ever because
// the bus lock is only ever tried, a bounded number of times; the loser's message fails and is
// reported, and a periodic timer simply fires again.
#pragma once

#include "daemon/common/module_msg.h"

// Delivers i_pMsg to the module that it names as destination.
//   asynchronous: copies the record into the module's queue; 1 = queued.
//   synchronous: runs the module's handler on the calling thread under the bus lock; the result is
//   the handler's. i_u32Arg is handed to that handler unchanged; callers pass 0.
// 0: null record, unknown destination, unknown type, full queue, bus lock not to be had in 2.9 s.
// Each but the first leaves an ERROR line. Any thread.
UInt32 SendSyncAndAsyncMsg(const T_ModuleMsg* i_pMsg, UInt32 i_u32Arg);
