// Read-modify-write operations on 32-bit values that exclude one another through one process-wide
// mutex. The values are atomics as well, because they are also read without it. Any thread; each
// operation acquires and releases.
#pragma once

#include <atomic>

#include "framework/types.h"

// Returns the new value; wraps around.
UInt32 atomic_add(std::atomic<UInt32>* io_pValue, UInt32 i_u32Delta);

// Returns the new value; wraps around.
UInt32 atomic_sub(std::atomic<UInt32>* io_pValue, UInt32 i_u32Delta);

// Returns the value before the change.
UInt32 atomic_or(std::atomic<UInt32>* io_pValue, UInt32 i_u32Bits);

// Stores i_u32NewValue if *io_pValue equals i_u32OldValue; true exactly when it stored. A caller
// that publishes something with it must not touch what it gave away afterwards.
Bool compare_and_store(UInt32 i_u32OldValue, UInt32 i_u32NewValue, std::atomic<UInt32>* io_pValue);
