#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <zlib.h>

#include <csignal>
#include <filesystem>
#include <random>
#include <thread>

#include "common/osd/pictures/blend.h"
#include "common/osd/pictures/cache.h"
#include "common/osd/pictures/loader.h"
#include "common/osd/pictures/scaler.h"
#include "platform/platform.h"
#include "tests/log_capture.h"
#include "tests/png_files.h"

namespace {

namespace fs = std::filesystem;
using testing::ContainsRegex;
using Refusals = std::vector<std::pair<std::string, const char*>>;

constexpr UInt32 kW = 13, kH = 9, kOpaque = 0xFF000000;
std::mt19937 g_random(1);
#ifdef __SANITIZE_THREAD__
constexpr int kMutations = 50;  // its vfork copies the process; there is one thread anyway
#else
constexpr int kMutations = 500;
#endif
UInt32 Random(size_t i_below) { return static_cast<UInt32>(g_random() % i_below); }
UInt32 Channel(UInt32 i_argb, UInt32 i_channel) { return i_argb >> 8 * i_channel & 0xFF; }

void Write(const std::string& i_name, const std::string& i_bytes) {
  fs::remove(SystemPath(i_name.c_str()));  // one that is cut and written anew goes to the disk
  std::ofstream(SystemPath(i_name.c_str()), std::ios::binary) << i_bytes;
}

struct T_Sample {
  std::string m_bytes;
  std::vector<UInt32> m_pixels = std::vector<UInt32>(kW * kH);
};

// Random samples, among them the transparent one; what they mean says libpng's simple reader, which
// does not understand interlaced ones.
T_Sample Png(int i_type, int i_depth, bool i_interlaced, bool i_key, T_Extent i_size = {kW, kH}) {
  T_Sample sample{{}, std::vector<UInt32>(i_size.Pixels())};
  g_random.seed(static_cast<UInt32>(i_type * 32 + i_depth));
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png_create_info_struct(png);
  const auto append = [](png_structp p, png_bytep bytes, size_t count) {
    static_cast<std::string*>(png_get_io_ptr(p))->append(reinterpret_cast<char*>(bytes), count);
  };
  png_set_write_fn(png, &sample.m_bytes, append, nullptr);
  png_set_IHDR(png, info, i_size.m_u32W, i_size.m_u32H, i_depth, i_type, i_interlaced, 0, 0);
  png_color aPalette[256];
  for (int at = 0; at < 256; ++at) aPalette[at] = {UInt8(at * 77), UInt8(255 - at), UInt8(at / 2)};
  const auto key = static_cast<UInt16>(0x5A5A & ((1 << i_depth) - 1));
  const png_color_16 colour{0, key, key, key, key};
  if (i_type == 3) png_set_PLTE(png, info, aPalette, 1 << i_depth);
  if (i_key) png_set_tRNS(png, info, &aPalette[5].red, 1 << i_depth / 2, &colour);
  png_write_info(png, info);
  std::vector<std::string> rows(i_size.m_u32H, std::string(png_get_rowbytes(png, info), 0x5A));
  std::vector<png_bytep> pointers;
  for (std::string& row : rows) {
    for (char& byte : row) byte = Random(3) == 0 ? static_cast<char>(Random(256)) : byte;
    pointers.push_back(reinterpret_cast<png_bytep>(row.data()));
  }
  png_write_image(png, pointers.data());
  png_write_end(png, info);
  png_destroy_write_struct(&png, &info);
  if (i_interlaced) return {sample.m_bytes, Png(i_type, i_depth, false, i_key, i_size).m_pixels};
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  png_image_begin_read_from_memory(&image, sample.m_bytes.data(), sample.m_bytes.size());
  image.format = PNG_FORMAT_BGRA;
  image.flags |= PNG_IMAGE_FLAG_16BIT_sRGB;
  png_image_finish_read(&image, nullptr, sample.m_pixels.data(), 0, nullptr);
  return sample;
}

void FixChecksums(std::string& io_png) {
  for (size_t at = 8; at + 12 <= io_png.size();) {
    UInt8* const pChunk = reinterpret_cast<UInt8*>(io_png.data()) + at;
    const UInt32 u32Length = png_get_uint_32(pChunk);
    if (u32Length > io_png.size() - at - 12) return;
    const uLong sum = crc32(0, pChunk + 4, u32Length + 4);
    png_save_uint_32(pChunk + 8 + u32Length, static_cast<UInt32>(sum));
    at += u32Length + 12;
  }
}

// One pixel, and behind it what takes half a minute to decompress.
std::string Endless() {
  std::string png = Png(0, 8, false, false).m_bytes, data(2, '\0');
  png.resize(33);
  std::fill_n(png.begin() + 16, 8, '\0');
  png[19] = png[23] = 1;
  const std::string zeros(8 << 20, '\0');
  std::string block(compressBound(zeros.size()), '\0');
  z_stream stream{};
  deflateInit(&stream, 9);
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(zeros.data()));
  stream.avail_in = static_cast<uInt>(zeros.size());
  stream.next_out = reinterpret_cast<Bytef*>(block.data());
  stream.avail_out = static_cast<uInt>(block.size());
  deflate(&stream, Z_FULL_FLUSH);
  block.resize(stream.total_out);
  deflateEnd(&stream);
  data = block.substr(0, 2);
  while (data.size() < 16 << 20) data += block.substr(2);
  png += std::string(4, '\0') + "IDAT" + data + std::string(4, '\0');
  png_save_uint_32(reinterpret_cast<png_bytep>(png.data()) + 33, static_cast<UInt32>(data.size()));
  FixChecksums(png);
  return png;
}

