#include <png.h>

#include <algorithm>
#include <chrono>
#include <csetjmp>
#include <cstdio>

#include "common/osd/pictures/decoders.h"

namespace {

// Many times what the largest picture takes on a slow processor.
constexpr std::chrono::seconds kLimit{30};

// libpng leaves a failing step by longjmp, so a step has no object with a destructor; whatever
// must be freed belongs to the functions that call Attempt.
struct T_PngJob {
  CPictureFile* m_pFile;
  const std::stop_token* m_pStop;
  std::chrono::steady_clock::time_point m_limit;
  CPicture* m_pPicture = nullptr;
  png_structp m_pPng = nullptr;
  png_infop m_pInfo = nullptr;
  char m_aError[128] = "there is not enough memory for the decoder";
};

class CPngReader {
 public:
  explicit CPngReader(T_PngJob* io_pJob) : m_job(*io_pJob) {
    m_job.m_pPng = png_create_read_struct(PNG_LIBPNG_VER_STRING, io_pJob, &Fail, &Ignore);
    if (m_job.m_pPng != nullptr) m_job.m_pInfo = png_create_info_struct(m_job.m_pPng);
  }
  ~CPngReader() { png_destroy_read_struct(&m_job.m_pPng, &m_job.m_pInfo, nullptr); }
  CPngReader(const CPngReader&) = delete;
  CPngReader& operator=(const CPngReader&) = delete;

  Bool Attempt(void (*i_pStep)(T_PngJob&)) {
    if (m_job.m_pInfo == nullptr || setjmp(png_jmpbuf(m_job.m_pPng)) != 0) return false;
    i_pStep(m_job);
    return true;
  }

 private:
  [[noreturn]] static void Fail(png_structp io_pPng, png_const_charp i_pText) {
    auto& job = *static_cast<T_PngJob*>(png_get_error_ptr(io_pPng));
    std::snprintf(job.m_aError, sizeof(job.m_aError), "%s", i_pText);
    png_longjmp(io_pPng, 1);
  }
  static void Ignore(png_structp, png_const_charp) {}

  T_PngJob& m_job;
};

// The place where every long work passes: compressed data may go on for minutes behind the last row.
void ReadBytes(png_structp io_pPng, png_bytep o_pBytes, size_t i_bytes) {
  const auto& job = *static_cast<T_PngJob*>(png_get_io_ptr(io_pPng));
  if (job.m_pStop->stop_requested()) png_error(io_pPng, "stopped");
  if (std::chrono::steady_clock::now() >= job.m_limit) png_error(io_pPng, "it takes above 30 s");
  if (!job.m_pFile->Read(o_pBytes, i_bytes)) png_error(io_pPng, WhyNotRead());
}

// Of what may stand beside the pixels only the palette and the transparent colour count.
void ReadHead(T_PngJob& io_job) {
  png_set_read_fn(io_job.m_pPng, &io_job, &ReadBytes);
  png_set_compression_buffer_size(io_job.m_pPng, 1 << 16);
  png_set_crc_action(io_job.m_pPng, PNG_CRC_DEFAULT, PNG_CRC_ERROR_QUIT);
  png_set_keep_unknown_chunks(io_job.m_pPng, PNG_HANDLE_CHUNK_NEVER, nullptr, -1);
  png_read_info(io_job.m_pPng, io_job.m_pInfo);
}

// Every kind of pixel becomes one native ARGB8888 word.
void AskForWords(const T_PngJob& i_job) {
  png_structp pPng = i_job.m_pPng;
  png_set_expand(pPng);
  png_set_scale_16(pPng);
  png_set_gray_to_rgb(pPng);
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
  png_set_bgr(pPng);
  png_set_add_alpha(pPng, 0xFF, PNG_FILLER_AFTER);
#else
  png_set_swap_alpha(pPng);
  png_set_add_alpha(pPng, 0xFF, PNG_FILLER_BEFORE);
#endif
}

Bool AllOpaque(const CPicture& i_picture) {
  const UInt32* const pFirst = i_picture.Row(0);
  return std::all_of(pFirst, pFirst + i_picture.Extent().Pixels(),
                     [](UInt32 i_u32Argb) { return i_u32Argb >> 24 == 0xFF; });
}

void ReadRows(T_PngJob& io_job) {
  png_structp pPng = io_job.m_pPng;
  const T_Extent extent = io_job.m_pPicture->Extent();
  const Bool bAlpha = (png_get_color_type(pPng, io_job.m_pInfo) & PNG_COLOR_MASK_ALPHA) != 0 ||
                      png_get_valid(pPng, io_job.m_pInfo, PNG_INFO_tRNS) != 0;
  AskForWords(io_job);
  const int passes = png_set_interlace_handling(pPng);
  png_read_update_info(pPng, io_job.m_pInfo);
  if (png_get_rowbytes(pPng, io_job.m_pInfo) != size_t{extent.m_u32W} * sizeof(UInt32))
    png_error(pPng, "its pixels are of an unknown kind");
  for (int pass = 0; pass < passes; ++pass)
    for (UInt32 u32Y = 0; u32Y < extent.m_u32H; ++u32Y)
      png_read_row(pPng, reinterpret_cast<png_bytep>(io_job.m_pPicture->Row(u32Y)), nullptr);
  png_read_end(pPng, nullptr);
  io_job.m_pPicture->SetOpaque(!bAlpha || AllOpaque(*io_job.m_pPicture));
}

}  // namespace

std::optional<CPicture> DecodePng(CPictureFile& io_file, const std::stop_token& i_stop,
                                  std::string* o_pError) {
  T_PngJob job{&io_file, &i_stop, std::chrono::steady_clock::now() + kLimit};
  CPngReader reader(&job);
  if (!reader.Attempt(&ReadHead))
    return Refuse(o_pError, "its PNG cannot be decoded: %s", job.m_aError);
  const T_Extent extent{png_get_image_width(job.m_pPng, job.m_pInfo),
                        png_get_image_height(job.m_pPng, job.m_pInfo)};
  if (!IsSizeAllowed(extent.m_u32W, extent.m_u32H, o_pError)) return std::nullopt;
  std::optional<CPicture> picture = NewPicture(extent, o_pError);
  if (!picture) return std::nullopt;
  job.m_pPicture = &*picture;
  if (!reader.Attempt(&ReadRows))
    return Refuse(o_pError, "its PNG cannot be decoded: %s", job.m_aError);
  return picture;
}
