#include "tools/names.h"

#include <charconv>
#include <limits>
#include <span>

namespace {

template <class T>
struct T_Name {
  std::string_view m_name;
  T m_value;
};

constexpr T_Name<UInt32> kColours[] = {
    {"black", 0xFF000000},
    {"white", 0xFFFFFFFF},
    {"grey", 0xFF808080},
    {"red", 0xFFFF0000},
    {"green", 0xFF00FF00},
    {"blue", 0xFF0000FF},
    {"yellow", 0xFFFFFF00},
    {"cyan", 0xFF00FFFF},
    {"magenta", 0xFFFF00FF},
    {"orange", 0xFFFFA500},
    {"shade", 0x80000000},
    // Not 0: the daemon takes a background of 0 for its own grey.
    {"transparent", 0x00FFFFFF},
    {"gray", 0xFF808080},
};
constexpr size_t kOtherColourSpellings = 1;

constexpr T_Name<UInt8> kPositions[] = {
    {"centre", 0},       {"top-left", 1},      {"top-centre", 2},   {"top-right", 3},
    {"bottom-left", 4},  {"bottom-centre", 5}, {"bottom-right", 6}, {"middle-left", 7},
    {"middle-right", 8}, {"center", 0},        {"top-center", 2},   {"bottom-center", 5},
};
constexpr size_t kOtherPositionSpellings = 3;

template <class T, size_t N>
std::optional<T> Find(const T_Name<T> (&i_table)[N], std::string_view i_text) {
  for (const T_Name<T>& row : i_table)
    if (row.m_name == i_text) return row.m_value;
  return std::nullopt;
}

template <class T, size_t N>
std::string Names(const T_Name<T> (&i_table)[N], size_t i_hidden) {
  std::string strNames;
  for (const T_Name<T>& row : std::span(i_table).first(N - i_hidden))
    strNames.append(strNames.empty() ? "" : ", ").append(row.m_name);
  return strNames;
}

std::optional<SInt64> Digits(std::string_view i_text, SInt32 i_s32Base) {
  SInt64 s64Value = 0;
  const char* pEnd = i_text.data() + i_text.size();
  const auto [pStop, eError] = std::from_chars(i_text.data(), pEnd, s64Value, i_s32Base);
  if (eError != std::errc() || pStop != pEnd) return std::nullopt;
  return s64Value;
}

}  // namespace

std::optional<SInt64> ParseNumber(std::string_view i_text, SInt64 i_s64Min, SInt64 i_s64Max) {
  const Bool bHex = i_text.starts_with("0x") || i_text.starts_with("0X");
  if (bHex) i_text.remove_prefix(2);
  if (bHex && i_text.starts_with('-')) return std::nullopt;
  const std::optional<SInt64> value = Digits(i_text, bHex ? 16 : 10);
  if (!value || *value < i_s64Min || *value > i_s64Max) return std::nullopt;
  return value;
}

std::optional<T_Pair> ParsePair(std::string_view i_text) {
  const size_t comma = i_text.find(',');
  if (comma == std::string_view::npos) return std::nullopt;
  const std::optional<SInt64> first =
      ParseNumber(i_text.substr(0, comma), 0, std::numeric_limits<UInt16>::max());
  const std::optional<SInt64> second =
      ParseNumber(i_text.substr(comma + 1), 0, std::numeric_limits<UInt16>::max());
  if (!first || !second) return std::nullopt;
  return T_Pair{static_cast<UInt16>(*first), static_cast<UInt16>(*second)};
}

std::optional<UInt32> ParseColour(std::string_view i_text) {
  if (const std::optional<UInt32> named = Find(kColours, i_text)) return named;
  if (i_text.starts_with('#')) i_text.remove_prefix(1);
  if (i_text.starts_with('-') || (i_text.size() != 6 && i_text.size() != 8)) return std::nullopt;
  const std::optional<SInt64> value = Digits(i_text, 16);
  if (!value) return std::nullopt;
  const UInt32 u32Value = static_cast<UInt32>(*value);
  return i_text.size() == 6 ? u32Value | 0xFF000000 : u32Value;
}

std::optional<UInt8> ParsePosition(std::string_view i_text) {
  if (const std::optional<UInt8> named = Find(kPositions, i_text)) return named;
  const std::optional<SInt64> code = ParseNumber(i_text, 0, 8);
  if (!code) return std::nullopt;
  return static_cast<UInt8>(*code);
}

std::optional<UInt16> ParseElement(std::string_view i_text) {
  const size_t dot = i_text.find('.');
  if (dot == std::string_view::npos) {
    const std::optional<SInt64> whole = ParseNumber(i_text, 0, kEveryElement);
    if (!whole) return std::nullopt;
    return static_cast<UInt16>(*whole);
  }
  const std::optional<SInt64> type = ParseNumber(i_text.substr(0, dot), 0, kEveryClass);
  const std::optional<SInt64> number = ParseNumber(i_text.substr(dot + 1), 0, kEveryNumber);
  if (!type || !number) return std::nullopt;
  return Element(static_cast<UInt8>(*type), static_cast<UInt8>(*number));
}

std::optional<UInt16> ParseOutput(std::string_view i_text) {
  if (i_text == "all") return kEveryOutput;
  const std::optional<SInt64> output = ParseNumber(i_text, 0, kEveryOutput);
  if (!output) return std::nullopt;
  return static_cast<UInt16>(*output);
}

std::string ColourNames() { return Names(kColours, kOtherColourSpellings); }
std::string PositionNames() { return Names(kPositions, kOtherPositionSpellings); }
