#include "framework/log_layout.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <log4cpp/BasicLayout.hh>
#include <log4cpp/LoggingEvent.hh>
#include <log4cpp/NDC.hh>
#include <log4cpp/PatternLayout.hh>
#include <log4cpp/Priority.hh>
#include <log4cpp/SimpleLayout.hh>
#include <sstream>
#include <typeinfo>
#include <utility>

#include "framework/format.h"

namespace {

constexpr size_t kMostDate = 100;  // log4cpp's, with its NUL
constexpr size_t kMostValue = 24;  // a number's, a priority's or the category's bytes
constexpr size_t kWidest = 1024;
constexpr std::string_view kCategory = "CATEGORY";

// As a pattern; empty where the layout is none of log4cpp's own.
std::string PatternOf(log4cpp::Layout& i_layout) {
  if (typeid(i_layout) == typeid(log4cpp::PatternLayout))
    return static_cast<log4cpp::PatternLayout&>(i_layout).getConversionPattern();
  if (typeid(i_layout) == typeid(log4cpp::BasicLayout)) return "%R %p %c %x: %m%n";
  if (typeid(i_layout) == typeid(log4cpp::SimpleLayout)) return "%-8p: %m%n";
  return "";
}

std::string DateFormat(const std::string& i_strGiven) {
  if (i_strGiven.empty() || i_strGiven == "ISO8601") return "%Y-%m-%d %H:%M:%S,%l";
  if (i_strGiven == "ABSOLUTE") return "%H:%M:%S,%l";
  if (i_strGiven == "DATE") return "%d %b %Y %H:%M:%S,%l";
  return i_strGiven;
}

std::string DateText(const std::string& i_strFormat, time_t i_second) {
  tm date{};
  localtime_r(&i_second, &date);
  char szText[kMostDate];
  return {szText, strftime(szText, sizeof(szText), i_strFormat.c_str(), &date)};
}

char* Append(std::string_view i_text, char* o_p) { return std::ranges::copy(i_text, o_p).out; }

template <class T>
char* AppendNumber(T i_value, char* o_p) {
  return std::to_chars(o_p, o_p + kMostValue, i_value).ptr;
}

}  // namespace

std::optional<CLogLayout> CLogLayout::Of(log4cpp::Layout& i_layout) {
  CLogLayout layout;
  if (!layout.Parse(PatternOf(i_layout))) return std::nullopt;
  // log4cpp's own line is the last word: a pattern may well mean something strange.
  constexpr std::string_view kProbe = "probe";
  const log4cpp::LoggingEvent event(std::string(kCategory), std::string(kProbe),
                                    log4cpp::NDC::get(), log4cpp::Priority::WARN);
  const timespec stTime{event.timeStamp.getSeconds(), event.timeStamp.getMicroSeconds() * 1000L};
  const T_LogLine stLine{event.priority, stTime, kProbe, 0};
  std::string strOurs(layout.MostBytes(stLine), '\0');
  strOurs.resize(static_cast<size_t>(layout.Write(stLine, strOurs.data()) - strOurs.data()));
  if (strOurs != i_layout.format(event)) return std::nullopt;
  return layout;
}

// %[-][min][.max]conversion[{text}]
Bool CLogLayout::Parse(const std::string& i_strPattern) {
  std::istringstream pattern(i_strPattern);
  for (char c; pattern.get(c);) {
    T_Part part;
    part.m_strText = c;
    if (c == '%') {
      part.m_bLeft = pattern.peek() == '-';
      if (part.m_bLeft) pattern.get();
      if (std::isdigit(pattern.peek())) pattern >> part.m_minWidth;
      if (pattern.peek() == '.') pattern.ignore() >> part.m_maxWidth;
      if (!pattern.get(part.m_cKind) || std::strchr("%ncdmptxR", part.m_cKind) == nullptr ||
          std::max(part.m_minWidth, part.m_maxWidth) > kWidest)
        return false;
      part.m_bPadded = part.m_minWidth > 0 || part.m_maxWidth > 0;
      part.m_strText.clear();
      if (pattern.peek() == '{') std::getline(pattern.ignore(), part.m_strText, '}');
    }
    if (part.m_cKind == '%' || part.m_cKind == 'n') {
      part.m_strText = part.m_cKind == '%' ? '%' : '\n';
      part.m_cKind = 0;
    }
    if (part.m_cKind == 'd') {
      const std::string strFormat = DateFormat(part.m_strText);
      const size_t at = strFormat.find("%l");
      part.m_bMilliseconds = at != std::string::npos;
      part.m_strText = strFormat.substr(0, at);
      if (part.m_bMilliseconds && part.m_strText.ends_with('%')) return false;  // whatever it means
      if (part.m_bMilliseconds) part.m_strFormatBehind = strFormat.substr(at + 2);
    }
    if (part.m_cKind == 0 && !m_parts.empty() && m_parts.back().m_cKind == 0)
      m_parts.back().m_strText += part.m_strText;
    else
      m_parts.push_back(std::move(part));
  }
  for (const T_Part& part : m_parts) {
    m_fixedBytes += FixedBytes(part);
    m_messages += part.m_cKind == 'm' ? 1 : 0;
    m_contexts += part.m_cKind == 'x' ? 1 : 0;
  }
  return !m_parts.empty();
}

