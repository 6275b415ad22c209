// A media SDK with one buffer, which refuses what the renderer must never pass.
#include <cstdlib>

#include "framework/types.h"

static constexpr UInt32 kPhysical = 0x81234000;
static void* s_pBuffer = nullptr;

extern "C" SInt32 StandInAlloc(UInt32* o_pPhysical, void** o_pVirtual, const char* i_pName,
                               const char* i_pZone, UInt32 i_u32Size) {
  if (i_pName != nullptr || i_pZone != nullptr || s_pBuffer != nullptr) return -1;
  s_pBuffer = std::malloc(i_u32Size);
  *o_pPhysical = kPhysical;
  *o_pVirtual = s_pBuffer;
  return 0;
}

extern "C" SInt32 StandInFree(UInt32 i_u32Physical, void* i_pVirtual) {
  if (i_u32Physical != kPhysical || i_pVirtual != s_pBuffer) return -1;
  std::free(s_pBuffer);
  s_pBuffer = nullptr;
  return 0;
}
