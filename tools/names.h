// The words of osdctl's command line: numbers, colours, positions, elements and outputs as a person
// types them. Each parser takes the whole text or gives nothing. No state; any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "protocol/element.h"

// Decimal, or hexadecimal after "0x"; nothing outside [i_s64Min, i_s64Max].
std::optional<SInt64> ParseNumber(std::string_view i_text, SInt64 i_s64Min, SInt64 i_s64Max);

struct T_Pair {
  UInt16 m_u16First;
  UInt16 m_u16Second;
};

// Two numbers 0 to 65535 with a comma between them ("800,600").
std::optional<T_Pair> ParsePair(std::string_view i_text);

// ARGB8888 of a colour's name, of "#AARRGGBB", or of "#RRGGBB" (opaque); the "#" may be missing,
// since an unquoted one begins a comment in a shell.
std::optional<UInt32> ParseColour(std::string_view i_text);

// Position code 0 to 8 of a code or a place's name ("top-left").
std::optional<UInt8> ParsePosition(std::string_view i_text);

// "0x0105", "261" or class.number ("1.5").
std::optional<UInt16> ParseElement(std::string_view i_text);

// 0 to 255; 255 is every output, as is "all".
std::optional<UInt16> ParseOutput(std::string_view i_text);

// The names that help texts tell, separated by ", "; other spellings are taken and not told.
std::string ColourNames();
std::string PositionNames();
