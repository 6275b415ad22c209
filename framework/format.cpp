#include "framework/format.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <iterator>

namespace {

constexpr int kWidest = 4096;  // so that sums of widths stay small; wider is left to vsnprintf

// "%[-0#][width][.precision][l|ll|z]conversion"
struct T_Conversion {
  Bool m_bLeft = false;
  Bool m_bZeros = false;
  Bool m_bPrefix = false;
  int m_width = 0;
  int m_precision = -1;
  enum Length : SInt32 { kInt, kLong, kLongLong, kSize };
  Length m_eLength = kInt;
  char m_cKind = 0;
};

// What va_list is differs: as a member it is always passed the same way.
struct T_Arguments {
  va_list m_list;
};

class CFormatter {
 public:
  CFormatter(char* o_pText, size_t i_size) : m_pNow(o_pText), m_pEnd(o_pText + i_size - 1) {}

  // False when the format has something else than T_Conversion can say.
  Bool Run(const char* i_pFormat, T_Arguments& io_arguments);
  char* End() const { return m_pNow; }

 private:
  void Put(const char* i_pText, size_t i_size) {
    const size_t size = std::min(i_size, static_cast<size_t>(m_pEnd - m_pNow));
    std::memcpy(m_pNow, i_pText, size);
    m_pNow += size;
  }
  void Fill(char i_c, int i_count) {
    if (i_count <= 0) return;
    const auto count = std::min<std::ptrdiff_t>(i_count, m_pEnd - m_pNow);
    m_pNow = std::fill_n(m_pNow, count, i_c);
  }
  void PutPadded(const T_Conversion& i_conversion, const char* i_pText, size_t i_size) {
    const int pad = i_conversion.m_width - static_cast<int>(std::min<size_t>(i_size, kWidest));
    if (!i_conversion.m_bLeft) Fill(' ', pad);
    Put(i_pText, i_size);
    if (i_conversion.m_bLeft) Fill(' ', pad);
  }
  void PutNumber(const T_Conversion& i_conversion, Bool i_bNegative, UInt64 i_u64Value);
  Bool PutArgument(const T_Conversion& i_conversion, T_Arguments& io_arguments);

  char* m_pNow;
  char* const m_pEnd;
};

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
    o_conversion->m_eLength = T_Conversion::kSize;
    ++*io_p;
  }
  for (; **io_p == 'l' && o_conversion->m_eLength < T_Conversion::kLongLong; ++*io_p)
    o_conversion->m_eLength = static_cast<T_Conversion::Length>(o_conversion->m_eLength + 1);
  o_conversion->m_cKind = **io_p;
  if (o_conversion->m_cKind != '\0') ++*io_p;
  return true;
}

void CFormatter::PutNumber(const T_Conversion& i_conversion, Bool i_bNegative, UInt64 i_u64Value) {
  char aDigits[20];
  const Bool bHex = (i_conversion.m_cKind | 0x20) == 'x';
  const int base = bHex ? 16 : 10;
  char* const pEnd =
      i_u64Value <= UINT32_MAX
          ? std::to_chars(aDigits, std::end(aDigits), static_cast<UInt32>(i_u64Value), base).ptr
          : std::to_chars(aDigits, std::end(aDigits), i_u64Value, base).ptr;
  if (i_conversion.m_cKind == 'X')
    for (char* p = aDigits; p != pEnd; ++p)
      if (*p >= 'a') *p = static_cast<char>(*p - 0x20);
  const char aPrefix[] = {i_bNegative ? '-' : '0', i_conversion.m_cKind};
  const size_t prefix = i_bNegative ? 1 : i_conversion.m_bPrefix && bHex && i_u64Value != 0 ? 2 : 0;
  const auto digits = static_cast<size_t>(pEnd - aDigits);
  const int pad = i_conversion.m_width - static_cast<int>(prefix + digits);
  const Bool bZeros = i_conversion.m_bZeros && !i_conversion.m_bLeft;
  if (!i_conversion.m_bLeft && !bZeros) Fill(' ', pad);
  Put(aPrefix, prefix);
  if (bZeros) Fill('0', pad);
  Put(aDigits, digits);
  if (i_conversion.m_bLeft) Fill(' ', pad);
}

