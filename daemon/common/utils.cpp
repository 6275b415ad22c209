#include "daemon/common/utils.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "framework/log.h"

namespace {

// The child of vfork runs in the parent's memory until execl. A signal to the process group must
// not run the daemon's handler there, so all signals wait until those that the daemon handles have
// their default meaning in the child.
pid_t SpawnShell(const char* i_pCommand) {
  struct sigaction standard = {};
  standard.sa_handler = SIG_DFL;
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  const pid_t child =
      vfork();  // NOLINT(clang-analyzer-security.insecureAPI.vfork): the shell starts at once
  if (child == 0) {
    sigaction(SIGINT, &standard, nullptr);
    sigaction(SIGTERM, &standard, nullptr);
    sigaction(SIGPIPE, &standard, nullptr);
    sigprocmask(SIG_SETMASK, &before, nullptr);
    execl("/bin/sh", "sh", "-c", i_pCommand, static_cast<char*>(nullptr));
    _exit(127);
  }
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  return child;
}

SInt32 AwaitChild(pid_t i_child) {
  int status = 0;
  while (waitpid(i_child, &status, 0) < 0)
    if (errno != EINTR) return -1;
  return status;
}

}  // namespace

SInt32 my_system(const char* i_pCommand) {
  if (i_pCommand == nullptr) return 1;
  const pid_t child = SpawnShell(i_pCommand);
  if (child < 0) LOG_ERROR("my_system vfork err ");
  const SInt32 s32Status = child < 0 ? -1 : AwaitChild(child);
  LOG_INFO("my_system cmd<%s> status = %d", i_pCommand, s32Status);
  return s32Status;
}

std::string ShellQuote(std::string_view i_text) {
  std::string quoted = "'";
  for (const char c : i_text.substr(0, i_text.find('\0'))) {
    if (c == '\'')
      quoted += "'\\''";
    else
      quoted += c;
  }
  return quoted + "'";
}
