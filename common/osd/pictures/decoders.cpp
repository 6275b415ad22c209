#include "common/osd/pictures/decoders.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <new>

std::nullopt_t Refuse(std::string* o_pError, const char* i_pFormat, ...) {
  char aText[512];
  va_list arguments;
  va_start(arguments, i_pFormat);
  std::vsnprintf(aText, sizeof(aText), i_pFormat, arguments);
  va_end(arguments);
  *o_pError = aText;
  return std::nullopt;
}

const char* WhyNotRead() { return errno == 0 ? "it ends too early" : std::strerror(errno); }

Bool IsSizeAllowed(UInt64 i_u64W, UInt64 i_u64H, std::string* o_pError) {
  constexpr UInt32 kMaxSide = CPicture::kMaxSide;
  static_assert(size_t{kMaxSide} * kMaxSide == CPicture::kMaxPixels);
  const auto w = static_cast<unsigned long long>(i_u64W);
  const auto h = static_cast<unsigned long long>(i_u64H);
  if (w == 0 || h == 0)
    Refuse(o_pError, "its %llu x %llu pixels are none", w, h);
  else if (w > kMaxSide || h > kMaxSide)
    Refuse(o_pError, "its %llu x %llu pixels exceed %u a side", w, h, kMaxSide);
  else
    return true;
  return false;
}

std::optional<CPicture> NewPicture(const T_Extent& i_extent, std::string* o_pError) {
  try {
    return CPicture(i_extent);
  } catch (const std::bad_alloc&) {
    return Refuse(o_pError, "there is not enough memory for %u x %u pixels", i_extent.m_u32W,
                  i_extent.m_u32H);
  }
}
