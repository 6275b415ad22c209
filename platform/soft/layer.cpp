#include "platform/soft/layer.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <type_traits>

namespace {

constexpr fb_bitfield kAlphaBits{24, 8, 0};
constexpr fb_bitfield kRedBits{16, 8, 0};
constexpr fb_bitfield kGreenBits{8, 8, 0};
constexpr fb_bitfield kBlueBits{0, 8, 0};

// A driver fresh from its start: another size and pixel format than any the system asks for, and
// values in the fields that a caller must hand back as read.
fb_var_screeninfo FreshInfo() {
  fb_var_screeninfo info{};
  info.xres = info.xres_virtual = 1280;
  info.yres = info.yres_virtual = 720;
  info.bits_per_pixel = 16;
  info.transp = {15, 1, 0};
  info.red = {10, 5, 0};
  info.green = {5, 5, 0};
  info.blue = {0, 5, 0};
  info.width = info.height = ~0U;
  info.pixclock = 13468;
  return info;
}

// i_was with everything that setting the size to i_u32Width x i_u32Height changes.
fb_var_screeninfo Resized(fb_var_screeninfo i_was, UInt32 i_u32Width, UInt32 i_u32Height) {
  i_was.xres = i_was.xres_virtual = i_u32Width;
  i_was.yres = i_was.yres_virtual = i_u32Height;
  i_was.bits_per_pixel = 32;
  i_was.transp = kAlphaBits;
  i_was.red = kRedBits;
  i_was.green = kGreenBits;
  i_was.blue = kBlueBits;
  i_was.activate = FB_ACTIVATE_NOW;
  return i_was;
}

template <class T>
Bool Same(const T& i_a, const T& i_b) {
  static_assert(std::has_unique_object_representations_v<T>);
  return std::memcmp(&i_a, &i_b, sizeof(T)) == 0;
}

// Room on the disk for the first i_size bytes: a later write through a mapping cannot fail.
SInt32 Reserve(SInt32 i_s32Fd, size_t i_size) {
  SInt32 s32Error;
  do s32Error = posix_fallocate(i_s32Fd, 0, static_cast<off_t>(i_size));
  while (s32Error == EINTR);
  return s32Error;
}

// The file may become a layer: it is one already, or nothing stands where its header goes.
Bool IsLayerOrBlank(SInt32 i_s32Fd) {
  struct stat status;
  if (fstat(i_s32Fd, &status) != 0 || !S_ISREG(status.st_mode)) return false;
  T_LayerHeader header{};
  if (pread(i_s32Fd, &header, sizeof(header), 0) < 0) return false;
  return header.IsLayer() || header.IsBlank();
}

UInt64 MonotonicNs() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<UInt64>(now.tv_sec) * 1'000'000'000 + static_cast<UInt64>(now.tv_nsec);
}

Bool Contains(UInt32 i_u32Whole, SInt32 i_s32Start, UInt32 i_u32Length) {
  return i_s32Start >= 0 && i_u32Length > 0 &&
         static_cast<UInt64>(i_s32Start) + i_u32Length <= i_u32Whole;
}

}  // namespace

// The capability may be left out: callers go on without it when the driver does not know it.
const CSoftLayer::T_Request CSoftLayer::s_aRequests[] = {
    {kFbPutAlpha, kOpened, kOpened, kAlphaSet, &CSoftLayer::PutAlpha},
    {kFbGetVScreenInfo, kAlphaSet, kAlphaSet, kInfoRead, &CSoftLayer::GetInfo},
    {kFbPutOrigin, kInfoRead, kInfoRead, kPlaced, &CSoftLayer::PutOrigin},
    {kFbGetCapability, kPlaced, kPlaced, kPlaced, &CSoftLayer::GetCapability},
    {kFbPutVScreenInfo, kPlaced, kPlaced, kSized, &CSoftLayer::PutInfo},
    {kFbPutLayerInfo, kSized, kSized, kBuffered, &CSoftLayer::PutBuffering},
    {kFbShow, kBuffered, kShown, kShown, &CSoftLayer::Show},
    {kFbRefresh, kShown, kShown, kShown, &CSoftLayer::Refresh},
};

