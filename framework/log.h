// The process's one log category, "CATEGORY". Every line ends with the base name of the source
// file and its line. No text can end a line or look like another one: control characters (0 to
// 0x1F, 0x7F to 0x9F) become \xNN. Any thread may log, but never under a queue lock.
//
// Once Start was called, nobody waits for the log's files: a line goes into 256 KiB of memory, from
// which a thread writes it at most 50 ms later. When they are full, a line is dropped, an ERROR after
// it has waited 50 ms at most, and one line tells how many. An orderly end and a crash write what
// waits. A SIGKILL loses the last 50 ms, a loss of power also what the kernel had not written.
#pragma once

#include <string>
#include <string_view>

#include "framework/types.h"

class CLog {
 public:
  // log4cpp's priorities; a lower value is more urgent.
  enum Priority : SInt32 { kError = 300, kWarn = 400, kNotice = 500, kInfo = 600, kDebug = 700 };

  // Reads the log4cpp property file i_pPath, a regular file. Needs /proc. When it is missing or
  // broken, says so in one line on standard error and returns false: the process then runs without
  // appenders, and may call again whenever it likes. A file that has not changed since is not read
  // again, unless its log was a pipe, which is refused, and is none any more. Its FileAppenders and
  // RollingFileAppenders become ours, of the same names, and write the same bytes; all others write
  // while their lines are logged. One thread only.
  static Bool Configure(const char* i_pPath);

  // From now on a thread writes the files: before, each line is written when it is logged. In the
  // process that serves, after its last fork, and after CThread::Initialize. Configure's thread.
  static void Start();

  // Opens the log's files anew that were removed or moved away, and notices appenders that somebody
  // added to the category. Where that fails, the next line tells of the loss. To be called every few
  // seconds by Configure's thread.
  static void FollowFiles();

  // Writes what waits and removes all appenders; lines written afterwards go nowhere. Configure's
  // thread.
  static void Shutdown();

  static Bool Enabled(Priority i_ePriority);

  // Formats like printf and appends " --[i_pFile:i_u32Line]"; a message is cut at 8191 bytes. A
  // line that cannot be written (full disk, missing folder) is lost; the first one lost and the
  // first one written again are told on standard error.
  static void Write(Priority i_ePriority, const char* i_pFile, UInt32 i_u32Line,
                    const char* i_pFormat, ...) __attribute__((format(printf, 4, 5)));
};

// A text as the log shows it, for one with NULs: a format would end there.
std::string Printable(std::string_view i_text);

#define OSD_LOG(i_ePriority, i_pFormat, ...)                                 \
  do {                                                                       \
    if (CLog::Enabled(i_ePriority))                                          \
      CLog::Write(i_ePriority, __FILE_NAME__, static_cast<UInt32>(__LINE__), \
                  i_pFormat __VA_OPT__(, ) __VA_ARGS__);                     \
  } while (false)

#define LOG_ERROR(i_pFormat, ...) OSD_LOG(CLog::kError, i_pFormat, __VA_ARGS__)
#define LOG_WARN(i_pFormat, ...) OSD_LOG(CLog::kWarn, i_pFormat, __VA_ARGS__)
#define LOG_NOTICE(i_pFormat, ...) OSD_LOG(CLog::kNotice, i_pFormat, __VA_ARGS__)
#define LOG_INFO(i_pFormat, ...) OSD_LOG(CLog::kInfo, i_pFormat, __VA_ARGS__)
#define LOG_DEBUG(i_pFormat, ...) OSD_LOG(CLog::kDebug, i_pFormat, __VA_ARGS__)
