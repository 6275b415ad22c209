// The only way to devices: framebuffer layers, contiguous memory, and where the system's files
// lie. Two folders implement it, hifb (the chip) and soft (a software screen in files); the build
// links one of them. Any thread may call.
#pragma once

#include <string>

#include "framework/types.h"

// The place of the system's file i_pPath ("/var/run/osd.pid"). On the chip it is i_pPath itself; on
// the software screen it lies under the device root that the environment variable OSD_ROOT names
// (read once).
std::string SystemPath(const char* i_pPath);

// The place of a file that a request names. On the chip it is i_strPath itself; on the software
// screen the file at SystemPath of it when something is there, so that a peer's paths of the chip
// work, and otherwise i_strPath itself.
std::string NamedPath(const std::string& i_strPath);

// Opens a framebuffer device, read-write and close-on-exec; i_pPath is the path on the chip
// ("/dev/fb0"). The descriptor, or -1 with errno.
SInt32 DeviceOpen(const char* i_pPath);

// One driver request of platform/records.h with its record, which stays the caller's. 0, or -1 with
// errno; EINVAL for a request, an order or a record that the driver does not take.
SInt32 DeviceIoctl(SInt32 i_s32Fd, UInt32 i_u32Request, void* io_pRecord);

// Closes what DeviceOpen gave; the layer's picture is off the screen when nobody else has it open. Any
// other descriptor is left alone on the software screen and closed on the chip.
void DeviceClose(SInt32 i_s32Fd);

// Contiguous memory for a canvas. It belongs to the caller until ContiguousFree.
struct T_ContiguousMemory {
  UInt32 m_u32Physical;  // never 0
  void* m_pVirtual;
};

// i_u32Size bytes, more than 0, contents undefined; false when there is no such memory (the reason is logged).
Bool ContiguousAlloc(UInt32 i_u32Size, T_ContiguousMemory* o_pMemory);

// i_memory as ContiguousAlloc gave it; its virtual address is invalid afterwards.
void ContiguousFree(const T_ContiguousMemory& i_memory);
