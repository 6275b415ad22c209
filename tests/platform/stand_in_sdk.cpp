// A media SDK with one buffer of a page, which refuses what the renderer must never pass.
#include "framework/types.h"

static UInt8 s_aPage[4096];

extern "C" SInt32 StandInAlloc(UInt32* o_pPhysical, void** o_pVirtual, const char* i_pName,
                               const char* i_pZone, UInt32 i_u32Size) {
  if (i_pName != nullptr || i_pZone != nullptr || i_u32Size != sizeof(s_aPage)) return -1;
  *o_pPhysical = 0x81234000;
  *o_pVirtual = s_aPage;
  return 0;
}

extern "C" SInt32 StandInFree(UInt32 i_u32Physical, void* i_pVirtual) {
  return i_u32Physical == 0x81234000 && i_pVirtual == s_aPage ? 0 : -1;
}
