// How one appender writes its lines: log4cpp's PatternLayout, BasicLayout and SimpleLayout, byte for
// byte, without an allocation a line. Owned by an appender, used under its lock.
#pragma once

#include <ctime>
#include <log4cpp/Layout.hh>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "framework/types.h"

struct T_LogLine {
  SInt32 m_s32Priority;     // log4cpp's
  timespec m_stTime;        // of day
  std::string_view m_text;  // to be escaped
  size_t m_controls;        // so many of its characters
};

class CLogLayout {
 public:
  // None for a layout that only log4cpp can format: of another class, with %r or %u, or one that we
  // would write differently.
  static std::optional<CLogLayout> Of(log4cpp::Layout& i_layout);

  // The most bytes that Write makes of this line, on the thread that asks.
  size_t MostBytes(const T_LogLine& i_stLine) const;

  // Appends the line at o_p and returns the end.
  char* Write(const T_LogLine& i_stLine, char* o_p);

 private:
  // A literal, or a conversion with what stands in its braces.
  struct T_Part {
    char m_cKind = 0;  // a literal's
    std::string m_strText;
    size_t m_minWidth = 0;
    size_t m_maxWidth = 0;
    Bool m_bLeft = false;
    Bool m_bPadded = false;  // or cut: there are widths
    // Of a date: the text of m_second, before and behind its milliseconds.
    Bool m_bMilliseconds = false;
    std::string m_strFormatBehind;
    time_t m_second = -1;
    std::string m_strBefore;
    std::string m_strBehind;
  };

  static size_t FixedBytes(const T_Part& i_part);
  Bool Parse(const std::string& i_strPattern);
  static char* WriteDate(T_Part& io_part, const timespec& i_stTime, char* o_p);
  static char* WritePart(T_Part& io_part, const T_LogLine& i_stLine, char* o_p);

  std::vector<T_Part> m_parts;
  size_t m_fixedBytes = 0;
  size_t m_messages = 0;  // how many parts are one
  size_t m_contexts = 0;
};
