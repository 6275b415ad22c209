#include "framework/console.h"

#include <poll.h>
#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>

namespace {

std::atomic_flag s_bTaken;

// Between the question whether a pipe has room and the write, no other thread may use the room up.
// Signals wait meanwhile, because a handler would spin for the very line that it interrupted.
class CTurn {
 public:
  CTurn() {
    sigset_t stAll;
    sigfillset(&stAll);
    pthread_sigmask(SIG_BLOCK, &stAll, &m_stMask);
    while (s_bTaken.test_and_set(std::memory_order_acquire)) sched_yield();
  }
  ~CTurn() {
    s_bTaken.clear(std::memory_order_release);
    pthread_sigmask(SIG_SETMASK, &m_stMask, nullptr);
  }
  CTurn(const CTurn&) = delete;
  CTurn& operator=(const CTurn&) = delete;

 private:
  sigset_t m_stMask;
};

// The descriptor is never made non-blocking instead: others share what it refers to.
Bool TakesMore(SInt32 i_s32Fd) {
  pollfd stAsked{i_s32Fd, POLLOUT, 0};
  return poll(&stAsked, 1, 0) == 1 && (stAsked.revents & POLLOUT) != 0;
}

}  // namespace

void PrintAtOnce(SInt32 i_s32Fd, std::string_view i_text) {
  const int callersErrno = errno;
  const CTurn turn;
  while (!i_text.empty() && TakesMore(i_s32Fd)) {
    // What a pipe that is ready has room for; more might block.
    const size_t bytes = std::min<size_t>(i_text.size(), PIPE_BUF);
    const ssize_t sWritten = write(i_s32Fd, i_text.data(), bytes);
    if (sWritten <= 0) break;
    i_text.remove_prefix(static_cast<size_t>(sWritten));
  }
  errno = callersErrno;
}