// What it takes however long message and context are.
size_t CLogLayout::FixedBytes(const T_Part& i_part) {
  switch (i_part.m_cKind) {
    case 0:
      return i_part.m_minWidth + i_part.m_strText.size();
    case 'd':
      return i_part.m_minWidth + 2 * kMostDate + kMostValue;
    default:
      return i_part.m_minWidth + kMostValue;
  }
}

size_t CLogLayout::MostBytes(const T_LogLine& i_stLine) const {
  size_t bytes = m_fixedBytes + m_messages * (i_stLine.m_text.size() + 3 * i_stLine.m_controls);
  if (m_contexts > 0) bytes += m_contexts * log4cpp::NDC::get().size();
  return bytes;
}

char* CLogLayout::WriteDate(T_Part& io_part, const timespec& i_stTime, char* o_p) {
  if (io_part.m_second != i_stTime.tv_sec) {
    io_part.m_second = i_stTime.tv_sec;
    io_part.m_strBefore = DateText(io_part.m_strText, i_stTime.tv_sec);
    io_part.m_strBehind = DateText(io_part.m_strFormatBehind, i_stTime.tv_sec);
  }
  o_p = Append(io_part.m_strBefore, o_p);
  if (!io_part.m_bMilliseconds) return o_p;
  const auto u32Ms = static_cast<UInt32>(i_stTime.tv_nsec / 1000000);
  for (const UInt32 u32Unit : {100U, 10U, 1U})
    *o_p++ = static_cast<char>('0' + u32Ms / u32Unit % 10);
  return Append(io_part.m_strBehind, o_p);
}

char* CLogLayout::WritePart(T_Part& io_part, const T_LogLine& i_stLine, char* o_p) {
  switch (io_part.m_cKind) {
    case 'm':
      return i_stLine.m_controls == 0 ? Append(i_stLine.m_text, o_p) : Escape(i_stLine.m_text, o_p);
    case 'd':
      return WriteDate(io_part, i_stLine.m_stTime, o_p);
    case 'p':
      return Append(log4cpp::Priority::getPriorityName(i_stLine.m_s32Priority), o_p);
    case 'c':
      return Append(kCategory, o_p);
    case 't':
      return AppendNumber(pthread_self(), o_p);
    case 'x':
      return Append(log4cpp::NDC::get(), o_p);
    case 'R':
      return AppendNumber(SInt64{i_stLine.m_stTime.tv_sec}, o_p);
    default:
      return Append(io_part.m_strText, o_p);
  }
}

char* CLogLayout::Write(const T_LogLine& i_stLine, char* o_p) {
  for (T_Part& part : m_parts) {
    const char* const pStart = o_p;
    o_p = WritePart(part, i_stLine, o_p);
    if (!part.m_bPadded) continue;
    auto size = static_cast<size_t>(o_p - pStart);
    if (part.m_maxWidth > 0 && size > part.m_maxWidth) {
      o_p -= size - part.m_maxWidth;
      size = part.m_maxWidth;
    }
    if (size >= part.m_minWidth) continue;
    const size_t pad = part.m_minWidth - size;
    std::fill_n(o_p, pad, ' ');
    o_p += pad;
    if (!part.m_bLeft) std::rotate(o_p - part.m_minWidth, o_p - pad, o_p);
  }
  return o_p;
}
