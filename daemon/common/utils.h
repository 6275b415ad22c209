// Running external commands. They get the standard streams and no other descriptor of the daemon's.
#pragma once

#include <stop_token>
#include <string>
#include <string_view>

#include "framework/types.h"

// Runs i_pCommand with /bin/sh and blocks until it has ended. The wait status as waitpid stores it
// (exit code n is n * 256); 1 for a null command; -1 when the child could not be created or waited
// for. Text from outside goes into a command through ShellQuote only. Any thread, no lock.
SInt32 my_system(const char* i_pCommand);

// i_text as one word of a shell command, whatever bytes it has; cut at the first NUL, which no
// command line can carry.
std::string ShellQuote(std::string_view i_text);

struct T_Program {
  const char* const* m_pArguments;  // ends with null; the first, the program, is looked for in PATH
  SInt32 m_s32Stdin;                // both above 2, and still the caller's afterwards
  SInt32 m_s32Stdout;
  UInt32 m_u32LimitMs;
  UInt32 m_u32MaxProcessorS;  // s of processor time
  UInt64 m_u64MaxFileBytes;   // no file that it writes becomes larger
  UInt64 m_u64MaxMemory;      // bytes of address space
};

enum class ProgramEnd { kEnded, kNotStarted, kTimedOut, kStopped };

struct T_ProgramResult {
  static constexpr size_t kMaxErrorText = 512;

  ProgramEnd m_eEnd = ProgramEnd::kNotStarted;
  SInt32 m_s32Status = 0;  // wait status; 127 * 256 when there is no such program
  std::string m_strError;  // the start of what it wrote to its standard error, as it is
};

// Runs i_program without a shell and blocks until it has ended, its time is up or i_stop is asked
// for; it, and whatever it started and left in its process group, is killed then. kNotStarted when
// a pipe or a process is lacking. The program does not outlive the calling thread. Any thread, no
// lock.
T_ProgramResult RunProgram(const T_Program& i_program, const std::stop_token& i_stop);
