// The in-process message bus. Who listens behind it is known to daemon/modules.cpp alone.
//
// Lock order, from the outside in: bus lock -> the receiver's mutex (the timer's handler lock, or
// those of the renderer). An expiry of a synchronously added timer begins with the timer's handler
// lock and then wants the bus lock, so these two are only ever tried, together and a bounded number
// of times, and given back between the attempts: a request and an expiry that meet cost one another
// an attempt or two. Nobody else holds a mutex that a receiver wants while he sends synchronously.
#pragma once

#include "daemon/common/module_msg.h"

class CTask;

// Delivers i_pMsg to the module that it names as destination.
//   asynchronous: copies the record into the module's queue; 1 = queued.
//   synchronous: runs the module's handler on the calling thread under the bus lock; the result is
//   the handler's. i_u32Arg is handed to that handler unchanged; callers pass 0.
// What the record carries by address is the receiver's after an asynchronous 1, and else the sender's.
// 0: null record, unknown destination, unknown type, full queue, bus lock not to be had in 2.9 s.
// Each but the first leaves an ERROR line. Any thread.
UInt32 SendSyncAndAsyncMsg(const T_ModuleMsg* i_pMsg, UInt32 i_u32Arg);

// Whether the inbox of module i_u32Dst has room for what i_pTask is about to send asynchronously.
// false: i_pTask gets kReadEvent when it has, and asks again; asking more often is harmless. An
// inbox from which nothing was taken for some 2 s is said to have room, so that who sends to it is
// refused aloud; one whose owner was stopped never has. The timer service and unknown modules always
// have room. One task for each module, which lives until that module's thread has ended. Any thread.
Bool HasRoomFor(UInt32 i_u32Dst, CTask* i_pTask);
