// One file of the log: appends ready lines, follows its name, rolls over by size. Whoever uses it
// holds one lock round all calls.
#pragma once

#include <sys/types.h>

#include <span>
#include <string>

#include "framework/descriptor.h"
#include "framework/log_ring.h"
#include "framework/types.h"

// Opens i_pPath to append, without waiting where it is a pipe or a terminal: -1 with errno then, and
// on other failures.
SInt32 OpenLogFile(const char* i_pPath, SInt32 i_s32MoreFlags, mode_t i_mode);

// Whether i_s32Fd is the file that i_pPath names.
Bool IsAtItsName(SInt32 i_s32Fd, const char* i_pPath);

// Says on standard error, once each, that lines are lost and that they are written again.
class CLogLoss {
 public:
  // Of one write: its errno, 0 where it succeeded.
  void Watch(SInt32 i_s32Errno);

 private:
  Bool m_bLosing = false;
};

class CLogFile {
 public:
  struct T_Settings {
    std::string m_strPath;
    SInt32 m_s32MoreFlags = 0;  // of open(2), with which the file begins after a roll
    mode_t m_mode = 0644;
    // The line that makes the file m_u64MaxBytes long is its last: the file becomes PATH.1, that
    // becomes PATH.2 and so on to u32MaxBackups, each number of as many digits as the last one.
    // Without backups it does not roll.
    size_t m_maxBytes = 0;
    UInt32 m_u32MaxBackups = 0;
    SInt32 m_s32Digits = 1;
  };
  // Opens the file. One that cannot be opened is no error: its lines are lost, and Watch says so.
  explicit CLogFile(T_Settings i_stSettings);

  // With as few calls as rolling allows. What cannot be written is lost.
  void Write(CLogRing::T_Batch i_batch);

  // Opens the file anew when its name leads elsewhere.
  void Follow();

 private:
  // How long the file is now, if it is one that rolls.
  off_t Length() const;
  void Append(const char* i_pBytes, size_t i_size);
  void Roll();
  void Reopen(SInt32 i_s32MoreFlags);

  const T_Settings m_stSettings;
  CDescriptor m_file;
  CLogLoss m_loss;
};
