#include "common/osd/pictures/row_reader.h"

CResult<> CheckSize(UInt64 i_u64W, UInt64 i_u64H) {
  constexpr UInt32 kMaxSide = CPicture::kMaxSide;
  static_assert(size_t{kMaxSide} * kMaxSide == CPicture::kMaxPixels);
  const auto w = static_cast<unsigned long long>(i_u64W);
  const auto h = static_cast<unsigned long long>(i_u64H);
  if (w == 0 || h == 0) return Refuse("its %llu x %llu pixels are none", w, h);
  if (w > kMaxSide || h > kMaxSide)
    return Refuse("its %llu x %llu pixels exceed %u a side", w, h, kMaxSide);
  return {};
}
