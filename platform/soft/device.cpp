// The seam's functions on the software screen. One mutex guards everything; log lines are written
// after it is let go.
#include <cerrno>
#include <cstring>
#include <map>
#include <memory>

#include "framework/log.h"
#include "framework/mutex.h"
#include "framework/thread_annotations.h"
#include "platform/platform.h"
#include "platform/soft/fault_list.h"
#include "platform/soft/faults.h"
#include "platform/soft/layer.h"
#include "platform/soft/memory.h"

namespace {

constexpr size_t kMaxOpen = 64;  // devices, of one layer or of several

struct T_OpenLayer {
  std::string m_strDevice;
  std::unique_ptr<CSoftLayer> m_pLayer;
};

struct T_Screen {
  CMutex m_objMutex;
  CFaultList m_faults GUARDED_BY(m_objMutex);
  CSoftMemory m_memory GUARDED_BY(m_objMutex);
  std::map<SInt32, T_OpenLayer> m_layers GUARDED_BY(m_objMutex);  // by descriptor

  Bool InUse(const std::string& i_strDevice) const REQUIRES(m_objMutex) {
    for (const auto& [s32Fd, open] : m_layers)
      if (open.m_strDevice == i_strDevice) return true;
    return false;
  }
};

// Never destroyed: objects that live until the process exits still give their layers back.
T_Screen& Screen() {
  static T_Screen& s_screen = *new T_Screen;
  return s_screen;
}

Bool IsLayerDevice(const std::string& i_strDevice) {
  constexpr char kStem[] = "/dev/fb";
  constexpr size_t kStemLength = sizeof(kStem) - 1;
  return i_strDevice.size() == kStemLength + 1 && i_strDevice.starts_with(kStem) &&
         i_strDevice.back() >= '0' && i_strDevice.back() <= '7';
}

SInt32 Fail(SInt32 i_s32Errno) {
  errno = i_s32Errno;
  return -1;
}

}  // namespace

SInt32 DeviceOpen(const char* i_pPath) {
  const std::string device = i_pPath;
  const std::string file = SystemPath(i_pPath);
  SInt32 s32Error;
  Bool bFull;
  {
    T_Screen& screen = Screen();
    const CMutexLocker locker(&screen.m_objMutex);
    if (const SInt32 s32Fault = screen.m_faults.Count(kSoftCallOpen)) return Fail(s32Fault);
    if (!IsLayerDevice(device)) return Fail(ENOENT);
    bFull = screen.m_layers.size() >= kMaxOpen;
    if (auto pLayer = bFull ? nullptr : CSoftLayer::Open(file, screen.m_memory)) {
      if (!screen.InUse(device)) pLayer->FirstUser();
      const SInt32 s32Fd = pLayer->Fd();
      screen.m_layers[s32Fd] = {device, std::move(pLayer)};
      return s32Fd;
    }
    s32Error = errno;
  }
  if (bFull) {
    LOG_WARN("no layer in %s: %zu devices are open already", file.c_str(), kMaxOpen);
    return Fail(EBUSY);  // as a driver says it
  }
  LOG_WARN("no layer in %s: %s (tools/device-root makes a complete device root)", file.c_str(),
           std::strerror(s32Error));
  return Fail(s32Error);
}

SInt32 DeviceIoctl(SInt32 i_s32Fd, UInt32 i_u32Request, void* io_pRecord) {
  T_Screen& screen = Screen();
  const CMutexLocker locker(&screen.m_objMutex);
  if (const SInt32 s32Fault = screen.m_faults.Count(i_u32Request)) return Fail(s32Fault);
  const auto found = screen.m_layers.find(i_s32Fd);
  if (found == screen.m_layers.end()) return Fail(EBADF);
  const SInt32 s32Error = found->second.m_pLayer->Ioctl(i_u32Request, io_pRecord);
  return s32Error == 0 ? 0 : Fail(s32Error);
}

void DeviceClose(SInt32 i_s32Fd) {
  T_Screen& screen = Screen();
  const CMutexLocker locker(&screen.m_objMutex);
  auto closing = screen.m_layers.extract(i_s32Fd);
  if (!closing.empty() && !screen.InUse(closing.mapped().m_strDevice))
    closing.mapped().m_pLayer->LastUserLeft();
}

Bool ContiguousAlloc(UInt32 i_u32Size, T_ContiguousMemory* o_pMemory) {
  SInt32 s32Error;
  {
    T_Screen& screen = Screen();
    const CMutexLocker locker(&screen.m_objMutex);
    s32Error = screen.m_faults.Count(kSoftCallAlloc);
    if (s32Error == 0) s32Error = screen.m_memory.Alloc(i_u32Size, o_pMemory);
  }
  if (s32Error != 0)
    LOG_ERROR("no canvas memory of %u bytes: %s", i_u32Size, std::strerror(s32Error));
  return s32Error == 0;
}

void ContiguousFree(const T_ContiguousMemory& i_memory) {
  Bool bKnown;
  {
    T_Screen& screen = Screen();
    const CMutexLocker locker(&screen.m_objMutex);
    bKnown = screen.m_memory.Free(i_memory);
  }
  if (!bKnown) LOG_ERROR("free of unknown canvas memory at %#x", i_memory.m_u32Physical);
}

void SoftFail(UInt32 i_u32Call, UInt32 i_u32Nth, SInt32 i_s32Errno) {
  const CMutexLocker locker(&Screen().m_objMutex);
  Screen().m_faults.Add(i_u32Call, i_u32Nth, i_s32Errno);
}

void SoftFailNothing() {
  const CMutexLocker locker(&Screen().m_objMutex);
  Screen().m_faults.Clear();
}

T_SoftUsage SoftUsage() {
  const CMutexLocker locker(&Screen().m_objMutex);
  return {static_cast<UInt32>(Screen().m_layers.size()), Screen().m_memory.Count()};
}
