// The overlay layers: each is a framebuffer device that was set up, with the memory of its canvas.
// Owned by the renderer and used under its mutexes.
#pragma once

#include <map>
#include <utility>

#include "common/osd/canvas.h"
#include "common/osd/commands.h"
#include "platform/platform.h"

// Closes a device's descriptor; -1 is none.
class CDevice {
 public:
  explicit CDevice(SInt32 i_s32Fd) : m_s32Fd(i_s32Fd) {}
  CDevice(CDevice&& io_other) noexcept : m_s32Fd(std::exchange(io_other.m_s32Fd, -1)) {}
  CDevice& operator=(CDevice&&) = delete;
  ~CDevice();

  SInt32 Get() const { return m_s32Fd; }

 private:
  SInt32 m_s32Fd;
};

// Frees the memory of a canvas, when there is some.
class CCanvasMemory {
 public:
  CCanvasMemory() = default;
  CCanvasMemory(CCanvasMemory&& io_other) noexcept
      : m_stMemory(std::exchange(io_other.m_stMemory, {})) {}
  CCanvasMemory& operator=(CCanvasMemory&&) = delete;
  ~CCanvasMemory();

  // Gets memory for i_u32W x i_u32H px, all fully transparent. False when there is not enough, or
  // when it would be more than the allocator can be asked for (2 GiB). To be called once.
  Bool Allocate(UInt32 i_u32W, UInt32 i_u32H);

  const T_ContiguousMemory& Get() const { return m_stMemory; }

 private:
  T_ContiguousMemory m_stMemory{};
};

class CLayer {
 public:
  CLayer(const T_LayerRequest& i_request, CDevice i_objDevice, CCanvasMemory i_objMemory)
      : m_stRequest(i_request),
        m_objDevice(std::move(i_objDevice)),
        m_objMemory(std::move(i_objMemory)) {}

  // What it was set up from.
  const T_LayerRequest& Request() const { return m_stRequest; }

  // Good as long as the layer.
  T_Canvas Canvas() const;

  // Has the device show what changed within i_rect, px; an empty one stands for the whole canvas. A
  // failure is logged and made up for by the next refresh.
  void Refresh(const T_Rect& i_rect);

 private:
  T_LayerRequest m_stRequest;
  // The memory is given back before the device is closed.
  CDevice m_objDevice;
  CCanvasMemory m_objMemory;
  // Whether the device shows the canvas as it was at the last refresh. Before the first one it may
  // show pixels of an earlier canvas, and after a failed one it lacks some: then the next refresh
  // covers the whole canvas.
  Bool m_bAllShown = false;
};

// By video output.
using T_LayerMap = std::map<SInt32, CLayer>;

// Sets up the layer that i_request asks for and adds it to io_map, which must have none for that
// output. False when the layer is above 7, a side is 0, the device cannot be opened, a step fails
// or there is no memory: it is logged, nothing is left open and io_map is as it was.
Bool SetUpLayer(const T_LayerRequest& i_request, T_LayerMap& io_map);
