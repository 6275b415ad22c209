#include "framework/log_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <utility>

#include "framework/console.h"

SInt32 OpenLogFile(const char* i_pPath, SInt32 i_s32MoreFlags, mode_t i_mode) {
  return open(i_pPath, O_WRONLY | O_APPEND | O_CREAT | O_NONBLOCK | O_CLOEXEC | i_s32MoreFlags,
              i_mode);
}

Bool IsAtItsName(SInt32 i_s32Fd, const char* i_pPath) {
  struct stat opened {};
  struct stat named {};
  return fstat(i_s32Fd, &opened) == 0 && stat(i_pPath, &named) == 0 &&
         opened.st_dev == named.st_dev && opened.st_ino == named.st_ino;
}

void CLogLoss::Watch(SInt32 i_s32Errno) {
  const Bool bLost = i_s32Errno != 0;
  if (std::exchange(m_bLosing, bLost) == bLost) return;
  PrintAtOnce(STDERR_FILENO,
              bLost ? std::string("osdsrv: cannot write the log: ") + std::strerror(i_s32Errno) +
                          "; lines are lost until the log's folder exists and has space again\n"
                    : "osdsrv: the log is written again\n");
}

CLogFile::CLogFile(T_Settings i_stSettings) : m_stSettings(std::move(i_stSettings)) { Reopen(0); }

off_t CLogFile::Length() const {
  return m_stSettings.m_u32MaxBackups == 0 ? -1 : lseek(m_file.Get(), 0, SEEK_END);
}

void CLogFile::Write(CLogRing::T_Batch i_batch) {
  const auto max = static_cast<off_t>(m_stSettings.m_maxBytes);
  while (!i_batch.m_lines.empty()) {
    const off_t length = Length();
    size_t lines = 0;
    off_t size = 0;
    do size += i_batch.m_lines[lines++].m_u32Size;
    while (lines < i_batch.m_lines.size() && (length < 0 || length + size < max));
    Append(i_batch.m_pBytes, static_cast<size_t>(size));
    if (length >= 0 && Length() >= max) Roll();
    i_batch = {i_batch.m_lines.subspan(lines), i_batch.m_pBytes + size};
  }
}

void CLogFile::Append(const char* i_pBytes, size_t i_size) {
  SInt32 s32Errno = 0;
  while (i_size > 0 && s32Errno == 0) {
    const ssize_t written = write(m_file.Get(), i_pBytes, i_size);
    if (written < 0 && errno != EINTR) s32Errno = errno;
    if (written <= 0) continue;
    i_pBytes += written;
    i_size -= static_cast<size_t>(written);
  }
  m_loss.Watch(s32Errno);
}

// Takes no memory: a crash in malloc may be why the lines are written now.
void CLogFile::Roll() {
  struct T_Name {
    char m_szPath[PATH_MAX];
  };
  const auto name = [this](UInt32 i_u32Number) {
    T_Name stName;
    std::snprintf(stName.m_szPath, sizeof(stName.m_szPath), "%s.%0*u",
                  m_stSettings.m_strPath.c_str(), m_stSettings.m_s32Digits, i_u32Number);
    return stName;
  };
  for (UInt32 u32Number = m_stSettings.m_u32MaxBackups; u32Number > 1; --u32Number)
    std::rename(name(u32Number - 1).m_szPath, name(u32Number).m_szPath);
  std::rename(m_stSettings.m_strPath.c_str(), name(1).m_szPath);
  Reopen(m_stSettings.m_s32MoreFlags);
}

void CLogFile::Reopen(SInt32 i_s32MoreFlags) {
  m_file = CDescriptor();
  m_file =
      CDescriptor(OpenLogFile(m_stSettings.m_strPath.c_str(), i_s32MoreFlags, m_stSettings.m_mode));
}

void CLogFile::Follow() {
  if (!IsAtItsName(m_file.Get(), m_stSettings.m_strPath.c_str())) Reopen(0);
}
