// Running shell commands.
#pragma once

#include <string>
#include <string_view>

#include "framework/types.h"

// Runs i_pCommand with /bin/sh, which gets the standard streams and no other descriptor of the
// daemon's, blocks until it has ended and logs its status. The wait status as waitpid stores it
// (exit code n is n * 256); 1 for a null command; -1 when the child could not be created or waited
// for. Text from outside goes into a command through ShellQuote only. Any thread, no lock.
SInt32 my_system(const char* i_pCommand);

// i_text as one word of a shell command, whatever bytes it has; cut at the first NUL, which no
// command line can carry.
std::string ShellQuote(std::string_view i_text);
