#include <algorithm>
#include <array>
#include <cstring>
#include <vector>

#include "common/osd/pictures/row_reader.h"

namespace {

// Offsets in the file. The masks stand there with every header: behind it, or in it.
constexpr size_t kFileHeader = 14;
constexpr size_t kPixelOffset = 10;
constexpr size_t kHeaderBytes = 14;
constexpr size_t kWidth = 18;
constexpr size_t kHeight = 22;
constexpr size_t kBitsPerPixel = 28;
constexpr size_t kCompression = 30;
constexpr size_t kMasks = 54;
constexpr size_t kAlphaMask = 66;
constexpr size_t kHead = 70;

// What stands at kCompression.
enum : UInt32 { kPlain = 0, kBitFields = 3, kAlphaBitFields = 6 };
constexpr UInt32 kHeaderSizes[] = {40, 52, 56, 108, 124};
constexpr UInt32 kOpaque = 0xFF000000;
constexpr UInt8 kStandardMasks[] = {0, 0, 0xFF, 0, 0, 0xFF, 0, 0, 0xFF, 0, 0, 0};

class CHead {
 public:
  // Masks that a short header leaves out stay 0.
  CResult<> Read(CPictureFile& io_file) {
    if (CResult<> read = io_file.Read(m_aBytes.data(), kMasks); !read) return read;
    const size_t masks = std::min(MaskBytes(), kHead - kMasks);
    return io_file.Read(m_aBytes.data() + kMasks, masks);
  }

  UInt32 Word(size_t i_offset) const {
    UInt32 u32Word = 0;
    for (size_t byte = 4; byte-- > 0;) u32Word = u32Word << 8 | m_aBytes[i_offset + byte];
    return u32Word;
  }
  UInt32 Bits() const { return Word(kBitsPerPixel) & 0xFFFF; }
  Bool HasMasks() const { return Word(kCompression) != kPlain; }
  // Bytes before which no pixel can stand.
  size_t End() const {
    return std::max(kFileHeader + Word(kHeaderBytes), HasMasks() ? kMasks + MaskBytes() : 0);
  }
  Bool AreMasksStandard() const {
    return std::memcmp(&m_aBytes[kMasks], kStandardMasks, sizeof(kStandardMasks)) == 0 &&
           (Word(kAlphaMask) == 0 || Word(kAlphaMask) == kOpaque);
  }
  Bool HasAlpha() const { return HasMasks() && Word(kAlphaMask) != 0; }

 private:
  size_t MaskBytes() const {
    const UInt32 u32Header = Word(kHeaderBytes);
    if (u32Header >= 56 || Word(kCompression) == kAlphaBitFields) return 16;
    return u32Header == 52 || HasMasks() ? 12 : 0;
  }

  std::array<UInt8, kHead> m_aBytes{};
};

CResult<> CheckKind(const CHead& i_head) {
  const UInt32 u32Compression = i_head.Word(kCompression);
  const UInt32 u32Header = i_head.Word(kHeaderBytes);
  const UInt32 u32Bits = i_head.Bits();
  if (std::find(std::begin(kHeaderSizes), std::end(kHeaderSizes), u32Header) ==
      std::end(kHeaderSizes))
    return Refuse("its BMP header of %u bytes is of an unknown kind", u32Header);
  if (u32Bits != 24 && u32Bits != 32)
    return Refuse("its BMP has %u bits a pixel, not 24 or 32", u32Bits);
  const Bool bMasks = u32Compression == kBitFields || u32Compression == kAlphaBitFields;
  if (u32Compression != kPlain && (u32Bits == 24 || !bMasks))
    return Refuse("its BMP compression %u is not read", u32Compression);
  if (i_head.HasMasks() && !i_head.AreMasksStandard())
    return Refuse("its BMP has colour masks that are not read");
  return {};
}

// The rows' place in the file, and what their bytes mean.
struct T_Layout {
  size_t m_start;
  size_t m_stride;  // bytes, a multiple of 4
  Bool m_bTopDown;
  UInt32 m_u32Bits;
};

void ExpandRow(const UInt8* i_pBgr, UInt32* o_pArgb, UInt32 i_u32Count) {
  for (UInt32 u32X = 0; u32X < i_u32Count; ++u32X, i_pBgr += 3)
    o_pArgb[u32X] = kOpaque | UInt32{i_pBgr[2]} << 16 | UInt32{i_pBgr[1]} << 8 | i_pBgr[0];
}

void ConvertRow(const UInt8* i_pBgra, UInt32* o_pArgb, UInt32 i_u32Count, UInt32 i_u32Or) {
  for (UInt32 u32X = 0; u32X < i_u32Count; ++u32X, i_pBgra += 4)
    o_pArgb[u32X] = i_u32Or | UInt32{i_pBgra[3]} << 24 | UInt32{i_pBgra[2]} << 16 |
                    UInt32{i_pBgra[1]} << 8 | i_pBgra[0];
}

class CBmpRows : public CRowReader {
 public:
  CBmpRows(const T_File& i_pFile, const T_Extent& i_stExtent, Bool i_bAlpha,
           const T_Layout& i_layout)
      : CRowReader(i_stExtent, i_bAlpha),
        m_pFile(i_pFile),
        m_layout(i_layout),
        m_bytes(i_layout.m_stride) {}

  CResult<> Read(UInt32* o_pRow) override {
    const auto [w, h] = Extent();
    const size_t row = m_layout.m_bTopDown ? m_u32Y : h - 1 - m_u32Y;
    ++m_u32Y;
    m_pFile->Seek(m_layout.m_start + row * m_layout.m_stride);
    if (CResult<> read = m_pFile->Read(m_bytes.data(), m_bytes.size()); !read) return read;
    if (m_layout.m_u32Bits == 24)
      ExpandRow(m_bytes.data(), o_pRow, w);
    else
      ConvertRow(m_bytes.data(), o_pRow, w, HasAlpha() ? 0 : kOpaque);
    return {};
  }

 private:
  const T_File m_pFile;
  const T_Layout m_layout;
  std::vector<UInt8> m_bytes;  // of one row
  UInt32 m_u32Y = 0;
};

}  // namespace

CResult<T_Rows> ReadBmp(const T_File& i_pFile, const std::stop_token&) {
  CHead head;
  if (const CResult<> read = head.Read(*i_pFile); !read) return read.Refusal();
  if (const CResult<> kind = CheckKind(head); !kind) return kind.Refusal();
  const SInt64 s64W = static_cast<SInt32>(head.Word(kWidth));
  const SInt64 s64H = static_cast<SInt32>(head.Word(kHeight));
  if (s64W < 0) return Refuse("its width is negative");
  const auto u64H = static_cast<UInt64>(s64H < 0 ? -s64H : s64H);
  if (const CResult<> size = CheckSize(static_cast<UInt64>(s64W), u64H); !size)
    return size.Refusal();
  const size_t stride = (static_cast<size_t>(s64W) * head.Bits() / 8 + 3) / 4 * 4;
  const T_Layout layout{head.Word(kPixelOffset), stride, s64H < 0, head.Bits()};
  if (layout.m_start < head.End()) return Refuse("its BMP pixels start within the header");
  if (layout.m_start + u64H * stride > i_pFile->Bytes()) return Refuse("it ends too early");
  const T_Extent extent{static_cast<UInt32>(s64W), static_cast<UInt32>(u64H)};
  return T_Rows(new CBmpRows(i_pFile, extent, head.HasAlpha(), layout));
}
