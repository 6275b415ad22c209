// Pictures through the real renderer, from the request to the refreshed layer: an icon from the
// cache beside memcpy of the same bytes, the first show of a 1920x1080 PNG beside libpng's bare
// decode of it, and a text with and without a 64-Mpixel decode under way. Before that, without the
// renderer, the memory and the time that the largest PNG takes. Both sides of a ratio are measured in
// the same run. Wants a fresh device root in OSD_ROOT.
#include <fcntl.h>
#include <png.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <tuple>
#include <vector>

#include "common/osd/commands.h"
#include "common/osd/osd_hifb.h"
#include "common/osd/pictures/loader.h"
#include "daemon/common/bus.h"
#include "daemon/modules.h"
#include "platform/platform.h"
#include "platform/soft/layer_file.h"

namespace {

using T_Clock = std::chrono::steady_clock;

constexpr UInt32 kW = 1920;
constexpr UInt32 kH = 1080;

double Since(T_Clock::time_point i_start) {
  return std::chrono::duration<double, std::micro>(T_Clock::now() - i_start).count();
}

double At(std::vector<double> i_times, size_t i_percent) {
  std::sort(i_times.begin(), i_times.end());
  return i_times[std::min(i_times.size() - 1, i_times.size() * i_percent / 100)];
}

void Print(const char* i_pName, const std::vector<double>& i_times,
           const std::vector<double>& i_reference) {
  std::printf("%-44s median %9.1f us   p99 %9.1f us   ratio %6.2f   %6.2f\n", i_pName,
              At(i_times, 50), At(i_times, 99), At(i_times, 50) / At(i_reference, 50),
              At(i_times, 99) / At(i_reference, 99));
}

enum ELook { kOpaque, kGlass, kInterlaced };

// A picture with gradients, all with an alpha channel.
std::string WritePicture(const char* i_pName, UInt32 i_u32W, UInt32 i_u32H, ELook i_eLook) {
  const std::string path = SystemPath(i_pName);
  std::FILE* const pFile = std::fopen(path.c_str(), "wb");
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png_create_info_struct(png);
  if (pFile == nullptr || info == nullptr) std::abort();
  png_init_io(png, pFile);
  png_set_filter(png, PNG_FILTER_TYPE_BASE, PNG_NO_FILTERS);
  png_set_compression_level(png, 3);
  png_set_IHDR(png, info, i_u32W, i_u32H, 8, PNG_COLOR_TYPE_RGBA,
               i_eLook == kInterlaced ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE,
               PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  png_write_info(png, info);
  png_set_bgr(png);
  std::vector<UInt32> row(i_u32W);
  const int passes = png_set_interlace_handling(png);
  for (UInt32 i = 0; i < static_cast<UInt32>(passes) * i_u32H; ++i) {
    const UInt32 y = i % i_u32H;
    for (UInt32 x = 0; x < i_u32W; ++x)
      row[x] = (i_eLook == kGlass ? 64 + (x + y) % 128 : 255) << 24 | (x & 0xFF) << 16 |
               (y & 0xFF) << 8 | ((x ^ y) & 0xFF);
    png_write_row(png, reinterpret_cast<png_bytep>(row.data()));
  }
  png_write_end(png, info);
  png_destroy_write_struct(&png, &info);
  std::fclose(pFile);
  const timespec aTimes[2] = {};  // what was written just now would not be kept
  utimensat(AT_FDCWD, path.c_str(), aTimes, 0);
  return path;
}

// By libpng alone, into memory that is there already.
double BareDecode(const std::string& i_path, std::vector<UInt32>& o_pixels) {
  const auto start = T_Clock::now();
  std::FILE* const pFile = std::fopen(i_path.c_str(), "rb");
  png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png_create_info_struct(png);
  if (pFile == nullptr || info == nullptr) std::abort();
  png_init_io(png, pFile);
  png_read_info(png, info);
  png_set_bgr(png);
  std::vector<png_bytep> rows;
  for (UInt32 y = 0; y < png_get_image_height(png, info); ++y)
    rows.push_back(reinterpret_cast<png_bytep>(&o_pixels[y * png_get_image_width(png, info)]));
  png_read_image(png, rows.data());
  png_read_end(png, nullptr);
  png_destroy_read_struct(&png, &info, nullptr);
  std::fclose(pFile);
  return Since(start);
}

// The refreshes of layer 0.
class CLayerWatch {
 public:
  CLayerWatch() {
    const int fd = open(SystemPath("/dev/fb0").c_str(), O_RDONLY | O_CLOEXEC);
    void* const pFile = mmap(nullptr, T_LayerHeader::kPixelOffset, PROT_READ, MAP_SHARED, fd, 0);
    if (pFile == MAP_FAILED) std::abort();
    m_pHeader = static_cast<const T_LayerHeader*>(pFile);
  }
  UInt64 Sequence() const { return __atomic_load_n(&m_pHeader->m_u64Sequence, __ATOMIC_ACQUIRE); }
  // Sends i_msg and waits for the end of the refresh that it leads to. Microseconds.
  double Shown(const T_ModuleMsg& i_msg) const {
    const UInt64 u64Before = Sequence();
    const auto start = T_Clock::now();
    if (SendSyncAndAsyncMsg(&i_msg, 0) == 0) std::abort();
    while (Sequence() < u64Before + 2) usleep(2);  // not to take a core from those that work
    return Since(start);
  }

 private:
  const T_LayerHeader* m_pHeader;
};

template <class T>
T_ModuleMsg Message(const T& i_command) {
  return MakeMessage(kAsyncMsg, kModuleEndpoint, kModuleOsd, i_command);
}

T_ModuleMsg Icon(UInt16 i_u16Seq, const std::string& i_path, UInt32 i_u32W = 0) {
  auto* const pRecord = new T_DispRecord{};  // the renderer's from the send on
  pRecord->m_u16Seq = i_u16Seq;
  pRecord->m_u16Time = T_DispRecord::kForever;
  pRecord->m_u16Opacity = 255;
  pRecord->m_u32W = i_u32W;
  i_path.copy(pRecord->m_aText[0], T_DispRecord::kMaxPath);
  return Message(T_OsdIconShow{pRecord});
}

T_ModuleMsg Text(UInt16 i_u16Seq) {
  auto* const pRecord = new T_DispRecord{};
  pRecord->m_u16Seq = i_u16Seq;
  pRecord->m_u16Time = T_DispRecord::kForever;
  pRecord->m_u32Mask = kMaskText | kMaskForever;
  pRecord->m_u16Line = 1;
  std::string("a text of some forty characters, in all.").copy(pRecord->m_aText[0], 64);
  return Message(T_OsdTextShow{pRecord});
}

T_ModuleMsg HideIcons() { return Message(T_OsdIconHide{kEveryOutput, kEveryElement, 0}); }

void CachedIcon(const CLayerWatch& i_watch, const char* i_pName, ELook i_eLook) {
  constexpr UInt32 kSide = 512;
  const std::string path = WritePicture("/icon.png", kSide, kSide, i_eLook);
  std::vector<UInt32> from(kSide * kSide, 1);
  std::vector<UInt32> to(kSide * kSide);
  std::vector<double> shown;
  std::vector<double> copied;
  i_watch.Shown(Icon(0x201, path));
  for (int i = 0; i < 500; ++i) {
    i_watch.Shown(HideIcons());
    shown.push_back(i_watch.Shown(Icon(0x201, path)));
    const auto start = T_Clock::now();
    std::copy(from.begin(), from.end(), to.begin());
    __asm__ volatile("" : : "r"(to.data()) : "memory");
    copied.push_back(Since(start));
  }
  i_watch.Shown(HideIcons());
  Print(i_pName, shown, copied);
}

void FirstShow(const CLayerWatch& i_watch) {
  const std::string path = WritePicture("/screen.png", kW, kH, kOpaque);
  std::vector<UInt32> pixels(size_t{kW} * kH);
  std::vector<double> shown;
  std::vector<double> decoded;
  for (long i = 0; i < 20; ++i) {
    const timespec aTimes[] = {{1000 + i, 0}, {1000 + i, 0}};  // another file, to the cache
    utimensat(AT_FDCWD, path.c_str(), aTimes, 0);
    decoded.push_back(BareDecode(path, pixels));
    shown.push_back(i_watch.Shown(Icon(0x202, path)));
  }
  i_watch.Shown(HideIcons());
  Print("libpng's bare decode of 1920x1080", decoded, decoded);
  Print("its first show as an icon", shown, decoded);
}

size_t PeakBytes() {
  std::ifstream status("/proc/self/status");
  std::string word;
  while (status >> word && word != "VmHWM:") continue;
  size_t kilobytes = 0;
  status >> kilobytes;
  return kilobytes << 10;
}

// In a process of its own, which has the peak of nothing else.
void PrintPeak(const char* i_pName, const std::string& i_path, const T_WantedSize& i_size,
               double i_decoded) {
  std::fflush(stdout);
  const pid_t child = fork();
  if (child == 0) {
    std::ofstream("/proc/self/clear_refs") << 5;  // the parent's peak
    const size_t before = PeakBytes();
    const auto start = T_Clock::now();
    const CResult<T_Loaded> loaded = LoadPicture(i_path, std::span(&i_size, 1), {});
    const double taken = Since(start);
    if (!loaded) std::abort();
    const size_t made = loaded->m_vecPictures[0]->Bytes();
    const auto beyond = static_cast<double>(PeakBytes()) - static_cast<double>(before + made);
    std::printf("%-44s %9.1f ms   ratio %6.2f   %6.1f MiB and %6.1f beyond\n", i_pName,
                taken / 1000, taken / i_decoded, static_cast<double>(made) / (1 << 20),
                beyond / (1 << 20));
    std::fflush(stdout);
    _exit(0);
  }
  waitpid(child, nullptr, 0);
}

void Peaks() {
  constexpr UInt32 kSide = CPicture::kMaxSide;
  const std::pair<ELook, const char*> kLooks[] = {
      {kOpaque, "plain"}, {kInterlaced, "interlaced"}, {kGlass, "with alpha"}};
  const std::tuple<const char*, T_Extent, T_Extent> kShown[] = {
      {"scaled to 1920x1080", {kW, kH}, {kW, kH}},
      {"its own pixels, cut", {}, {kW, kH}},
      {"all of its own pixels", {}, {kSide, kSide}}};
  for (const auto& [look, name] : kLooks) {
    const std::string path = WritePicture("/peak.png", kSide, kSide, look);
    std::vector<UInt32> pixels(size_t{kSide} * kSide);
    const double decoded = BareDecode(path, pixels);
    pixels = {};
    for (const auto& [how, scaled, room] : kShown)
      PrintPeak((std::string(name) + ", " + how).c_str(), path, {scaled, room}, decoded);
  }
}

void TextBesideDecode(const CLayerWatch& i_watch) {
  const std::string huge =
      WritePicture("/huge.png", CPicture::kMaxSide, CPicture::kMaxSide, kOpaque);
  std::vector<double> alone;
  std::vector<double> beside;
  const auto texts = [&](std::vector<double>& io_times) {
    for (int i = 0; i < 200; ++i) {
      io_times.push_back(i_watch.Shown(Text(0x101)));
      CThread::Sleep(2);
    }
  };
  for (UInt32 turn = 0; turn < 3; ++turn) {
    texts(alone);
    const T_ModuleMsg msg = Icon(0x203, huge, 4000);
    if (SendSyncAndAsyncMsg(&msg, 0) == 0) std::abort();
    texts(beside);
    const T_ModuleMsg hide = HideIcons();  // which ends the decode
    SendSyncAndAsyncMsg(&hide, 0);
    CThread::Sleep(500);
  }
  Print("text shown", alone, alone);
  Print("text shown while 64 Mpixel are decoded", beside, alone);
}

}  // namespace

int main() {
  prctl(PR_SET_TIMERSLACK, 1);
  std::printf(
      "a PNG of 8192x8192 beside libpng's bare decode; the picture made, and the peak beyond\n");
  Peaks();
  CThread::Initialize(0x180000);
  g_objOsdHifb.Start();
  T_ModuleMsg init = Message(T_OsdInit{{0, 0, 0, 0, kW, kH}});
  init.m_u32MsgType = kSyncMsg;
  if (SendSyncAndAsyncMsg(&init, 0) == 0) return 1;
  {
    const CLayerWatch watch;
    std::printf("from the request to the refreshed layer\n");
    CachedIcon(watch, "opaque 512x512 icon from the cache / memcpy", kOpaque);
    CachedIcon(watch, "translucent one / memcpy", kGlass);
    FirstShow(watch);
    TextBesideDecode(watch);
  }
  g_objOsdHifb.Stop();
  return 0;
}
