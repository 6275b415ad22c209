#include "tools/screenshot.h"

#include <fcntl.h>
#include <png.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>

#include "platform/platform.h"
#include "platform/soft/handles.h"
#include "platform/soft/layer_file.h"

namespace {

constexpr int kReadTries = 200;
constexpr std::chrono::milliseconds kPauseBetweenTries{2};
constexpr UInt32 kLayers = 8;
constexpr UInt32 kRgb = 3;
constexpr UInt32 kCheckerSide = 16;  // px

// true when all i_size bytes are there; a file that is cut meanwhile is a short read, no signal.
Bool ReadAt(const CDescriptor& i_file, void* o_pBytes, size_t i_size, size_t i_offset) {
  UInt8* pNext = static_cast<UInt8*>(o_pBytes);
  while (i_size > 0) {
    const ssize_t got = pread(i_file.Get(), pNext, i_size, static_cast<off_t>(i_offset));
    if (got <= 0) return false;
    pNext += got;
    i_offset += static_cast<size_t>(got);
    i_size -= static_cast<size_t>(got);
  }
  return true;
}

Bool HasSaneGeometry(const T_LayerHeader& i_header) {
  return i_header.m_u32Width <= T_LayerHeader::kMaxSide &&
         i_header.m_u32Height <= T_LayerHeader::kMaxSide &&
         i_header.m_u32Stride == i_header.m_u32Width * T_LayerHeader::kPixelSize;
}

T_LayerImage ImageOf(const T_LayerHeader& i_header) {
  return {i_header.m_u32Shown != 0,  i_header.m_s32X,        i_header.m_s32Y,
          i_header.m_u32Width,       i_header.m_u32Height,   i_header.m_u32AlphaFlags,
          i_header.m_u32GlobalAlpha, i_header.m_u64Sequence, {}};
}

enum class EAttempt { kDone, kTorn, kCut, kNoLayer };

// One try. The whole header is compared, not the sequence alone: a new set-up clears the pixels
// without a refresh.
EAttempt TryRead(const CDescriptor& i_file, T_LayerImage* io_pImage) {
  T_LayerHeader before{};
  if (!ReadAt(i_file, &before, sizeof(before), 0)) return EAttempt::kNoLayer;
  if (before.IsBlank()) return EAttempt::kDone;
  if (!before.IsLayer() || !HasSaneGeometry(before)) return EAttempt::kNoLayer;
  if (before.m_u64Sequence % 2 != 0) return EAttempt::kTorn;
  LayerFence();
  std::vector<UInt32> argb = std::move(io_pImage->m_vecArgb);
  argb.resize(size_t{before.m_u32Width} * before.m_u32Height);
  const Bool bWhole = ReadAt(i_file, argb.data(), argb.size() * T_LayerHeader::kPixelSize,
                             T_LayerHeader::kPixelOffset);
  *io_pImage = ImageOf(before);
  io_pImage->m_vecArgb = std::move(argb);
  LayerFence();
  T_LayerHeader after{};
  if (!bWhole || !ReadAt(i_file, &after, sizeof(after), 0)) return EAttempt::kCut;
  return std::memcmp(&before, &after, sizeof(before)) == 0 ? EAttempt::kDone : EAttempt::kTorn;
}

const char* Explain(EAttempt i_eAttempt) {
  switch (i_eAttempt) {
    case EAttempt::kTorn:
      return "it was being redrawn at every try; try again, and if that does not help initialise "
             "the layer again";
    case EAttempt::kCut:
      return "it is shorter than its header says; initialise the layer again";
    default:
      return "it is not a layer file of the software screen; check OSD_ROOT, or make a new device "
             "root with tools/device-root";
  }
}

std::nullopt_t CannotRead(const std::string& i_strPath, const std::string& i_strWhy,
                          std::string* o_pError) {
  *o_pError = "cannot read the layer " + i_strPath + ": " + i_strWhy;
  return std::nullopt;
}

UInt8 BackdropGrey(EBackdrop i_eBackdrop, UInt32 i_u32X, UInt32 i_u32Y) {
  if (i_eBackdrop == EBackdrop::kBlack) return 0;
  if (i_eBackdrop == EBackdrop::kGrey) return 0x80;
  return (i_u32X / kCheckerSide + i_u32Y / kCheckerSide) % 2 == 0 ? 0x99 : 0x66;
}

T_Image Fill(UInt32 i_u32Width, UInt32 i_u32Height, EBackdrop i_eBackdrop) {
  T_Image image{i_u32Width, i_u32Height, {}};
  image.m_vecRgb.resize(size_t{i_u32Width} * i_u32Height * kRgb);
  UInt8* pNext = image.m_vecRgb.data();
  for (UInt32 u32Y = 0; u32Y < i_u32Height; ++u32Y)
    for (UInt32 u32X = 0; u32X < i_u32Width; ++u32X, pNext += kRgb)
      std::memset(pNext, BackdropGrey(i_eBackdrop, u32X, u32Y), kRgb);
  return image;
}

// Opacities multiply to 255 * 255, so that a pixel is rounded once and not twice.
constexpr UInt32 kOpaque = 255 * 255;

UInt32 Opacity(const T_LayerImage& i_layer, UInt32 i_u32Argb) {
  if ((i_layer.m_u32AlphaFlags & T_LayerHeader::kAlphaEnabled) == 0) return kOpaque;
  const Bool bPerPixel = (i_layer.m_u32AlphaFlags & T_LayerHeader::kAlphaPerPixel) != 0;
  return (bPerPixel ? i_u32Argb >> 24 : 255) * std::min(i_layer.m_u32GlobalAlpha, 255U);
}

void Blend(UInt32 i_u32Argb, UInt32 i_u32Opacity, UInt8* io_pRgb) {
  for (UInt32 u32Channel = 0; u32Channel < kRgb; ++u32Channel) {
    const UInt32 u32Over = i_u32Argb >> (16 - 8 * u32Channel) & 0xFF;
    const UInt32 u32Sum =
        u32Over * i_u32Opacity + io_pRgb[u32Channel] * (kOpaque - i_u32Opacity) + kOpaque / 2;
    io_pRgb[u32Channel] = static_cast<UInt8>(u32Sum / kOpaque);
  }
}

struct T_Reach {
  SInt64 m_s64Right = 0;
  SInt64 m_s64Bottom = 0;
};

T_Reach ReachOf(const T_LayerImage& i_layer) {
  return {SInt64{i_layer.m_s32X} + i_layer.m_u32Width,
          SInt64{i_layer.m_s32Y} + i_layer.m_u32Height};
}

void BlendLayer(const T_LayerImage& i_layer, T_Image* io_pImage) {
  const SInt64 s64Left = std::max<SInt64>(i_layer.m_s32X, 0);
  const T_Reach reach = ReachOf(i_layer);
  for (SInt64 s64Y = std::max<SInt64>(i_layer.m_s32Y, 0); s64Y < reach.m_s64Bottom; ++s64Y) {
    const UInt32* pArgb = i_layer.m_vecArgb.data() + (s64Y - i_layer.m_s32Y) * i_layer.m_u32Width +
                          (s64Left - i_layer.m_s32X);
    UInt8* pRgb = io_pImage->m_vecRgb.data() + (s64Y * io_pImage->m_u32Width + s64Left) * kRgb;
    for (SInt64 s64X = s64Left; s64X < reach.m_s64Right; ++s64X, ++pArgb, pRgb += kRgb)
      Blend(*pArgb, Opacity(i_layer, *pArgb), pRgb);
  }
}

}  // namespace

