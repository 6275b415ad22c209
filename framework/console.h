// What the process says on standard output and standard error, which may lead to a pipe or a
// terminal that nobody reads: whoever serves others never waits for one.
#pragma once

#include <string_view>

#include "framework/types.h"

// Writes i_text to i_s32Fd as far as that takes it at once, and drops the rest; a line of up to
// 4096 bytes comes whole in a pipe, or not at all. Needs /proc, and the right to open what i_s32Fd
// leads to: without, a terminal or a pipe that others fill in the same moment may hold it up. Keeps
// errno. Any thread, any signal handler.
void PrintAtOnce(SInt32 i_s32Fd, std::string_view i_text);
