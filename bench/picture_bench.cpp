// Pictures and texts through the real renderer, from the command to the refreshed layer.
#include <fcntl.h>
#include <pixman.h>
#include <png.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/stat.h>

#include <cstring>
#include <fstream>

#include "bench/bench.h"
#include "common/osd/commands.h"
#include "common/osd/osd_hifb.h"
#include "daemon/common/bus.h"
#include "daemon/modules.h"
#include "platform/platform.h"
#include "platform/soft/layer_file.h"

namespace {

constexpr UInt32 kW = 1920;
constexpr UInt32 kH = 1080;
constexpr UInt32 kSide = 512;  // px, of an icon
constexpr UInt32 kMaxPictureSide = 8192;

// One pixel of a picture with gradients.
UInt32 Pixel(UInt32 i_u32X, UInt32 i_u32Y, Bool i_bGlass) {
  return (i_bGlass ? 64 + (i_u32X + i_u32Y) % 128 : 255) << 24 | (i_u32X & 0xFF) << 16 |
         (i_u32Y & 0xFF) << 8 | ((i_u32X ^ i_u32Y) & 0xFF);
}

// A PNG of such pixels, with an alpha channel in any case.
std::string WritePicture(const char* i_pName, UInt32 i_u32W, UInt32 i_u32H, Bool i_bGlass) {
  const std::string path = SystemPath(i_pName);
  std::FILE* const pFile = std::fopen(path.c_str(), "wb");
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png_create_info_struct(png);
  if (pFile == nullptr || info == nullptr) std::abort();
  png_init_io(png, pFile);
  png_set_filter(png, PNG_FILTER_TYPE_BASE, PNG_NO_FILTERS);
  png_set_compression_level(png, 3);
  png_set_IHDR(png, info, i_u32W, i_u32H, 8, PNG_COLOR_TYPE_RGBA, PNG_INTERLACE_NONE,
               PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  png_write_info(png, info);
  png_set_bgr(png);
  std::vector<UInt32> row(i_u32W);
  for (UInt32 y = 0; y < i_u32H; ++y) {
    for (UInt32 x = 0; x < i_u32W; ++x) row[x] = Pixel(x, y, i_bGlass);
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
  // Sends i_msg and waits for the end of the refresh that it leads to, looking every i_u32LookUs so
  // as not to take a core from those that work. Microseconds.
  double Shown(const T_ModuleMsg& i_msg, UInt32 i_u32LookUs = 2) const {
    const UInt64 u64Before = Sequence();
    const auto start = T_Clock::now();
    if (SendSyncAndAsyncMsg(&i_msg, 0) == 0) std::abort();
    while (Sequence() < u64Before + 2) usleep(i_u32LookUs);
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

T_ModuleMsg Text(UInt16 i_u16Seq, UInt16 i_u16Output = 0) {
  auto* const pRecord = new T_DispRecord{};
  pRecord->m_u16Seq = i_u16Seq;
  pRecord->m_u16VoSeq = i_u16Output;
  pRecord->m_u16Time = T_DispRecord::kForever;
  pRecord->m_u32Mask = kMaskText | kMaskForever;
  pRecord->m_u16Line = 1;
  std::string("a text of some forty characters, in all.").copy(pRecord->m_aText[0], 64);
  return Message(T_OsdTextShow{pRecord});
}

T_ModuleMsg HideIcons() { return Message(T_OsdIconHide{kEveryOutput, kEveryElement, 0}); }

// Has the renderer carry out i_msg on this thread, up to the refresh; the record stays ours.
// Microseconds.
double Handled(T_ModuleMsg i_msg) {
  i_msg.m_u32MsgType = kSyncMsg;
  const auto start = T_Clock::now();
  if (SendSyncAndAsyncMsg(&i_msg, 0) == 0) Die("the renderer refused a command");
  const double taken = Since(start);
  if (i_msg.m_u32MsgNo == T_OsdTextShow::kMsgNo || i_msg.m_u32MsgNo == T_OsdIconShow::kMsgNo)
    delete i_msg.Read<T_OsdTextShow>().m_pRecord;
  return taken;
}

void Init(SInt32 i_s32Output) {
  Handled(Message(T_OsdInit{{i_s32Output, i_s32Output, 0, 0, kW, kH}}));
}

// An icon's place in memory as wide as the screen.
class CPlace {
 public:
  explicit CPlace(size_t i_width) : m_width(i_width), m_pixels(i_width * kSide, 0x20101010) {}
  UInt32* Row(size_t i_y) { return m_pixels.data() + i_y * m_width; }
  void CopyTo(CPlace& o_place) {
    for (size_t y = 0; y < kSide; ++y) std::memcpy(o_place.Row(y), Row(y), kSide * sizeof(UInt32));
  }
  pixman_image_t* Image() {
    return pixman_image_create_bits(PIXMAN_a8r8g8b8, kSide, kSide, m_pixels.data(),
                                    static_cast<int>(m_width * sizeof(UInt32)));
  }

 private:
  size_t m_width;
  std::vector<UInt32> m_pixels;
};

void CachedIcon(const CBench& i_bench, const CLayerWatch& i_watch, const char* i_pRow,
                Bool i_bGlass) {
  const std::string path = WritePicture("/icon.png", kSide, kSide, i_bGlass);
  CPlace picture(kSide);
  CPlace canvas(kW);
  CPlace layer(kW);
  pixman_image_t* const pPicture = picture.Image();
  pixman_image_t* const pCanvas = canvas.Image();
  i_watch.Shown(Icon(0x201, path));
  T_Row row;
  for (UInt32 round = 0; round < i_bench.Rounds(); ++round) {
    Handled(HideIcons());
    const double shown = Handled(Icon(0x201, path));
    const auto start = T_Clock::now();
    if (i_bGlass)
      pixman_image_composite32(PIXMAN_OP_OVER, pPicture, nullptr, pCanvas, 0, 0, 0, 0, 0, 0, kSide,
                               kSide);
    else
      picture.CopyTo(canvas);
    Written();
    canvas.CopyTo(layer);
    Written();
    row.Add(shown, Since(start));
  }
  Handled(HideIcons());
  pixman_image_unref(pPicture);
  pixman_image_unref(pCanvas);
  i_bench.Print(i_pRow, row);
}

void FirstShow(const CBench& i_bench, const CLayerWatch& i_watch) {
  const std::string path = WritePicture("/screen.png", kW, kH, false);
  std::vector<UInt32> pixels(size_t{kW} * kH);
  T_Row row;
  for (UInt32 round = 0; round < i_bench.Rounds(); ++round) {
    const timespec time{1000 + static_cast<time_t>(round), 0};  // another file, to the cache
    const timespec aTimes[] = {time, time};
    utimensat(AT_FDCWD, path.c_str(), aTimes, 0);
    const double decoded = BareDecode(path, pixels);
    row.Add(i_watch.Shown(Icon(0x202, path), 300), decoded);
  }
  Handled(HideIcons());
  i_bench.Print("first-show", row, "any core");
}

T_Figures Texts(const CLayerWatch& i_watch) {
  T_Figures times;
  for (int i = 0; i < 100; ++i) {
    times.push_back(i_watch.Shown(Text(0x101)));
    CThread::Sleep(2);
  }
  return times;
}

void TextBesideDecode(const CBench& i_bench, const CLayerWatch& i_watch) {
  const std::string huge = WritePicture("/huge.png", kMaxPictureSide, kMaxPictureSide, false);
  T_Row median;
  T_Row p99;
  for (UInt32 round = 0; round < i_bench.Rounds(); ++round) {
    const T_Figures alone = Texts(i_watch);
    const T_ModuleMsg msg = Icon(0x203, huge, 4000);
    if (SendSyncAndAsyncMsg(&msg, 0) == 0) Die("the bus refused an icon");
    const T_Figures beside = Texts(i_watch);
    Handled(HideIcons());  // which ends the decode
    CThread::Sleep(300);
    median.Add(Percentile(beside, 50), Percentile(alone, 50));
    p99.Add(Percentile(beside, 99), Percentile(alone, 99));
  }
  const char* const pNote = "any core; alone they sleep between texts, every 2 ms";
  i_bench.Print("text-beside-decode", median, pNote);
  i_bench.Print("text-beside-decode-p99", p99, pNote);
}

// Of a text that comes new each time.
double NewText(UInt16 i_u16Seq, UInt16 i_u16Output = 0) {
  T_Figures times;
  for (int i = 0; i < 50; ++i) {
    times.push_back(Handled(Text(i_u16Seq, i_u16Output)));
    Handled(Message(T_OsdDelete{i_u16Seq}));
  }
  return Percentile(times, 50);
}

void Listed(const CBench& i_bench) {
  T_Row row;
  for (UInt32 round = 0; round < i_bench.Rounds(); ++round) {
    Handled(Message(T_OsdDelete{kEveryElement}));
    const double alone = NewText(0x101);
    for (UInt8 i = 2; i <= 65; ++i) Handled(Text(Element(1, i)));
    row.Add(NewText(0x101), alone);
  }
  Handled(Message(T_OsdDelete{kEveryElement}));
  i_bench.Print("listed-65", row);
}

void Outputs(const CBench& i_bench) {
  for (SInt32 output = 1; output < 8; ++output) Init(output);
  T_Row row;
  for (UInt32 round = 0; round < i_bench.Rounds(); ++round) {
    const double one = NewText(0x102, 3);
    row.Add(NewText(0x101, kEveryOutput), one);
  }
  i_bench.Print("outputs-8", row);
}

}  // namespace

int main(int argc, char** argv) {
  const CBench bench(argc, argv);
  prctl(PR_SET_TIMERSLACK, 1);
  CThread::Initialize(0x180000);
  g_objOsdHifb.Start();
  Init(0);
  {
    const CLayerWatch watch;
    if (bench.Wants({"icon-opaque"})) CachedIcon(bench, watch, "icon-opaque", false);
    if (bench.Wants({"icon-translucent"})) CachedIcon(bench, watch, "icon-translucent", true);
    if (bench.Wants({"first-show"})) FirstShow(bench, watch);
    if (bench.Wants({"text-beside-decode", "text-beside-decode-p99"}))
      TextBesideDecode(bench, watch);
    if (bench.Wants({"listed-65"})) Listed(bench);
    if (bench.Wants({"outputs-8"})) Outputs(bench);
  }
  g_objOsdHifb.Stop();
  return 0;
}