std::string Words(const std::vector<UInt32>& i_words) {
  return {reinterpret_cast<const char*>(i_words.data()), i_words.size() * 4};
}

T_Sample Bmp(UInt32 i_bits, bool i_topDown, UInt32 i_header, UInt32 i_compression, UInt32 i_alpha) {
  const UInt32 u32Start = 14 + i_header + (i_header == 40 ? 16 : 0), u32Bits = i_bits << 16 | 1;
  T_Sample sample{"BM" + Words({0, 0, u32Start, i_header, kW, i_topDown ? -kH : kH, u32Bits,
                                i_compression, 0, 0, 0, 0, 0, 0xFF0000, 0xFF00, 0xFF, i_alpha})};
  sample.m_bytes.resize(u32Start);
  for (UInt32 at = 0; at < kW * kH; ++at) {
    const UInt32 argb = static_cast<UInt32>(g_random()), row = at / kW;
    sample.m_bytes += Words({argb}).substr(0, i_bits / 8);
    sample.m_pixels[(i_topDown ? row : kH - 1 - row) * kW + at % kW] =
        argb | (i_alpha == 0 ? kOpaque : 0);
    if (at % kW == kW - 1) sample.m_bytes.append(i_bits == 24 ? 1 : 0, '\0');
  }
  return sample;
}

T_Sample Jpeg(const std::string& i_options, bool i_grey) {
  T_Sample sample{"P6 13 9 255\n"};
  for (UInt32 at = 0; at < kW * kH; ++at) {
    const UInt32 r = at % kW * 19, g = i_grey ? r : at / kW * 28, b = i_grey ? r : 40;
    for (const UInt32 value : {r, g, b}) sample.m_bytes += static_cast<char>(value);
    sample.m_pixels[at] = kOpaque | r << 16 | g << 8 | b;
  }
  Write("/ppm", sample.m_bytes);
  const std::string jpeg = SystemPath("/jpeg"), options = " -quality 100 -sample 1x1 " + i_options;
  EXPECT_EQ(
      std::system(("cjpeg" + options + " -outfile " + jpeg + " " + SystemPath("/ppm")).c_str()), 0);
  sample.m_bytes = ReadFile(jpeg);
  return sample;
}

std::vector<T_Sample> Corpus() {
  std::vector<T_Sample> corpus{
      Jpeg("", false),           Jpeg("-grayscale", true),      Jpeg("-progressive", false),
      Bmp(24, false, 40, 0, 0),  Bmp(24, true, 124, 0, 0),      Bmp(32, true, 40, 0, 0),
      Bmp(32, false, 108, 3, 0), Bmp(32, true, 56, 3, kOpaque), Bmp(32, false, 40, 6, kOpaque)};
  const std::pair<int, int> kinds[] = {{0, 1}, {0, 2},  {0, 4},  {0, 8}, {0, 16},
                                       {2, 8}, {2, 16}, {3, 1},  {3, 2}, {3, 4},
                                       {3, 8}, {4, 8},  {4, 16}, {6, 8}, {6, 16}};
  corpus[0].m_bytes.insert(2, "\xFF\xFF");  // fill bytes
  for (const auto& [type, depth] : kinds)
    for (const int variant : {0, 1, 2, 3})
      if (variant < 2 || type < 4)
        corpus.push_back(Png(type, depth, variant % 2 == 1, variant > 1));
  return corpus;
}