SInt64 NextSigned(T_Conversion::Length i_eLength, T_Arguments& io_arguments) {
  switch (i_eLength) {
    case T_Conversion::kInt:
      return va_arg(io_arguments.m_list, int);
    case T_Conversion::kLong:
      return va_arg(io_arguments.m_list, long);
    case T_Conversion::kSize:
      return va_arg(io_arguments.m_list, ssize_t);
    default:
      return va_arg(io_arguments.m_list, long long);
  }
}

UInt64 NextUnsigned(T_Conversion::Length i_eLength, T_Arguments& io_arguments) {
  switch (i_eLength) {
    case T_Conversion::kInt:
      return va_arg(io_arguments.m_list, unsigned);
    case T_Conversion::kLong:
      return va_arg(io_arguments.m_list, unsigned long);
    case T_Conversion::kSize:
      return va_arg(io_arguments.m_list, size_t);
    default:
      return va_arg(io_arguments.m_list, unsigned long long);
  }
}

Bool CFormatter::PutArgument(const T_Conversion& i_conversion, T_Arguments& io_arguments) {
  const Bool bHasPrecision = i_conversion.m_precision >= 0;
  const Bool bPlain = i_conversion.m_eLength == T_Conversion::kInt && !i_conversion.m_bZeros &&
                      !i_conversion.m_bPrefix;
  switch (i_conversion.m_cKind) {
    case 'd':
    case 'i': {
      if (bHasPrecision) return false;
      const SInt64 s64Value = NextSigned(i_conversion.m_eLength, io_arguments);
      const auto u64Value = static_cast<UInt64>(s64Value);
      PutNumber(i_conversion, s64Value < 0, s64Value < 0 ? 0 - u64Value : u64Value);
      return true;
    }
    case 'u':
    case 'x':
    case 'X':
      if (bHasPrecision) return false;
      PutNumber(i_conversion, false, NextUnsigned(i_conversion.m_eLength, io_arguments));
      return true;
    case 's': {
      const char* const pText = va_arg(io_arguments.m_list, const char*);
      if (!bPlain || pText == nullptr) return false;
      PutPadded(i_conversion, pText,
                bHasPrecision ? strnlen(pText, static_cast<size_t>(i_conversion.m_precision))
                              : std::strlen(pText));
      return true;
    }
    case 'c': {
      const auto c = static_cast<char>(va_arg(io_arguments.m_list, int));
      if (!bPlain || bHasPrecision || c == '\0') return false;
      PutPadded(i_conversion, &c, 1);
      return true;
    }
    default:
      return false;
  }
}

Bool CFormatter::Run(const char* i_pFormat, T_Arguments& io_arguments) {
  for (const char* p = i_pFormat; *p != '\0';) {
    const char* const pPercent = strchrnul(p, '%');
    Put(p, static_cast<size_t>(pPercent - p));
    if (*pPercent == '\0') break;
    p = pPercent + 1;
    if (*p == '%') {
      Put(p++, 1);
      continue;
    }
    T_Conversion conversion;
    if (!Parse(&p, io_arguments, &conversion) || !PutArgument(conversion, io_arguments))
      return false;
  }
  return true;
}

Bool IsControl(char i_c) {
  const auto u8Code = static_cast<UInt8>(i_c);
  return (u8Code & 0x60) == 0 || u8Code == 0x7F;
}

}  // namespace

size_t Format(char* o_pText, size_t i_size, const char* i_pFormat, va_list i_arguments) {
  T_Arguments arguments;
  va_copy(arguments.m_list, i_arguments);
  CFormatter formatter(o_pText, i_size);
  const Bool bDone = formatter.Run(i_pFormat, arguments);
  va_end(arguments.m_list);
  if (bDone) {
    *formatter.End() = '\0';
    return static_cast<size_t>(formatter.End() - o_pText);
  }
  o_pText[0] = '\0';
  std::vsnprintf(o_pText, i_size, i_pFormat, i_arguments);
  return strnlen(o_pText, i_size - 1);
}

size_t CountControls(std::string_view i_text) {
  return static_cast<size_t>(std::ranges::count_if(i_text, IsControl));
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
