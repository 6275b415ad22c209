#include <png.h>

#include <algorithm>
#include <bit>
#include <chrono>
#include <csetjmp>
#include <cstdio>
#include <vector>

#include "common/osd/pictures/row_reader.h"

namespace {

using T_Clock = std::chrono::steady_clock;

// For what may stand behind the last row; the rows themselves bound their own work.
constexpr std::chrono::seconds kTailLimit{30};

struct T_PngHead {
  T_Extent m_stExtent;
  Bool m_bAlpha;
  Bool m_bInterlaced;
};

// libpng leaves a failing step by longjmp, so a step has no object with a destructor; whatever
// must be freed belongs to the functions that call Attempt. Each reader is at its own place in the
// file.
class CPngReader {
 public:
  CPngReader(const T_File& i_pFile, const std::stop_token& i_stop)
      : m_pFile(i_pFile), m_stop(i_stop) {
    m_pPng = png_create_read_struct(PNG_LIBPNG_VER_STRING, this, &Fail, &Ignore);
    if (m_pPng != nullptr) m_pInfo = png_create_info_struct(m_pPng);
  }
  ~CPngReader() { png_destroy_read_struct(&m_pPng, &m_pInfo, nullptr); }
  CPngReader(const CPngReader&) = delete;
  CPngReader& operator=(const CPngReader&) = delete;

  CResult<T_PngHead> ReadHead();
  // To the first row of pass i_pass; the rows will have i_stExtent.m_u32W words.
  CResult<> GoTo(size_t i_pass, const T_Extent& i_stExtent) {
    m_u32W = i_stExtent.m_u32W;
    m_rowsBefore = i_pass * i_stExtent.m_u32H;
    return Attempt(&Begin);
  }
  // Puts those px of the next row that belong to the pass, in bytes.
  CResult<> Read(UInt32* io_pRow) {
    m_pRow = io_pRow;
    return Attempt(&Row);
  }
  CResult<> Finish() {
    m_limit = T_Clock::now() + kTailLimit;
    return Attempt(&Tail);
  }

 private:
  [[noreturn]] static void Fail(png_structp io_pPng, png_const_charp i_pText) {
    auto& reader = *static_cast<CPngReader*>(png_get_error_ptr(io_pPng));
    std::snprintf(reader.m_szError, sizeof(reader.m_szError), "%s", i_pText);
    png_longjmp(io_pPng, 1);
  }
  static void Ignore(png_structp, png_const_charp) {}
  static void ReadBytes(png_structp io_pPng, png_bytep o_pBytes, size_t i_bytes);
  Bool Fetch(png_bytep o_pBytes, size_t i_bytes);

  CResult<> Attempt(void (*i_pStep)(CPngReader&)) {
    if (m_pInfo == nullptr || setjmp(png_jmpbuf(m_pPng)) != 0)
      return Refuse("its PNG cannot be decoded: %s", m_szError);
    i_pStep(*this);
    return {};
  }

  static void Head(CPngReader& io_reader);
  static void Begin(CPngReader& io_reader);
  static void Row(CPngReader& io_reader) {
    png_read_row(io_reader.m_pPng, reinterpret_cast<png_bytep>(io_reader.m_pRow), nullptr);
  }
  static void Tail(CPngReader& io_reader) { png_read_end(io_reader.m_pPng, nullptr); }

