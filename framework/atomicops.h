// Read-modify-write operations on 32-bit values: each excludes every other one on its value, takes
// hold at once for all threads and needs no lock. Any thread; each acquires and releases.
#pragma once

#include <atomic>

#include "framework/types.h"

// Returns the new value; wraps around.
inline UInt32 atomic_add(std::atomic<UInt32>* io_pValue, UInt32 i_u32Delta) {
  return io_pValue->fetch_add(i_u32Delta, std::memory_order_acq_rel) + i_u32Delta;
}

// Returns the new value; wraps around.
inline UInt32 atomic_sub(std::atomic<UInt32>* io_pValue, UInt32 i_u32Delta) {
  return atomic_add(io_pValue, 0U - i_u32Delta);
}

// Returns the value before the change.
inline UInt32 atomic_or(std::atomic<UInt32>* io_pValue, UInt32 i_u32Bits) {
  return io_pValue->fetch_or(i_u32Bits, std::memory_order_acq_rel);
}

// Stores i_u32NewValue if *io_pValue equals i_u32OldValue; true exactly when it stored. A caller
// that publishes something with it must not touch what it gave away afterwards.
inline Bool compare_and_store(UInt32 i_u32OldValue, UInt32 i_u32NewValue,
                              std::atomic<UInt32>* io_pValue) {
  return io_pValue->compare_exchange_strong(i_u32OldValue, i_u32NewValue,
                                            std::memory_order_acq_rel);
}
