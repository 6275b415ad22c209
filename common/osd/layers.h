// The overlay layers: set-up of a framebuffer device, its canvas, and the map of those that are
// ready. Owned by the renderer and used under its mutexes.
#pragma once

#include <map>
#include <utility>

#include "common/osd/canvas.h"
#include "platform/platform.h"

// As it comes with the init command.
struct T_LayerRequest {
  SInt32 m_s32VoDev;  // video output, the layer's key
  SInt32 m_s32Layer;  // 0 to 7: /dev/fb0 to /dev/fb7
  SInt32 m_s32X;
  SInt32 m_s32Y;
  UInt32 m_u32W;  // px
  UInt32 m_u32H;
};

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

class CCanvasMemory {
 public:
  CCanvasMemory() = default;
  CCanvasMemory(CCanvasMemory&& io_other) noexcept
      : m_stMemory(std::exchange(io_other.m_stMemory, {})) {}
  CCanvasMemory& operator=(CCanvasMemory&&) = delete;
  ~CCanvasMemory();

  // i_u32W x i_u32H fully transparent pixels; false when there is no memory for them, or when they
  // are more bytes than the allocator can be asked for. At most once.
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

  T_Canvas Canvas() const;

  // Shows what changed within i_rect; an empty one stands for the whole canvas. A failure is logged.
  void Refresh(const T_Rect& i_rect);

 private:
  T_LayerRequest m_stRequest;
  // The memory is given back before the device is closed.
  CDevice m_objDevice;
  CCanvasMemory m_objMemory;
  // Until a refresh has covered all of it the device may show pixels of an earlier canvas, and
  // after a failed one it lacks some of this: the next refresh then covers all of it.
  Bool m_bAllShown = false;
};

// By video output.
using T_LayerMap = std::map<SInt32, CLayer>;

// Sets up the layer that i_request asks for and adds it to io_map, which must have none for that
// output. False when a step failed: it is logged, nothing is left open and io_map is as it was.
Bool SetUpLayer(const T_LayerRequest& i_request, T_LayerMap& io_map);