class Pictures : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    char aRoot[] = "/tmp/osd-pictures.XXXXXX";
    setenv("OSD_ROOT", mkdtemp(aRoot), 1);
    fs::create_directory(SystemPath("/yuvfile"));
  }
  static void TearDownTestSuite() { fs::remove_all(SystemPath("")); }
  void TearDown() override {
    EXPECT_TRUE(fs::is_empty(SystemPath("/yuvfile")));
    EXPECT_EQ(Descriptors(), m_before);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a process is left";
  }
  static long Descriptors() { return std::distance(fs::directory_iterator("/proc/self/fd"), {}); }

  static CResult<T_Loaded> Load(const std::string& i_name, std::stop_token i_stop = {}) {
    const T_WantedSize own{{}, {8192, 8192}};
    return LoadPicture(i_name, std::span(&own, 1), i_stop);
  }
  static CResult<T_Loaded> LoadBytes(const std::string& i_bytes) {
    Write("/picture.txt", i_bytes);
    return Load("/picture.txt");
  }

  const long m_before = Descriptors();
};

TEST_F(Pictures, EveryVariantGivesItsPixelsAndADamagedOneIsRefusedOrSane) {
  for (const auto& [bytes, pixels] : Corpus()) {
    SCOPED_TRACE(testing::PrintToString(bytes.substr(0, 32)));
    const CResult<T_Loaded> loaded = LoadBytes(bytes);
    ASSERT_EQ(loaded.Why(), "");
    ASSERT_EQ(loaded->m_stOwn, (T_Extent{kW, kH}));
    const CPicture& picture = *loaded->m_vecPictures[0];
    const bool lossy = bytes[0] == '\xFF';
    for (UInt32 at = 0; at < pixels.size() * 4; ++at)
      ASSERT_NEAR(Channel(picture.Row(0)[at / 4], at % 4), Channel(pixels[at / 4], at % 4),
                  lossy && at % 4 < 3 ? 6 : 0);
    EXPECT_EQ(picture.IsOpaque(), *std::min_element(pixels.begin(), pixels.end()) >= kOpaque);
    for (size_t kept = 0; kept < bytes.size(); kept += lossy ? 16 : 1)  // each costs a process
      ASSERT_FALSE(LoadBytes(bytes.substr(0, kept))) << kept << " bytes";
    for (int mutation = 0; mutation < kMutations; ++mutation) {
      std::string mutant = bytes;
      for (UInt32 count = 1 + Random(4); count > 0; --count)
        mutant[Random(mutant.size())] = static_cast<char>(Random(256));
      if (mutation % 2 == 0 && bytes[1] == 'P') FixChecksums(mutant);
      const CResult<T_Loaded> result = LoadBytes(mutant);
      if (!result) continue;
      ASSERT_LE(std::max(result->m_stOwn.m_u32W, result->m_stOwn.m_u32H), CPicture::kMaxSide);
    }
  }
}

