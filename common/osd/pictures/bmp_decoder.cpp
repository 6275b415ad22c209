#include <algorithm>
#include <array>
#include <cstring>
#include <vector>

#include "common/osd/pictures/decoders.h"

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

enum ECompression : UInt32 { kPlain = 0, kBitFields = 3, kAlphaBitFields = 6 };
constexpr UInt32 kHeaderSizes[] = {40, 52, 56, 108, 124};
constexpr UInt32 kOpaque = 0xFF000000;
constexpr UInt8 kStandardMasks[] = {0, 0, 0xFF, 0, 0, 0xFF, 0, 0, 0xFF, 0, 0, 0};

class CHead {
 public:
  // Masks that a short header leaves out stay 0.
  Bool Read(CPictureFile& io_file) {
    if (!io_file.Read(m_aBytes.data(), kMasks)) return false;
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

Bool IsKindRead(const CHead& i_head, std::string* o_pError) {
  const UInt32 u32Compression = i_head.Word(kCompression);
  const UInt32 u32Header = i_head.Word(kHeaderBytes);
  if (std::find(std::begin(kHeaderSizes), std::end(kHeaderSizes), u32Header) ==
      std::end(kHeaderSizes))
    Refuse(o_pError, "its BMP header of %u bytes is of an unknown kind", u32Header);
  else if (i_head.Bits() != 24 && i_head.Bits() != 32)
    Refuse(o_pError, "its BMP has %u bits a pixel, not 24 or 32", i_head.Bits());
  else if (u32Compression != kPlain && (i_head.Bits() == 24 || (u32Compression != kBitFields &&
                                                                u32Compression != kAlphaBitFields)))
    Refuse(o_pError, "its BMP compression %u is not read", u32Compression);
  else if (i_head.HasMasks() && !i_head.AreMasksStandard())
    Refuse(o_pError, "its BMP has colour masks that are not read");
  else
    return true;
  return false;
}

struct T_BmpRows {
  size_t m_start;
  size_t m_stride;  // bytes, a multiple of 4
  Bool m_bTopDown;
};

Bool AreRowsThere(const T_BmpRows& i_rows, const CHead& i_head, UInt64 i_u64H, size_t i_bytes,
                  std::string* o_pError) {
  if (i_rows.m_start < i_head.End())
    Refuse(o_pError, "its BMP pixels start within the header");
  else if (i_rows.m_start + i_u64H * i_rows.m_stride > i_bytes)
    Refuse(o_pError, "it ends too early");
  else
    return true;
  return false;
}

void ExpandRow(const UInt8* i_pBgr, UInt32* o_pArgb, UInt32 i_u32Count) {
  for (UInt32 u32X = 0; u32X < i_u32Count; ++u32X, i_pBgr += 3)
    o_pArgb[u32X] = kOpaque | UInt32{i_pBgr[2]} << 16 | UInt32{i_pBgr[1]} << 8 | i_pBgr[0];
}

void ConvertRow(const UInt8* i_pBgra, UInt32* o_pArgb, UInt32 i_u32Count, UInt32 i_u32Or) {
  for (UInt32 u32X = 0; u32X < i_u32Count; ++u32X, i_pBgra += 4)
    o_pArgb[u32X] = i_u32Or | UInt32{i_pBgra[3]} << 24 | UInt32{i_pBgra[2]} << 16 |
                    UInt32{i_pBgra[1]} << 8 | i_pBgra[0];
}

Bool ReadRows(CPictureFile& io_file, const T_BmpRows& i_rows, const CHead& i_head,
              const std::stop_token& i_stop, CPicture* o_pPicture) {
  std::vector<UInt8> row(i_rows.m_stride);
  const auto [w, h] = o_pPicture->Extent();
  io_file.Seek(i_rows.m_start);
  for (UInt32 u32Row = 0; u32Row < h; ++u32Row) {
    if (u32Row % kRowsPerLook == 0 && i_stop.stop_requested()) return false;
    if (!io_file.Read(row.data(), row.size())) return false;
    UInt32* const pRow = o_pPicture->Row(i_rows.m_bTopDown ? u32Row : h - 1 - u32Row);
    if (i_head.Bits() == 24)
      ExpandRow(row.data(), pRow, w);
    else
      ConvertRow(row.data(), pRow, w, i_head.HasAlpha() ? 0 : kOpaque);
  }
  return true;
}

}  // namespace

std::optional<CPicture> DecodeBmp(CPictureFile& io_file, const std::stop_token& i_stop,
                                  std::string* o_pError) {
  CHead head;
  if (!head.Read(io_file)) return Refuse(o_pError, "%s", WhyNotRead());
  if (!IsKindRead(head, o_pError)) return std::nullopt;
  const SInt64 s64W = static_cast<SInt32>(head.Word(kWidth));
  const SInt64 s64H = static_cast<SInt32>(head.Word(kHeight));
  if (s64W < 0) return Refuse(o_pError, "its width is negative");
  const auto u64H = static_cast<UInt64>(s64H < 0 ? -s64H : s64H);
  if (!IsSizeAllowed(static_cast<UInt64>(s64W), u64H, o_pError)) return std::nullopt;
  const size_t stride = (static_cast<size_t>(s64W) * head.Bits() / 8 + 3) / 4 * 4;
  const T_BmpRows rows{head.Word(kPixelOffset), stride, s64H < 0};
  if (!AreRowsThere(rows, head, u64H, io_file.Bytes(), o_pError)) return std::nullopt;
  std::optional<CPicture> picture =
      NewPicture({static_cast<UInt32>(s64W), static_cast<UInt32>(u64H)}, o_pError);
  if (!picture) return std::nullopt;
  if (!ReadRows(io_file, rows, head, i_stop, &*picture))
    return Refuse(o_pError, "%s", WhyNotRead());
  picture->SetOpaque(!head.HasAlpha());
  return picture;
}
