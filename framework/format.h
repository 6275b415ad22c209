// The texts of log lines: printf's conversions without printf's price, and no control characters.
// No state, no allocation; any thread.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <string_view>

#include "framework/types.h"

// Like vsnprintf, but returns the length of the text as a C string: at most i_size - 1, and what a
// %c of 0 ends. Does %d %u %x %X (l, ll, z; flags 0 - #), %s (precision), %c and %% with widths
// itself and leaves any other format to vsnprintf as a whole.
size_t Format(char* o_pText, size_t i_size, const char* i_pFormat, va_list i_arguments);

// How many control characters (0 to 0x1F, 0x7F to 0x9F) a text has. Escaped, each is \xNN.
size_t CountControls(std::string_view i_text);
// Appends i_text escaped at o_pText, which has room for it, and returns the end.
char* Escape(std::string_view i_text, char* o_pText);