// Of each canvas, the first as large as the picture.
TEST_F(Pictures, AnOverlayIsLaidOverWholeOrNotAtAll) {
  const T_Extent over{5, 20};
  const T_Sample below = Png(6, 8, true, false), above = Png(4, 8, true, false, over);
  const T_Extent canvases[] = {{kW, kH}, {40, 9}};
  Write("/below", below.m_bytes);
  for (size_t kept = above.m_bytes.size(); kept > 0; --kept) {
    Write("/above", above.m_bytes.substr(0, kept));
    CLogCapture log;
    const CResult<T_Loaded> loaded = LoadScreen("/below", "/above", canvases, {});
    const bool whole = kept == above.m_bytes.size();
    ASSERT_EQ(log.Take().size(), whole ? 0 : 1) << kept;
    for (UInt32 at = 0; at < kW * kH; ++at) {
      const UInt32 x = at % kW - 4, y = at / kW + 5;  // of the overlay
      UInt32 pixel = below.m_pixels[at];
      if (whole && x < 5) pixel = SourceOver(above.m_pixels[y * 5 + x], pixel, 255);
      pixel = SourceOver(pixel, kOpaque, 255);
      ASSERT_EQ(loaded->m_vecPictures[0]->Row(0)[at], pixel) << kept << " " << at;
      ASSERT_EQ(loaded->m_vecPictures[1]->Row(at / kW)[at % kW + 13], pixel);
    }
  }
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
TEST_F(Pictures, AHugeOneTakesLittleMoreThanWhatIsMadeOfIt) {
  for (const bool interlaced : {false, true}) {
    Write("/huge", Png(3, 1, interlaced, true, {8192, 3000}).m_bytes);
    const T_WantedSize sizes[] = {
        {{1920, 1080}, {1920, 1080}}, {{}, {1920, 1080}}, {{1, 0}, {1, 1}}};
    const pid_t child = fork();
    if (child == 0) {
      rlim_t pages = 0;
      std::ifstream("/proc/self/statm") >> pages;
      const rlim_t most = pages * 4096 + (64 << 20) + 2 * 1920 * 1080 * 4;
      const rlimit limit{most, most};
      setrlimit(RLIMIT_AS, &limit);
      _exit(LoadPicture("/huge", sizes, {})->m_vecPictures.size() == 3 ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
  }
}
#endif

TEST_F(Pictures, WhatIsNoPictureIsRefusedInWords) {
  const std::string png = Png(2, 8, false, false).m_bytes, bmp = Bmp(24, false, 40, 0, 0).m_bytes;
  const auto patched = [](std::string bytes, size_t at, const std::vector<UInt32>& words) {
    return bytes.replace(at, words.size() * 4, Words(words));
  };
  std::string bomb = patched(png, 16, {0x60EA0000, 0x60EA0000});
  FixChecksums(bomb);
  for (const auto& [bytes, why] :
       Refusals{{"", "it is empty"},
                {"hello", "it is not a PNG, JPEG or BMP file"},
                {bomb, "its 60000 x 60000 pixels exceed 8192 a side"},
                {patched(bmp, 18, {9000, 10}), "its 9000 x 10 pixels exceed 8192 a side"},
                {{"\xFF\xD8\xFF\xC0\0\x0B\x08\0\x0A\x23\x28\x01", 12}, "its 9000 x 10 pixels"},
                {patched(bmp, 18, {0x80000000}), "its width is negative"},
                {patched(bmp, 22, {0x80000000}), "its 13 x 2147483648 pixels exceed 8192"},
                {patched(bmp, 18, {0}), "its 0 x 9 pixels are none"},
                {patched(bmp, 28, {8}), "8 bits a pixel"},
                {patched(bmp, 30, {1}), "compression 1 is not read"}})
    EXPECT_THAT(LoadBytes(bytes).Why(), ContainsRegex(why));
  Write("/sparse", png);
  fs::resize_file(SystemPath("/sparse"), 64 << 20);
  EXPECT_EQ(Load("/sparse").Why(), "");
  fs::resize_file(SystemPath("/sparse"), (64 << 20) + 1);
  mkfifo(SystemPath("/pipe").c_str(), 0600);
  for (const auto& [path, why] : Refusals{{"/missing", "No such file"},
                                          {"/", "it is a folder, not a file"},
                                          {"/pipe", "it is a pipe, not a file"},
                                          {"/dev/zero", "it is a device, not a file"},
                                          {"/sparse", "its 67108865 bytes exceed 67108864"}})
    EXPECT_THAT(Load(path).Why(), ContainsRegex(why));
}

TEST_F(Pictures, ADecoderThatMisbehavesIsEndedAndExplained) {
  const std::string path = std::getenv("PATH"), root = SystemPath(""), alive = root + "/alive";
  const std::string name = "/a '\";$(touch x)\n\xFF.png", jpeg = Jpeg("", false).m_bytes;
  const std::string lingering = "exec 3>" + alive + "; echo >&3; sleep 1000 &\n";
#ifdef __aarch64__  // emulated: the limit of memory is not passed on
  const char* const pLimits = "7: 60 unlimited 0$";
#else
  const char* const pLimits = "7: 60 1048576 0$";
#endif
  fs::create_directory(root + "/bin");
  mkfifo(alive.c_str(), 0600);
  const SInt32 pipe = open(alive.c_str(), O_RDONLY | O_NONBLOCK);
  setenv("PATH", (root + "/bin").c_str(), 1);
  Write(name, jpeg);
  EXPECT_THAT(Load(name).Why(), ContainsRegex("not installed .*libjpeg-turbo-progs"));
  for (const auto& [script, why] :
       Refusals{{"exec djpeg \"$@\"", "^$"},
                {": >/proc/self/fd/0", "it changed while it was read"},
                {"echo $(ulimit -t; ulimit -v; ulimit -c) >&2; exit 7", pLimits},
                {"echo BMgarbage", "djpeg did not give its 13 x 9 pixels: it ends too early"},
                {"printf 'bad\\033 file\\nmore' >&2; exit 7", "failed with 7: bad\\? file$"},
                {"exec cat /dev/zero", "File size limit"},
                {lingering, "djpeg did not give"},
                {lingering + "exec perl -e 'setpgrp(0, getpgrp(getppid)); sleep 1000'",
                 "djpeg did not end within 5 s and was killed"}}) {
    Write("/bin/djpeg", "#!/bin/sh\nPATH=" + path + "\n" + script);
    fs::permissions(root + "/bin/djpeg", fs::perms::owner_all);
    Write(name, jpeg);
    EXPECT_THAT(Load(name).Why(), ContainsRegex(why));
    char aBytes[2];
    fcntl(pipe, F_SETFL, 0);  // read awaits the end of all that may write
    EXPECT_EQ(read(pipe, aBytes, 2), script.starts_with(lingering) ? 1 : 0);
    EXPECT_EQ(read(pipe, aBytes, 2), 0);
  }
  setenv("PATH", path.c_str(), 1);
  close(pipe);
}

TEST_F(Pictures, WhatADecoderLacksIsExplained) {
  Jpeg("", false);
  fs::rename(SystemPath("/yuvfile"), SystemPath("/elsewhere"));
  EXPECT_THAT(Load("/jpeg").Why(), ContainsRegex("folder .*/yuvfile: No such file"));
  fs::rename(SystemPath("/elsewhere"), SystemPath("/yuvfile"));
  rlimit limit{};
  getrlimit(RLIMIT_FSIZE, &limit);
  const rlimit little{100, limit.rlim_max};
  std::signal(SIGXFSZ, SIG_IGN);  // here, not in the decoder
  setrlimit(RLIMIT_FSIZE, &little);
  EXPECT_THAT(Load("/jpeg").Why(), ContainsRegex("yuvfile.*File size limit"));
  setrlimit(RLIMIT_FSIZE, &limit);
  // The last, since the sanitizer needs descriptors where it comes for the first time.
  getrlimit(RLIMIT_NOFILE, &limit);
  const int lowest = dup(STDIN_FILENO);
  close(lowest);
  const rlimit few{static_cast<rlim_t>(lowest) + 1, limit.rlim_max};  // for one, and no second
  setrlimit(RLIMIT_NOFILE, &few);
  EXPECT_THAT(Load("/jpeg").Why(), ContainsRegex("Too many open files"));
  setrlimit(RLIMIT_NOFILE, &limit);
}

TEST_F(Pictures, AnEndlessOneIsStopped) {
  Write("/endless", Endless());
  std::jthread([&](std::stop_token i_stop) {
    EXPECT_THAT(Load("/endless", i_stop).Why(), ContainsRegex("decoded: stopped"));
  });
}

TEST_F(Pictures, AreKeptUpToEightAnd32MiBTheLastUsedOnes) {
  CPictureCache cache;
  const auto keep = [&](const std::string& i_path, const T_Extent& i_size) {
    cache.Keep(i_path, {}, i_size, {{}, i_size}, std::make_shared<CPicture>(i_size));
    std::string known;
    for (const char path : std::string("123456789")) known.append(cache.Knows({path}), path);
    return known;
  };
  for (const char path : std::string("1122334455667788")) keep({path}, {1, 1});
  EXPECT_NE(cache.Find("1", {}, {{}, {1, 1}}), nullptr);
  EXPECT_EQ(keep("9", {1, 1}), "13456789");
  keep("2", {2048, 2048});
  EXPECT_EQ(keep("3", {2048, 2047}), "12356789");
  EXPECT_EQ(keep("4", {2049, 1}), "34");
  EXPECT_EQ(keep("5", {2048, 4097}), "34");
}

// What one px of a side is made of: the covered area, or its two neighbours.
std::vector<std::pair<UInt32, double>> Sources(UInt32 i_from, UInt32 i_to, UInt32 i_at) {
  const double ratio = double(i_from) / i_to, begin = i_at * ratio;
  const double middle = std::clamp(begin + ratio / 2 - 0.5, 0.0, i_from - 1.0);
  std::vector<std::pair<UInt32, double>> sources;
  for (UInt32 at = 0; at < i_from; ++at) {
    const double covered = std::min(begin + ratio, at + 1.0) - std::max<double>(begin, at);
    const double weight = i_to < i_from ? covered / ratio : 1 - std::abs(middle - at);
    if (weight > 0) sources.emplace_back(at, weight);
  }
  return sources;
}

struct {
  T_Extent m_from, m_to;
  UInt32 m_block;  // side of the squares of one colour, which falls on whole px
} const kSizes[] = {
    {{61, 47}, {17, 11}, 1},    {{9, 7}, {50, 30}, 1},       {{40, 5}, {7, 33}, 1},
    {{5, 40}, {33, 7}, 1},      {{5, 40}, {5, 7}, 1},        {{8192, 2}, {1, 1}, 1},
    {{9, 300}, {9, 3}, 1},      {{300, 300}, {2, 3}, 1},     {{3, 2}, {700, 30}, 1},
    {{99, 98}, {98, 99}, 1},    {{60, 45}, {20, 15}, 1},     {{8, 6}, {4, 3}, 2},
    {{28, 21}, {4, 3}, 7},      {{2000, 1000}, {4, 2}, 500}, {{777, 555}, {13, 99}, 9999},
    {{777, 55}, {5, 99}, 9999}, {{9, 5}, {99, 77}, 9999},    {{60, 300}, {70, 700}, 1},
    {{70, 300}, {60, 299}, 1},  {{3000, 40}, {20, 90}, 1}};

TEST_F(Pictures, ScalingIsTheMeanOfTheAreaOrBilinear) {
  for (const auto& [from, to, block] : kSizes)
    for (const UInt32 opaque : {kOpaque, 0u}) {
      CPicture picture(from);
      for (size_t at = 0; at < from.Pixels(); ++at) {
        const auto x = static_cast<UInt32>(at % from.m_u32W),
                   y = static_cast<UInt32>(at / from.m_u32W);
        const auto random = static_cast<UInt32>(g_random());
        picture.Row(y)[x] = x % block + y % block != 0 ? picture.Row(y - y % block)[x - x % block]
                            : opaque == 0              ? random
                                          : (random & 0x01010101) * 255 | opaque;  // sharp edges
      }
      const T_Extent seen{to.m_u32W / 2 + 1, to.m_u32H / 2 + 1};
      CPicture scaled(seen);
      CScaler scaler(from, opaque == 0, to, scaled.Middle(seen));
      for (UInt32 y = 0; y < from.m_u32H; ++y) scaler.Take(picture.Row(y));
      scaler.Finish();
      for (UInt32 at = 0; at < seen.Pixels() * 4; ++at) {
        const UInt32 is = scaled.Row(0)[at / 4], pixel = at / 4, channel = at % 4;
        const auto premultiplied = [&](UInt32 argb) {
          return channel == 3 ? argb >> 24 : Channel(argb, channel) * (argb >> 24) / 255.0;
        };
        double sum = 0;
        for (const auto& [y, high] : Sources(from.m_u32H, to.m_u32H, pixel / seen.m_u32W))
          for (const auto& [x, wide] : Sources(from.m_u32W, to.m_u32W, pixel % seen.m_u32W))
            sum += high * wide * premultiplied(picture.Row(y)[x]);
        ASSERT_NEAR(premultiplied(is), sum, opaque != 0 && block > 1 ? 0.01 : 3)
            << from.m_u32W << " px to " << to.m_u32W << " at " << pixel;
        ASSERT_GE(is, opaque);
      }
    }
}

TEST_F(Pictures, BlendingIsExact) {
  const UInt32 corners[] = {0, 1, 127, 128, 254, 255};
  const auto any = [&] { return Random(2) == 0 ? corners[Random(6)] : Random(256); };
  for (int turn = 0; turn < 20000; ++turn) {
    std::vector<UInt32> over(1 + Random(130)), under(over.size());
    const UInt32 opacity = any();
    for (auto* const pRow : {&over, &under}) {
      const UInt32 same = any(), mixed = Random(2);  // rows of one alpha take quicker ways
      for (UInt32& pixel : *pRow)
        pixel = (mixed != 0 ? any() : same) << 24 | (static_cast<UInt32>(g_random()) & 0xFFFFFF);
    }
    std::vector<UInt32> is = under;
    BlendRow(over.data(), is.data(), static_cast<UInt32>(is.size()), opacity);
    for (size_t at = 0; at < is.size(); ++at)
      ASSERT_EQ(is[at], SourceOver(over[at], under[at], opacity))
          << over[at] << " over " << under[at] << " by " << opacity;
  }
}

}  // namespace
