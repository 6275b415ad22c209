// The orders of platform/soft/faults.h. Guarded by the device's mutex.
#pragma once

#include <vector>

#include "framework/types.h"

class CFaultList {
 public:
  // As SoftFail; orders stand beside one another.
  void Add(UInt32 i_u32Call, UInt32 i_u32Nth, SInt32 i_s32Errno);
  // As SoftFailNothing.
  void Clear() { m_vecFaults.clear(); }

  // Counts one call of i_u32Call; the errno it must fail with, or 0.
  SInt32 Count(UInt32 i_u32Call);

 private:
  struct T_Fault {
    UInt32 m_u32Call;
    UInt32 m_u32Left;  // 0 = fired
    SInt32 m_s32Errno;
  };
  std::vector<T_Fault> m_vecFaults;
};
