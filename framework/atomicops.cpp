#include "framework/atomicops.h"

#include "framework/mutex.h"

namespace {

// Never destroyed: threads that nobody stops still use it while the process ends.
CMutex& AtomicOpsMutex() {
  static CMutex& s_objMutex = *new CMutex;
  return s_objMutex;
}

}  // namespace

UInt32 atomic_add(std::atomic<UInt32>* io_pValue, UInt32 i_u32Delta) {
  CMutexLocker locker(&AtomicOpsMutex());
  return io_pValue->fetch_add(i_u32Delta, std::memory_order_acq_rel) + i_u32Delta;
}

UInt32 atomic_sub(std::atomic<UInt32>* io_pValue, UInt32 i_u32Delta) {
  return atomic_add(io_pValue, 0U - i_u32Delta);
}

UInt32 atomic_or(std::atomic<UInt32>* io_pValue, UInt32 i_u32Bits) {
  CMutexLocker locker(&AtomicOpsMutex());
  return io_pValue->fetch_or(i_u32Bits, std::memory_order_acq_rel);
}

Bool compare_and_store(UInt32 i_u32OldValue, UInt32 i_u32NewValue, std::atomic<UInt32>* io_pValue) {
  CMutexLocker locker(&AtomicOpsMutex());
  return io_pValue->compare_exchange_strong(i_u32OldValue, i_u32NewValue,
                                            std::memory_order_acq_rel);
}
