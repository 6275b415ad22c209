#include "framework/console.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstring>
#include <iterator>

#include "framework/descriptor.h"

namespace {

// Another opening of what i_s32Fd leads to; none where that cannot be opened, or needs no waiting.
// i_s32Fd itself is never made non-blocking: others share it.
CDescriptor OpenAgain(SInt32 i_s32Fd, mode_t i_mode) {
  if (!S_ISFIFO(i_mode) && !S_ISCHR(i_mode)) return CDescriptor();
  char szPath[32] = "/proc/self/fd/";
  std::to_chars(szPath + std::strlen(szPath), std::end(szPath) - 1, i_s32Fd);
  return CDescriptor(open(szPath, O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
}

Bool TakesMore(SInt32 i_s32Fd) {
  pollfd stAsked{i_s32Fd, POLLOUT, 0};
  return poll(&stAsked, 1, 0) == 1 && (stAsked.revents & POLLOUT) != 0;
}

void Print(SInt32 i_s32Fd, std::string_view i_text) {
  struct stat status {};
  if (fstat(i_s32Fd, &status) != 0) return;
  if (S_ISSOCK(status.st_mode)) {
    send(i_s32Fd, i_text.data(), i_text.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    return;
  }
  const CDescriptor again = OpenAgain(i_s32Fd, status.st_mode);
  const SInt32 s32Fd = again.Get() >= 0 ? again.Get() : i_s32Fd;
  if (TakesMore(s32Fd)) static_cast<void>(!write(s32Fd, i_text.data(), i_text.size()));
}

}  // namespace

void PrintAtOnce(SInt32 i_s32Fd, std::string_view i_text) {
  const int callersErrno = errno;
  Print(i_s32Fd, i_text);
  errno = callersErrno;
}
