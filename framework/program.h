// Running other programs. They get the standard streams and no other descriptor of this process.
#pragma once

#include <optional>
#include <stop_token>
#include <string>

#include "framework/types.h"

// Runs i_pCommand with /bin/sh and blocks until it has ended. The wait status as waitpid stores it
// (exit code n is n * 256), -1 when it could not be waited for; nothing when no process could be
// created. Any thread, no lock.
std::optional<SInt32> RunShell(const char* i_pCommand);

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