  const T_File m_pFile;
  const std::stop_token m_stop;
  size_t m_offset = 0;
  T_Clock::time_point m_limit = T_Clock::time_point::max();
  png_structp m_pPng = nullptr;
  png_infop m_pInfo = nullptr;
  UInt32 m_u32W = 0;
  size_t m_rowsBefore = 0;
  UInt32* m_pRow = nullptr;
  char m_szError[128] = "there is not enough memory for the decoder";
};

// The place where every long work passes: compressed data may go on for minutes behind the last
// row.
void CPngReader::ReadBytes(png_structp io_pPng, png_bytep o_pBytes, size_t i_bytes) {
  auto& reader = *static_cast<CPngReader*>(png_get_io_ptr(io_pPng));
  if (reader.m_stop.stop_requested()) png_error(io_pPng, "stopped");
  if (T_Clock::now() >= reader.m_limit) png_error(io_pPng, "it takes above 30 s");
  if (!reader.Fetch(o_pBytes, i_bytes)) png_longjmp(io_pPng, 1);
}

// The refusal, which has a destructor, does not live to see the longjmp.
Bool CPngReader::Fetch(png_bytep o_pBytes, size_t i_bytes) {
  m_pFile->Seek(m_offset);
  const CResult<> read = m_pFile->Read(o_pBytes, i_bytes);
  if (!read) std::snprintf(m_szError, sizeof(m_szError), "%s", read.Why().c_str());
  m_offset = m_pFile->Offset();
  return static_cast<Bool>(read);
}

// Of what may stand beside the pixels only the palette and the transparent colour count.
void CPngReader::Head(CPngReader& io_reader) {
  png_structp pPng = io_reader.m_pPng;
  png_set_read_fn(pPng, &io_reader, &ReadBytes);
  png_set_compression_buffer_size(pPng, 1 << 16);
  png_set_crc_action(pPng, PNG_CRC_DEFAULT, PNG_CRC_ERROR_QUIT);
  png_set_keep_unknown_chunks(pPng, PNG_HANDLE_CHUNK_NEVER, nullptr, -1);
  png_read_info(pPng, io_reader.m_pInfo);
}

CResult<T_PngHead> CPngReader::ReadHead() {
  if (const CResult<> read = Attempt(&Head); !read) return read.Refusal();
  const Bool bAlpha = (png_get_color_type(m_pPng, m_pInfo) & PNG_COLOR_MASK_ALPHA) != 0 ||
                      png_get_valid(m_pPng, m_pInfo, PNG_INFO_tRNS) != 0;
  return T_PngHead{{png_get_image_width(m_pPng, m_pInfo), png_get_image_height(m_pPng, m_pInfo)},
                   bAlpha,
                   png_get_interlace_type(m_pPng, m_pInfo) != PNG_INTERLACE_NONE};
}

// Every kind of pixel becomes four bytes, red first.
void AskForBytes(png_structp io_pPng) {
  png_set_expand(io_pPng);
  png_set_scale_16(io_pPng);
  png_set_gray_to_rgb(io_pPng);
  png_set_add_alpha(io_pPng, 0xFF, PNG_FILLER_AFTER);
}

// One pixel's four bytes, as they lie in memory, as a native ARGB8888 word. libpng could give these
// at once, byte by byte in several times the time.
UInt32 ArgbOf(UInt32 i_u32Bytes) {
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
  return (i_u32Bytes & 0xFF00FF00) | std::rotl(i_u32Bytes & 0x00FF00FF, 16);
#else
  return std::rotr(i_u32Bytes, 8);
#endif
}

void CPngReader::Begin(CPngReader& io_reader) {
  png_structp pPng = io_reader.m_pPng;
  AskForBytes(pPng);
  png_set_interlace_handling(pPng);
  png_read_update_info(pPng, io_reader.m_pInfo);
  if (png_get_rowbytes(pPng, io_reader.m_pInfo) != size_t{io_reader.m_u32W} * sizeof(UInt32))
    png_error(pPng, "its pixels are of an unknown kind");
  for (size_t row = 0; row < io_reader.m_rowsBefore; ++row) png_read_row(pPng, nullptr, nullptr);
}

// No row of an interlaced picture is complete before the last pass. Instead of the picture, a
// reader for each pass is kept: together they decode it twice, for each pass has as much as all
// before it.
class CPngRows : public CRowReader {
 public:
  CPngRows(const T_PngHead& i_head, std::vector<std::unique_ptr<CPngReader>> i_passes)
      : CRowReader(i_head.m_stExtent, i_head.m_bAlpha), m_passes(std::move(i_passes)) {}

  CResult<> Read(UInt32* o_pRow) override {
    for (const auto& pPass : m_passes)
      if (CResult<> read = pPass->Read(o_pRow); !read) return read;
    std::transform(o_pRow, o_pRow + Extent().m_u32W, o_pRow, &ArgbOf);
    return {};
  }
  CResult<> Finish() override { return m_passes.back()->Finish(); }

 private:
  const std::vector<std::unique_ptr<CPngReader>> m_passes;
};

}  // namespace

CResult<T_Rows> ReadPng(const T_File& i_pFile, const std::stop_token& i_stop) {
  std::vector<std::unique_ptr<CPngReader>> passes;
  T_PngHead head{};
  do {
    passes.push_back(std::make_unique<CPngReader>(i_pFile, i_stop));
    CResult<T_PngHead> read = passes.back()->ReadHead();
    if (!read) return read.Refusal();
    if (passes.size() == 1) head = *read;
    const CResult<> size = CheckSize(head.m_stExtent.m_u32W, head.m_stExtent.m_u32H);
    if (!size) return size.Refusal();
    const CResult<> begun = passes.back()->GoTo(passes.size() - 1, head.m_stExtent);
    if (!begun) return begun.Refusal();
  } while (head.m_bInterlaced && passes.size() < PNG_INTERLACE_ADAM7_PASSES);
  return T_Rows(new CPngRows(head, std::move(passes)));
}