std::unique_ptr<CSoftLayer> CSoftLayer::Open(const std::string& i_strPath,
                                             const CSoftMemory& i_memory) {
  // Without O_NONBLOCK a pipe in the layer's place would hold the caller for ever.
  CDescriptor file(open(i_strPath.c_str(), O_RDWR | O_CLOEXEC | O_NONBLOCK));
  if (file.Get() < 0) return nullptr;
  if (!IsLayerOrBlank(file.Get())) {
    errno = ENODEV;
    return nullptr;
  }
  if (const SInt32 s32Error = Reserve(file.Get(), T_LayerHeader::kPixelOffset)) {
    errno = s32Error;
    return nullptr;
  }
  CMapping mapping(file.Get(), T_LayerHeader::kPixelOffset);
  if (!mapping.Valid()) return nullptr;
  return std::unique_ptr<CSoftLayer>(new CSoftLayer(std::move(file), std::move(mapping), i_memory));
}

CSoftLayer::CSoftLayer(CDescriptor i_file, CMapping i_mapping, const CSoftMemory& i_memory)
    : m_file(std::move(i_file)),
      m_mapping(std::move(i_mapping)),
      m_memory(i_memory),
      m_info(FreshInfo()) {
  T_LayerHeader& header = Header();
  header.m_u32Version = T_LayerHeader::kVersion;
  std::memcpy(header.m_aMagic, T_LayerHeader::kMagic, sizeof(T_LayerHeader::kMagic));
}

void CSoftLayer::FirstUser() {
  Header().m_u32Shown = 0;
  std::atomic_ref<UInt64> sequence(Header().m_u64Sequence);
  sequence.store((sequence.load(std::memory_order_relaxed) + 1) & ~UInt64{1},
                 std::memory_order_release);
}

void CSoftLayer::LastUserLeft() {
  if (FileIsWhole()) Header().m_u32Shown = 0;
}

// Touching a page of a file that somebody cut would end the process.
Bool CSoftLayer::FileIsWhole() const {
  struct stat status;
  return fstat(m_file.Get(), &status) == 0 && status.st_nlink > 0 &&
         static_cast<UInt64>(status.st_size) >= m_mapping.Size();
}

SInt32 CSoftLayer::Ioctl(UInt32 i_u32Request, void* io_pRecord) {
  const auto row =
      std::find_if(std::begin(s_aRequests), std::end(s_aRequests),
                   [&](const T_Request& i_request) { return i_request.m_u32Code == i_u32Request; });
  if (row == std::end(s_aRequests)) return EINVAL;
  if (m_eStage < row->m_eFirst || m_eStage > row->m_eLast) return EINVAL;
  if (io_pRecord == nullptr) return EFAULT;
  if (!FileIsWhole()) return EIO;
  const SInt32 s32Error = (this->*row->m_pHandle)(io_pRecord);
  if (s32Error == 0) m_eStage = row->m_eNext;
  return s32Error;
}

SInt32 CSoftLayer::PutAlpha(void* i_pRecord) {
  const T_FbAlpha& alpha = *static_cast<const T_FbAlpha*>(i_pRecord);
  if (alpha.m_u32Enable > 1 || alpha.m_u32Channel > 1 || alpha.m_u8Reserved != 0) return EINVAL;
  Header().m_u32AlphaFlags = (alpha.m_u32Enable ? T_LayerHeader::kAlphaEnabled : 0) |
                             (alpha.m_u32Channel ? T_LayerHeader::kAlphaPerPixel : 0);
  Header().m_u32GlobalAlpha = alpha.m_u8Global;
  return 0;
}

SInt32 CSoftLayer::GetInfo(void* o_pRecord) {
  *static_cast<fb_var_screeninfo*>(o_pRecord) = m_info;
  return 0;
}

SInt32 CSoftLayer::PutOrigin(void* i_pRecord) {
  const T_FbPoint& point = *static_cast<const T_FbPoint*>(i_pRecord);
  constexpr SInt32 kFarthest = T_LayerHeader::kMaxSide;
  for (const SInt32 s32Place : {point.m_s32X, point.m_s32Y})
    if (s32Place < -kFarthest || s32Place > kFarthest) return EINVAL;
  Header().m_s32X = point.m_s32X;
  Header().m_s32Y = point.m_s32Y;
  return 0;
}

SInt32 CSoftLayer::GetCapability(void* o_pRecord) {
  T_FbCapability& capability = *static_cast<T_FbCapability*>(o_pRecord);
  capability = {};
  capability.m_u32MaxW = capability.m_u32MaxH = T_LayerHeader::kMaxSide;
  capability.m_u32MinW = capability.m_u32MinH = 1;
  return 0;
}

