#include "daemon/pidfile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "framework/descriptor.h"
#include "framework/log.h"

namespace {

Bool Lock(SInt32 i_s32Fd) {
  if (flock(i_s32Fd, LOCK_EX | LOCK_NB) == 0) return true;
  std::puts("process allready started");
  return false;
}

}  // namespace

Bool IsPidFileLocked(const char* i_pPath) {
  const CDescriptor file(open(i_pPath, O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  return file.Get() >= 0 && !Lock(file.Get());
}

Bool AcquirePidFile(const char* i_pPath) {
  // Never closed, so that the lock lives as long as the process; not inherited by commands that it
  // runs, so that they cannot keep the lock after a crash. The file is emptied before the lock is
  // tried: a second instance leaves the first one's file empty, and that is how it has always been.
  const int fd = open(i_pPath, O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) {
    LOG_ERROR("open pid file failed: %s", strerror(errno));
    return false;
  }
  if (!Lock(fd)) return false;
  char szPid[16];
  const int length = std::snprintf(szPid, sizeof(szPid), "%d", getpid());
  if (write(fd, szPid, static_cast<size_t>(length)) != length)
    LOG_ERROR("write pid file failed: %s", strerror(errno));
  return true;
}