std::optional<T_LayerImage> ReadLayer(const std::string& i_strPath, std::string* o_pError) {
  const CDescriptor file(open(i_strPath.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (file.Get() < 0)
    return CannotRead(i_strPath,
                      std::string(std::strerror(errno)) +
                          "; check OSD_ROOT, or make a device root with tools/device-root",
                      o_pError);
  struct stat status {};
  if (fstat(file.Get(), &status) != 0 || !S_ISREG(status.st_mode))
    return CannotRead(i_strPath, Explain(EAttempt::kNoLayer), o_pError);
  T_LayerImage image{};
  if (status.st_size == 0) return image;
  EAttempt eAttempt = EAttempt::kTorn;
  for (int tries = 0; eAttempt == EAttempt::kTorn && tries < kReadTries; ++tries) {
    if (tries > 0) std::this_thread::sleep_for(kPauseBetweenTries);
    eAttempt = TryRead(file, &image);
  }
  if (eAttempt != EAttempt::kDone) return CannotRead(i_strPath, Explain(eAttempt), o_pError);
  return image;
}

std::optional<T_Image> Composite(const std::vector<T_LayerImage>& i_layers, EBackdrop i_eBackdrop,
                                 std::string* o_pError) {
  T_Reach whole;
  for (const T_LayerImage& layer : i_layers) {
    const T_Reach reach = ReachOf(layer);
    if (!layer.m_bShown || reach.m_s64Right <= 0 || reach.m_s64Bottom <= 0) continue;
    whole.m_s64Right = std::max(whole.m_s64Right, reach.m_s64Right);
    whole.m_s64Bottom = std::max(whole.m_s64Bottom, reach.m_s64Bottom);
  }
  constexpr SInt64 kLargest = 2 * SInt64{T_LayerHeader::kMaxSide};
  if (whole.m_s64Right == 0 || whole.m_s64Right > kLargest || whole.m_s64Bottom > kLargest) {
    *o_pError =
        whole.m_s64Right == 0
            ? "cannot take a screenshot: no layer is shown; initialise one first (osdctl init)"
            : "cannot take a screenshot: the layers reach farther than " +
                  std::to_string(kLargest) + " px; initialise them nearer to the screen's origin";
    return std::nullopt;
  }
  T_Image image = Fill(static_cast<UInt32>(whole.m_s64Right),
                       static_cast<UInt32>(whole.m_s64Bottom), i_eBackdrop);
  for (const T_LayerImage& layer : i_layers)
    if (layer.m_bShown) BlendLayer(layer, &image);
  return image;
}

Bool WritePng(const std::string& i_strPath, const T_Image& i_image, std::string* o_pError) {
  png_image header{};
  header.version = PNG_IMAGE_VERSION;
  header.width = i_image.m_u32Width;
  header.height = i_image.m_u32Height;
  header.format = PNG_FORMAT_RGB;
  if (png_image_write_to_file(&header, i_strPath.c_str(), 0, i_image.m_vecRgb.data(), 0, nullptr))
    return true;
  *o_pError = "cannot write the picture " + i_strPath + ": " + header.message +
              "; name a file in a folder that exists, that you may write to and that has space";
  return false;
}

Bool TakeScreenshot(const std::string& i_strPngPath, EBackdrop i_eBackdrop, std::string* o_pError) {
  std::vector<T_LayerImage> layers;
  for (UInt32 u32Layer = 0; u32Layer < kLayers; ++u32Layer) {
    const std::string device = "/dev/fb" + std::to_string(u32Layer);
    auto layer = ReadLayer(SystemPath(device.c_str()), o_pError);
    if (!layer) return false;
    layers.push_back(std::move(*layer));
  }
  const auto image = Composite(layers, i_eBackdrop, o_pError);
  return image && WritePng(i_strPngPath, *image, o_pError);
}