SInt32 CSoftLayer::PutInfo(void* i_pRecord) {
  const fb_var_screeninfo& info = *static_cast<const fb_var_screeninfo*>(i_pRecord);
  for (const UInt32 u32Side : {info.xres, info.yres})
    if (u32Side == 0 || u32Side > T_LayerHeader::kMaxSide) return EINVAL;
  if (!Same(info, Resized(m_info, info.xres, info.yres))) return EINVAL;

  const size_t stride = size_t{info.xres} * T_LayerHeader::kPixelSize;
  const size_t pixels = stride * info.yres;
  if (const SInt32 s32Error = Reserve(Fd(), T_LayerHeader::kPixelOffset + pixels)) return s32Error;
  CMapping mapping(Fd(), T_LayerHeader::kPixelOffset + pixels);
  if (!mapping.Valid()) return errno;
  m_mapping = std::move(mapping);
  m_info = info;

  // Forgetting the last refresh shows a viewer that pixels went although no refresh was copied.
  Header().m_u64RefreshNs = 0;
  Header().m_u32Width = info.xres;
  Header().m_u32Height = info.yres;
  Header().m_u32Stride = static_cast<UInt32>(stride);
  LayerFence();
  std::memset(m_mapping.Bytes() + T_LayerHeader::kPixelOffset, 0, pixels);
  return 0;
}

SInt32 CSoftLayer::PutBuffering(void* i_pRecord) {
  T_FbLayerInfo wanted{};
  wanted.m_u32BufferMode = T_FbLayerInfo::kOneBuffer;
  wanted.m_u32Mask = T_FbLayerInfo::kMaskBufferMode;
  return Same(*static_cast<const T_FbLayerInfo*>(i_pRecord), wanted) ? 0 : EINVAL;
}

SInt32 CSoftLayer::Show(void* i_pRecord) {
  const UInt32 u32Shown = static_cast<const T_FbShow*>(i_pRecord)->m_u32Shown;
  if (u32Shown > 1) return EINVAL;
  Header().m_u32Shown = u32Shown;
  return 0;
}

// Another user of the same layer may have hidden it or given it another size.
Bool CSoftLayer::TakesRefresh(const T_FbRefresh& i_refresh) const {
  const T_LayerHeader& header = Header();
  return header.m_u32Shown == 1 && header.m_u32Width == m_info.xres &&
         header.m_u32Height == m_info.yres && i_refresh.m_u32Width == m_info.xres &&
         i_refresh.m_u32Height == m_info.yres && i_refresh.m_u32Pitch == header.m_u32Stride &&
         i_refresh.m_u32Format == kFbFormatArgb8888 &&
         Contains(m_info.xres, i_refresh.m_s32X, i_refresh.m_u32RectW) &&
         Contains(m_info.yres, i_refresh.m_s32Y, i_refresh.m_u32RectH);
}

SInt32 CSoftLayer::Refresh(void* i_pRecord) {
  const T_FbRefresh& refresh = *static_cast<const T_FbRefresh*>(i_pRecord);
  if (!TakesRefresh(refresh)) return EINVAL;
  const UInt8* pCanvas =
      m_memory.Find(refresh.m_u64Physical, size_t{refresh.m_u32Pitch} * refresh.m_u32Height);
  if (pCanvas == nullptr) return EINVAL;
  Copy(refresh, pCanvas);
  return 0;
}

void CSoftLayer::Copy(const T_FbRefresh& i_refresh, const UInt8* i_pCanvas) {
  const size_t pitch = i_refresh.m_u32Pitch;
  const size_t length = size_t{i_refresh.m_u32RectW} * T_LayerHeader::kPixelSize;
  size_t at = static_cast<size_t>(i_refresh.m_s32Y) * pitch +
              static_cast<size_t>(i_refresh.m_s32X) * T_LayerHeader::kPixelSize;
  UInt8* pPixels = m_mapping.Bytes() + T_LayerHeader::kPixelOffset;

  std::atomic_ref<UInt64> sequence(Header().m_u64Sequence);
  const UInt64 u64Before = sequence.load(std::memory_order_relaxed);
  sequence.store(u64Before + 1, std::memory_order_relaxed);
  LayerFence();
  for (UInt32 u32Row = 0; u32Row < i_refresh.m_u32RectH; ++u32Row, at += pitch)
    std::memcpy(pPixels + at, i_pCanvas + at, length);
  Header().m_u64RefreshNs = MonotonicNs();
  sequence.store(u64Before + 2, std::memory_order_release);
}
