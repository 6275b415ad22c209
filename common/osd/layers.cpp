#include "common/osd/layers.h"

#include <cstdio>

#include "framework/log.h"
#include "platform/records.h"

namespace {

constexpr UInt32 kLayers = 8;
// The most that one allocation can be asked for.
constexpr UInt64 kMaxCanvasBytes = 0x7FFFFFFF;

// What the steps of a set-up work with: the request, and the driver's records.
struct T_SetUp {
  T_LayerRequest m_stRequest;
  T_FbAlpha m_stAlpha{};
  T_FbPoint m_stOrigin{};
  T_FbCapability m_stCapability{};
  fb_var_screeninfo m_stScreen{};
  T_FbLayerInfo m_stInfo{};
  T_FbShow m_stShow{};
};

void* Alpha(T_SetUp& io_setUp) {
  io_setUp.m_stAlpha = {1, 1, 255, 255, 255, 0};
  return &io_setUp.m_stAlpha;
}

void* ScreenAsFound(T_SetUp& io_setUp) { return &io_setUp.m_stScreen; }

void* Origin(T_SetUp& io_setUp) {
  io_setUp.m_stOrigin = {io_setUp.m_stRequest.m_s32X, io_setUp.m_stRequest.m_s32Y};
  return &io_setUp.m_stOrigin;
}

void* Capability(T_SetUp& io_setUp) { return &io_setUp.m_stCapability; }

void LogCapability(const T_SetUp& i_setUp) {
  const T_FbCapability& capability = i_setUp.m_stCapability;
  LOG_INFO("Canvas capacity max[w:%d,h:%d] min[w:%d,h:%d] screen[w:%d,h:%d]", capability.m_u32MaxW,
           capability.m_u32MaxH, capability.m_u32MinW, capability.m_u32MinH,
           i_setUp.m_stRequest.m_u32W, i_setUp.m_stRequest.m_u32H);
}

// ARGB8888. Whatever else the driver had in the record goes back unchanged.
void* ScreenAsWanted(T_SetUp& io_setUp) {
  fb_var_screeninfo& screen = io_setUp.m_stScreen;
  screen.xres = screen.xres_virtual = io_setUp.m_stRequest.m_u32W;
  screen.yres = screen.yres_virtual = io_setUp.m_stRequest.m_u32H;
  screen.bits_per_pixel = 32;
  screen.transp = {24, 8, 0};
  screen.red = {16, 8, 0};
  screen.green = {8, 8, 0};
  screen.blue = {0, 8, 0};
  screen.activate = FB_ACTIVATE_NOW;
  return &screen;
}

void* LayerInfo(T_SetUp& io_setUp) {
  io_setUp.m_stInfo.m_u32BufferMode = T_FbLayerInfo::kOneBuffer;
  io_setUp.m_stInfo.m_u32Mask = T_FbLayerInfo::kMaskBufferMode;
  return &io_setUp.m_stInfo;
}

void* Show(T_SetUp& io_setUp) {
  io_setUp.m_stShow.m_u32Shown = 1;
  return &io_setUp.m_stShow;
}

struct T_SetUpStep {
  UInt32 m_u32Request;
  void* (*m_pRecord)(T_SetUp&);  // fills the record for the driver and returns it
  const char* m_pFailure;
  // May be null. Otherwise the set-up can do without the step: after it, failed or not, this is
  // called and the set-up goes on.
  void (*m_pThen)(const T_SetUp&);
};

constexpr T_SetUpStep kSteps[] = {
    {kFbPutAlpha, Alpha, "HiFb Set alpha failed!", nullptr},
    {kFbGetVScreenInfo, ScreenAsFound, "GET_VSCREENINFO failed!", nullptr},
    {kFbPutOrigin, Origin, "set screen original show position failed!", nullptr},
    {kFbGetCapability, Capability, "FBIOGET_CAPABILITY_HIFB failed!", LogCapability},
    {kFbPutVScreenInfo, ScreenAsWanted, "PUT_VSCREENINFO failed!", nullptr},
    {kFbPutLayerInfo, LayerInfo, "PUT_LAYER_INFO failed!", nullptr},
    {kFbShow, Show, "FBIOPUT_SHOW_HIFB failed!", nullptr},
};

Bool RunSteps(SInt32 i_s32Fd, const T_LayerRequest& i_request) {
  T_SetUp setUp{.m_stRequest = i_request};
  for (const T_SetUpStep& step : kSteps) {
    const Bool bDone = DeviceIoctl(i_s32Fd, step.m_u32Request, step.m_pRecord(setUp)) == 0;
    if (!bDone) LOG_ERROR("%s", step.m_pFailure);
    if (!bDone && step.m_pThen == nullptr) return false;
    if (step.m_pThen != nullptr) step.m_pThen(setUp);
  }
  return true;
}

}  // namespace

