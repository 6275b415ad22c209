// The chip for a daemon that does not know: loaded before all else, it is the framebuffer driver's
// eight devices and the media SDK. It holds order and records against the integrator's tables in
// its own numbers, complains on standard error, and leaves the picture to the software screen.
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <vector>

#include "platform/platform.h"

namespace {

using Words = std::vector<UInt32>;

struct T_Device {
  std::atomic<int> m_s32Fd{-2};  // looked at by every thread; the renderer's mutex guards the rest
  size_t m_step = 0;
  UInt32 m_screen[40] = {};
  T_ContiguousMemory m_canvas = {};
};
constinit T_Device s_devices[8];
constinit T_Device* s_pOpenedLast = nullptr;

void Expect(bool i_bHolds, const char* i_pText, unsigned long i_ulNumber) {
  if (!i_bHolds) dprintf(STDERR_FILENO, "chip: %s, %#lx\n", i_pText, i_ulNumber);
}

T_Device* Find(int i_s32Fd) {
  for (T_Device& device : s_devices)
    if (device.m_s32Fd == i_s32Fd) return &device;
  return nullptr;
}

Words Resized(const T_Device& i_device, UInt32 i_u32W, UInt32 i_u32H) {
  Words words(std::begin(i_device.m_screen), std::end(i_device.m_screen));
  std::ranges::copy(Words{i_u32W, i_u32H, i_u32W, i_u32H}, words.begin());
  words[6] = 32;
  std::ranges::copy(Words{16, 8, 0, 8, 8, 0, 0, 8, 0, 24, 8, 0}, words.begin() + 8);
  return words;
}

bool IsNext(const T_Device& i_device, unsigned long i_ulNumber, const UInt32* i_pRecord) {
  const UInt32* const pSize = i_device.m_step == 4 ? i_pRecord : i_device.m_screen;
  const UInt32 at = i_device.m_canvas.m_u32Physical, w = pSize[0], h = pSize[1];
  const std::pair<unsigned long, Words> aInOrder[] = {
      {0x400C465D, {1, 1, 0x00FFFFFF}},
      {0x4600, {}},
      {0x4008465F, {}},
      {0x80CC4667, Words(51)},
      {0x4601, Resized(i_device, w, h)},
      {0x40304678, {1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}},
      {0x40044665, {1}},
      {0x4028467C, {at, 0, w, h, w * 4, 7, 0, 0, w, h}},
      {0x4028467C, {at, 0, w, h, w * 4, 7}}};
  const auto& [number, wanted] = aInOrder[i_device.m_step];
  return number == i_ulNumber && std::equal(wanted.begin(), wanted.end(), i_pRecord);
}

}  // namespace

// Under names of their own, since the real declarations take any number of arguments. With files of
// any size, open is open64.
extern "C" {
int Open(const char* i_pPath, int i_s32Flags, mode_t i_mode) __asm__("open64");
int Ioctl(int i_s32Fd, unsigned long i_ulNumber, UInt32* io_pRecord) __asm__("ioctl");

int Open(const char* i_pPath, int i_s32Flags, mode_t i_mode) {
  // The software screen opens its files through here too, by another spelling.
  if (std::strncmp(i_pPath, "/dev/fb", 7) != 0)
    return static_cast<int>(syscall(SYS_openat, AT_FDCWD, i_pPath, i_s32Flags, i_mode));
  s_pOpenedLast = &s_devices[i_pPath[7] - '0'];
  Expect(s_pOpenedLast->m_s32Fd < 0 && i_s32Flags == (O_RDWR | O_CLOEXEC), "not so opened", 0);
  s_pOpenedLast->m_step = 0;
  return s_pOpenedLast->m_s32Fd = DeviceOpen(i_pPath);
}

int Ioctl(int i_s32Fd, unsigned long i_ulNumber, UInt32* io_pRecord) {
  T_Device* const pDevice = Find(i_s32Fd);
  if (pDevice == nullptr)
    return static_cast<int>(syscall(SYS_ioctl, i_s32Fd, i_ulNumber, io_pRecord));
  Expect(IsNext(*pDevice, i_ulNumber, io_pRecord), "wrong order or record", i_ulNumber);
  const int result = DeviceIoctl(i_s32Fd, static_cast<UInt32>(i_ulNumber), io_pRecord);
  if (i_ulNumber < 0x4602) std::copy_n(io_pRecord, 40, pDevice->m_screen);
  pDevice->m_step = std::min<size_t>(pDevice->m_step + 1, 8);
  return result;
}

int close(int i_s32Fd) {
  T_Device* const pDevice = Find(i_s32Fd);
  if (pDevice == nullptr) return static_cast<int>(syscall(SYS_close, i_s32Fd));
  Expect(pDevice->m_canvas.m_pVirtual == nullptr, "closed before its canvas was freed", 0);
  pDevice->m_s32Fd = -2;
  DeviceClose(i_s32Fd);
  return 0;
}

int HI_MPI_SYS_MmzAlloc(UInt32* o_pPhysical, void** o_pVirtual, const char* i_pName,
                        const char* i_pZone, UInt32 i_u32Bytes) {
  auto& [fd, step, screen, canvas] = *s_pOpenedLast;
  Expect(i_pName == nullptr && i_pZone == nullptr && step == 7 &&
             i_u32Bytes == screen[0] * screen[1] * 4,
         "memory not wanted", i_u32Bytes);
  ContiguousAlloc(i_u32Bytes, &canvas);
  *o_pPhysical = canvas.m_u32Physical;
  *o_pVirtual = canvas.m_pVirtual;
  return 0;
}

int HI_MPI_SYS_MmzFree(UInt32 i_u32Physical, void* i_pVirtual) {
  ContiguousFree({i_u32Physical, i_pVirtual});  // logs when it knows no such memory
  for (T_Device& device : s_devices)
    if (device.m_canvas.m_pVirtual == i_pVirtual) device.m_canvas = {};
  return 0;
}
}
