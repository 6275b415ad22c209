// The screen's size as other software of the device leaves it: a file with the lines "width=1920"
// and "height=1080".
#pragma once

#include <string>

#include "framework/types.h"

struct T_Resolution {
  UInt32 m_u32Width = 0;  // px; 0 when no line gives it
  UInt32 m_u32Height = 0;
  std::string m_strReason;  // why the file was not read, in words; empty when it was

  explicit operator bool() const { return m_strReason.empty(); }
};

// Reads the first 4 KiB of i_strPath, in lines of at most 19 characters (longer ones count as
// several). Only a regular file is read, or opened at all, so that this never waits. Any thread.
T_Resolution ReadResolutionFile(const std::string& i_strPath);
