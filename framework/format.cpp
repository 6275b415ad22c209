#include "framework/format.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <iterator>

namespace {

constexpr int kWidest = 4096;         // so that sums of widths stay small; wider is for vsnprintf
constexpr std::ptrdiff_t kMost = 24;  // bytes of a number and its prefix

// "%[-0#][width][.precision][l|ll|z]conversion"
struct T_Conversion {
  Bool m_bLeft = false;
  Bool m_bZeros = false;
  Bool m_bPrefix = false;
  SInt8 m_s8Length = 0;  // of the argument: how often 'l', kSize for 'z'
  char m_cKind = 0;
  int m_width = 0;
  int m_precision = -1;
};
constexpr SInt8 kSize = 3;

// What va_list is differs: as a member it is always passed the same way.
struct T_Arguments {
  va_list m_list;
};

// Where the next character goes and where none goes any more. Passed by value, and so kept in
// registers: a character that is stored might change whatever lies in memory.
struct T_Room {
  char* m_pNow;
  char* m_pEnd;
};

T_Room Put(T_Room i_stRoom, const char* i_pText, size_t i_size) {
  const size_t size = std::min(i_size, static_cast<size_t>(i_stRoom.m_pEnd - i_stRoom.m_pNow));
  std::memcpy(i_stRoom.m_pNow, i_pText, size);
  return {i_stRoom.m_pNow + size, i_stRoom.m_pEnd};
}

T_Room Fill(T_Room i_stRoom, char i_c, int i_count) {
  const auto count = std::min<std::ptrdiff_t>(i_count, i_stRoom.m_pEnd - i_stRoom.m_pNow);
  return {std::fill_n(i_stRoom.m_pNow, count, i_c), i_stRoom.m_pEnd};
}

T_Room PutText(T_Room i_stRoom, const T_Conversion& i_conversion, const char* i_pText,
               size_t i_size) {
  if (i_conversion.m_width == 0) return Put(i_stRoom, i_pText, i_size);
  const int pad = i_conversion.m_width - static_cast<int>(std::min<size_t>(i_size, kWidest));
  if (i_conversion.m_bLeft) return Fill(Put(i_stRoom, i_pText, i_size), ' ', pad);
  return Put(Fill(i_stRoom, ' ', pad), i_pText, i_size);
}

char* PutDigits(char* o_p, UInt64 i_u64Value, char i_cKind) {
  char* pEnd = o_p + 20;
  if ((i_cKind | 0x20) != 'x') return std::to_chars(o_p, pEnd, i_u64Value).ptr;
  const char* const pDigits = i_cKind == 'x' ? "0123456789abcdef" : "0123456789ABCDEF";
  pEnd = o_p + std::max(1, (67 - std::countl_zero(i_u64Value)) / 4);
  for (char* p = pEnd; p != o_p; i_u64Value >>= 4) *--p = pDigits[i_u64Value & 15];
  return pEnd;
}

T_Room PutNumber(T_Room i_stRoom, const T_Conversion& i_conversion, Bool i_bNegative,
                 UInt64 i_u64Value) {
  char aNumber[kMost];
  const Bool bDirect = i_conversion.m_width == 0 && i_stRoom.m_pEnd - i_stRoom.m_pNow >= kMost;
  char* const pNumber = bDirect ? i_stRoom.m_pNow : aNumber;
  char* p = pNumber;
  if (i_bNegative) *p++ = '-';
  if (i_conversion.m_bPrefix && i_conversion.m_cKind != 'u' && i_u64Value != 0) {
    *p++ = '0';
    *p++ = i_conversion.m_cKind;
  }
  const auto prefix = static_cast<size_t>(p - pNumber);
  p = PutDigits(p, i_u64Value, i_conversion.m_cKind);
  if (bDirect) return {p, i_stRoom.m_pEnd};
  const auto size = static_cast<size_t>(p - pNumber);
  if (i_conversion.m_bLeft || !i_conversion.m_bZeros)
    return PutText(i_stRoom, i_conversion, aNumber, size);
  i_stRoom = Put(i_stRoom, aNumber, prefix);
  i_stRoom = Fill(i_stRoom, '0', i_conversion.m_width - static_cast<int>(size));
  return Put(i_stRoom, aNumber + prefix, size - prefix);
}

Bool ParseNumber(const char** io_p, T_Arguments& io_arguments, int* o_pNumber) {
  if (**io_p == '*') {
    ++*io_p;
    *o_pNumber = va_arg(io_arguments.m_list, int);
    return *o_pNumber >= 0 && *o_pNumber <= kWidest;
  }
  for (*o_pNumber = 0; **io_p >= '0' && **io_p <= '9'; ++*io_p) {
    *o_pNumber = *o_pNumber * 10 + (**io_p - '0');
    if (*o_pNumber > kWidest) return false;
  }
  return true;
}

// io_p is behind the '%' before, behind the conversion after.
Bool Parse(const char** io_p, T_Arguments& io_arguments, T_Conversion* o_conversion) {
  for (;; ++*io_p) {
    if (**io_p == '-')
      o_conversion->m_bLeft = true;
    else if (**io_p == '0')
      o_conversion->m_bZeros = true;
    else if (**io_p == '#')
      o_conversion->m_bPrefix = true;
    else
      break;
  }
  if (!ParseNumber(io_p, io_arguments, &o_conversion->m_width)) return false;
  if (**io_p == '.' && !ParseNumber(&++*io_p, io_arguments, &o_conversion->m_precision))
    return false;
  if (**io_p == 'z') {
    o_conversion->m_s8Length = kSize;
    ++*io_p;
  }
  for (; **io_p == 'l' && o_conversion->m_s8Length < 2; ++*io_p) ++o_conversion->m_s8Length;
  o_conversion->m_cKind = **io_p;
  if (o_conversion->m_cKind != '\0') ++*io_p;
  return true;
}

SInt64 NextSigned(SInt8 i_s8Length, T_Arguments& io_arguments) {
  if (i_s8Length == 0) return va_arg(io_arguments.m_list, int);
  if (i_s8Length == 1) return va_arg(io_arguments.m_list, long);
  if (i_s8Length == kSize) return va_arg(io_arguments.m_list, ssize_t);
  return va_arg(io_arguments.m_list, long long);
}

UInt64 NextUnsigned(SInt8 i_s8Length, T_Arguments& io_arguments) {
  if (i_s8Length == 0) return va_arg(io_arguments.m_list, unsigned);
  if (i_s8Length == 1) return va_arg(io_arguments.m_list, unsigned long);
  if (i_s8Length == kSize) return va_arg(io_arguments.m_list, size_t);
  return va_arg(io_arguments.m_list, unsigned long long);
}

// False when only vsnprintf knows what that is.
Bool PutArgument(T_Room* io_pRoom, const T_Conversion& i_conversion, T_Arguments& io_arguments) {
  const Bool bHasPrecision = i_conversion.m_precision >= 0;
  const Bool bPlain =
      i_conversion.m_s8Length == 0 && !i_conversion.m_bZeros && !i_conversion.m_bPrefix;
  switch (i_conversion.m_cKind) {
    case 'd': {
      const SInt64 s64Value = NextSigned(i_conversion.m_s8Length, io_arguments);
      const auto u64Value = static_cast<UInt64>(s64Value);
      if (bHasPrecision || i_conversion.m_bPrefix) return false;
      *io_pRoom =
          PutNumber(*io_pRoom, i_conversion, s64Value < 0, s64Value < 0 ? 0 - u64Value : u64Value);
      return true;
    }
    case 'u':
    case 'x':
    case 'X':
      if (bHasPrecision) return false;
      *io_pRoom = PutNumber(*io_pRoom, i_conversion, false,
                            NextUnsigned(i_conversion.m_s8Length, io_arguments));
      return true;
    case 's': {
      const char* const pText = va_arg(io_arguments.m_list, const char*);
      if (!bPlain || pText == nullptr) return false;
      *io_pRoom =
          PutText(*io_pRoom, i_conversion, pText,
                  bHasPrecision ? strnlen(pText, static_cast<size_t>(i_conversion.m_precision))
                                : std::strlen(pText));
      return true;
    }
    case 'c': {
      const auto c = static_cast<char>(va_arg(io_arguments.m_list, int));
      if (!bPlain || bHasPrecision || c == '\0') return false;
      *io_pRoom = PutText(*io_pRoom, i_conversion, &c, 1);
      return true;
    }
    default:
      return false;
  }
}

// The end of the text; null when the format has something else than T_Conversion can say.
char* FormatPlainly(T_Room i_stRoom, const char* i_pFormat, T_Arguments& io_arguments) {
  for (const char* p = i_pFormat;;) {
    while (*p != '\0' && *p != '%' && i_stRoom.m_pNow != i_stRoom.m_pEnd) *i_stRoom.m_pNow++ = *p++;
    if (*p != '%' || i_stRoom.m_pNow == i_stRoom.m_pEnd) return i_stRoom.m_pNow;
    if (*++p == '%') {
      *i_stRoom.m_pNow++ = *p++;
      continue;
    }
    T_Conversion conversion;
    if (!Parse(&p, io_arguments, &conversion) || !PutArgument(&i_stRoom, conversion, io_arguments))
      return nullptr;
  }
}

Bool IsControl(char i_c) {
  const auto u8Code = static_cast<UInt8>(i_c);
  return static_cast<Bool>(((u8Code & 0x60) == 0) | (u8Code == 0x7F));
}

// Without a branch a character, so that the compiler looks at many at a time.
Bool HasControls(std::string_view i_text) {
  UInt8 u8Any = 0;
  for (const char c : i_text) u8Any |= static_cast<UInt8>(IsControl(c));
  return u8Any != 0;
}

}  // namespace

