// The three process-wide objects, constructed before main in this order and destroyed in reverse.
#pragma once

#include "common/osd/osd_hifb.h"
#include "daemon/common/timer.h"
#include "framework/mutex.h"

extern COsdHifb g_objOsdHifb;  // module 4 of the bus
extern CTimer g_objTimer;      // module 3 of the bus
extern CMutex g_objBusMutex;   // serialises synchronous bus messages
