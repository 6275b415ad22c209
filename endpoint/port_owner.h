// Who has a UDP port of this machine, as far as the system tells.
#pragma once

#include <string>

#include "framework/types.h"

// "process 1234 (osdsrv)" for the socket on i_u32Addr:i_u16Port (host order) or on that port of
// every address; "a process of user 1000" when its descriptors may not be looked at; empty when
// there is none. Goes once through the descriptors of all processes and waits for nothing. Any
// thread.
std::string PortOwner(UInt32 i_u32Addr, UInt16 i_u16Port);