size_t Format(char* o_pText, size_t i_size, const char* i_pFormat, va_list i_arguments) {
  T_Arguments arguments;
  va_copy(arguments.m_list, i_arguments);
  char* const pEnd = FormatPlainly({o_pText, o_pText + i_size - 1}, i_pFormat, arguments);
  va_end(arguments.m_list);
  if (pEnd != nullptr) {
    *pEnd = '\0';
    return static_cast<size_t>(pEnd - o_pText);
  }
  o_pText[0] = '\0';
  std::vsnprintf(o_pText, i_size, i_pFormat, i_arguments);
  return strnlen(o_pText, i_size - 1);
}

size_t CountControls(std::string_view i_text) {
  return HasControls(i_text) ? static_cast<size_t>(std::ranges::count_if(i_text, IsControl)) : 0;
}

char* Escape(std::string_view i_text, char* o_pText) {
  constexpr char kDigits[] = "0123456789abcdef";
  for (const char c : i_text) {
    const auto u8Code = static_cast<UInt8>(c);
    if (!IsControl(c)) {
      *o_pText++ = c;
      continue;
    }
    const char aEscaped[] = {'\\', 'x', kDigits[u8Code >> 4], kDigits[u8Code & 15]};
    o_pText = std::copy(std::begin(aEscaped), std::end(aEscaped), o_pText);
  }
  return o_pText;
}