CDevice::~CDevice() {
  if (m_s32Fd >= 0) DeviceClose(m_s32Fd);
}

CCanvasMemory::~CCanvasMemory() {
  if (m_stMemory.m_u32Physical != 0) ContiguousFree(m_stMemory);
}

Bool CCanvasMemory::Allocate(UInt32 i_u32W, UInt32 i_u32H) {
  if (UInt64{i_u32W} * i_u32H > kMaxCanvasBytes / sizeof(UInt32)) return false;
  const UInt32 u32Size = i_u32W * i_u32H * static_cast<UInt32>(sizeof(UInt32));
  T_ContiguousMemory memory{};
  if (!ContiguousAlloc(u32Size, &memory)) return false;
  m_stMemory = memory;
  std::memset(memory.m_pVirtual, 0, u32Size);
  return true;
}

T_Canvas CLayer::Canvas() const {
  return {static_cast<UInt32*>(m_objMemory.Get().m_pVirtual), m_stRequest.m_u32W,
          m_stRequest.m_u32H};
}

void CLayer::Refresh(const T_Rect& i_rect) {
  const T_Canvas canvas = Canvas();
  const T_Rect rect = i_rect.IsEmpty() || !m_bAllShown ? canvas.Whole() : i_rect;
  T_FbRefresh refresh{};
  refresh.m_u64Physical = m_objMemory.Get().m_u32Physical;
  refresh.m_u32Width = canvas.m_u32W;
  refresh.m_u32Height = canvas.m_u32H;
  refresh.m_u32Pitch = canvas.m_u32W * static_cast<UInt32>(sizeof(UInt32));
  refresh.m_u32Format = kFbFormatArgb8888;
  refresh.m_s32X = static_cast<SInt32>(rect.m_u32X);
  refresh.m_s32Y = static_cast<SInt32>(rect.m_u32Y);
  refresh.m_u32RectW = rect.m_u32W;
  refresh.m_u32RectH = rect.m_u32H;
  m_bAllShown = DeviceIoctl(m_objDevice.Get(), kFbRefresh, &refresh) == 0;
  if (!m_bAllShown) LOG_ERROR("FBIO_REFRESH failed!");
}

Bool SetUpLayer(const T_LayerRequest& i_request, T_LayerMap& io_map) {
  const UInt32 u32Layer = static_cast<UInt32>(i_request.m_s32Layer);
  if (i_request.m_u32W == 0 || i_request.m_u32H == 0 || u32Layer >= kLayers) {
    LOG_ERROR("HandleOsdInitMsg layer<%d> err", i_request.m_s32Layer);
    return false;
  }
  char szPath[] = "/dev/fb0";
  szPath[sizeof(szPath) - 2] = static_cast<char>('0' + u32Layer);
  CDevice device(DeviceOpen(szPath));
  if (device.Get() < 0) {
    LOG_ERROR("open %s failed!", szPath);
    return false;
  }
  if (!RunSteps(device.Get(), i_request)) return false;
  CCanvasMemory memory;
  if (!memory.Allocate(i_request.m_u32W, i_request.m_u32H)) {
    // A pixel takes four bytes, but field reports are searched for this text.
    LOG_ERROR("allocate memory (maxW*maxH*2 bytes) failed");
    return false;
  }
  io_map.try_emplace(i_request.m_s32VoDev, i_request, std::move(device), std::move(memory));
  return true;
}
