// The seam's functions on the chip: framebuffer calls go to the kernel as they are, memory comes
// from the media SDK. The SDK is looked for when memory is first wanted, so that neither the build
// nor the start of the process needs it.
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "framework/log.h"
#include "framework/mutex.h"
#include "framework/thread_annotations.h"
#include "platform/platform.h"

namespace {

// Addresses out, the buffer's and the zone's name (none), bytes; 0 = success.
using T_AllocFunction = SInt32 (*)(UInt32* o_pPhysical, void** o_pVirtual, const char* i_pName,
                                   const char* i_pZone, UInt32 i_u32Size);
using T_FreeFunction = SInt32 (*)(UInt32 i_u32Physical, void* i_pVirtual);

struct T_MediaSdk {
  T_AllocFunction m_pAlloc = nullptr;
  T_FreeFunction m_pFree = nullptr;

  Bool Complete() const { return m_pAlloc != nullptr && m_pFree != nullptr; }
};

const char* LoaderError() {
  const char* pError = dlerror();
  return pError != nullptr ? pError : "no reason given";
}

template <class T>
T Symbol(void* i_pLibrary, const char* i_pName) {
  void* pSymbol = dlsym(i_pLibrary, i_pName);
  if (pSymbol == nullptr)
    LOG_ERROR("media SDK function %s not found in %s: %s", i_pName, OSD_MEDIA_LIBRARY,
              LoaderError());
  return reinterpret_cast<T>(pSymbol);
}

T_MediaSdk Load() {
  void* pLibrary = dlopen(OSD_MEDIA_LIBRARY, RTLD_NOW | RTLD_LOCAL);
  if (pLibrary == nullptr) {
    LOG_ERROR("media SDK library %s not loaded: %s", OSD_MEDIA_LIBRARY, LoaderError());
    return {};
  }
  const T_MediaSdk sdk{Symbol<T_AllocFunction>(pLibrary, OSD_MEDIA_ALLOC),
                       Symbol<T_FreeFunction>(pLibrary, OSD_MEDIA_FREE)};
  if (!sdk.Complete()) dlclose(pLibrary);
  return sdk;
}

struct T_KeptSdk {
  CMutex m_objMutex;
  T_MediaSdk m_sdk GUARDED_BY(m_objMutex);
};

// Found once and kept; until then every call looks again.
T_MediaSdk Sdk() {
  static T_KeptSdk& s_kept = *new T_KeptSdk;
  const CMutexLocker locker(&s_kept.m_objMutex);
  if (!s_kept.m_sdk.Complete()) s_kept.m_sdk = Load();
  return s_kept.m_sdk;
}

}  // namespace

std::string SystemPath(const char* i_pPath) { return i_pPath; }

std::string NamedPath(const std::string& i_strPath) { return i_strPath; }

SInt32 DeviceOpen(const char* i_pPath) { return open(i_pPath, O_RDWR | O_CLOEXEC); }

SInt32 DeviceIoctl(SInt32 i_s32Fd, UInt32 i_u32Request, void* io_pRecord) {
  return ioctl(i_s32Fd, i_u32Request, io_pRecord);
}

void DeviceClose(SInt32 i_s32Fd) { close(i_s32Fd); }

Bool ContiguousAlloc(UInt32 i_u32Size, T_ContiguousMemory* o_pMemory) {
  if (i_u32Size == 0) {
    LOG_ERROR("no canvas memory of %u bytes: nothing asked for", i_u32Size);
    return false;
  }
  const T_MediaSdk sdk = Sdk();
  if (!sdk.Complete()) return false;
  T_ContiguousMemory memory{};
  const SInt32 s32Result =
      sdk.m_pAlloc(&memory.m_u32Physical, &memory.m_pVirtual, nullptr, nullptr, i_u32Size);
  if (s32Result != 0 || memory.m_u32Physical == 0 || memory.m_pVirtual == nullptr) {
    LOG_ERROR("no canvas memory of %u bytes: %s gave %#x", i_u32Size, OSD_MEDIA_ALLOC,
              static_cast<UInt32>(s32Result));
    return false;
  }
  *o_pMemory = memory;
  return true;
}

void ContiguousFree(const T_ContiguousMemory& i_memory) {
  const T_MediaSdk sdk = Sdk();
  if (!sdk.Complete()) return;
  const SInt32 s32Result = sdk.m_pFree(i_memory.m_u32Physical, i_memory.m_pVirtual);
  if (s32Result != 0)
    LOG_ERROR("canvas memory at %#x not freed: %s gave %#x", i_memory.m_u32Physical, OSD_MEDIA_FREE,
              static_cast<UInt32>(s32Result));
}
