#include "platform/soft/fault_list.h"

void CFaultList::Add(UInt32 i_u32Call, UInt32 i_u32Nth, SInt32 i_s32Errno) {
  m_vecFaults.push_back({i_u32Call, i_u32Nth, i_s32Errno});
}

SInt32 CFaultList::Count(UInt32 i_u32Call) {
  SInt32 s32Errno = 0;
  for (T_Fault& fault : m_vecFaults)
    if (fault.m_u32Call == i_u32Call && fault.m_u32Left > 0 && --fault.m_u32Left == 0)
      s32Errno = fault.m_s32Errno;
  std::erase_if(m_vecFaults, [](const T_Fault& i_fault) { return i_fault.m_u32Left == 0; });
  return s32Errno;
}
