#include "framework/program.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>

#include "framework/descriptor.h"

namespace {

// By the process, or ignored.
constexpr SInt32 kHandled[] = {SIGINT, SIGTERM, SIGPIPE, SIGXFSZ, SIGABRT, SIGBUS, SIGFPE, SIGSEGV};
constexpr rlim_t kMostDescriptors = 65536;  // that are closed one by one, however many are allowed

// In the child, whose descriptors are its own though its memory is not: above the standard streams
// none is a program's business. A kernel before 5.9 wants them one by one.
void CloseTheRest() {
  constexpr UInt32 u32First = STDERR_FILENO + 1;
  if (close_range(u32First, ~0U, 0) == 0) return;
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  const auto end = static_cast<SInt32>(std::min(limit.rlim_cur, kMostDescriptors));
  for (SInt32 fd = u32First; fd < end; ++fd) close(fd);
}

// The child of vfork runs in the parent's memory until execvp. A signal to the process group must
// not run the process's handlers there, so all signals wait until those that the process handles or
// ignores have their default meaning in the child. i_prepare runs there and makes plain system
// calls only.
template <class T_Prepare>
pid_t Spawn(const char* i_pFile, const char* const* i_pArguments, const T_Prepare& i_prepare) {
  struct sigaction standard = {};
  standard.sa_handler = SIG_DFL;
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  const pid_t child =
      vfork();  // NOLINT(clang-analyzer-security.insecureAPI.vfork): the program starts at once
  if (child == 0) {
    // NOLINTNEXTLINE(clang-analyzer-unix.Vfork): plain system calls, none of which touches memory
    for (const SInt32 signal : kHandled) sigaction(signal, &standard, nullptr);
    i_prepare();
    CloseTheRest();
    sigprocmask(SIG_SETMASK, &before, nullptr);
    execvp(i_pFile, const_cast<char* const*>(i_pArguments));
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

using Clock = std::chrono::steady_clock;
constexpr SInt32 kSliceMs = 50;        // how late a time limit or a stop may be noticed
constexpr SInt32 kClosingSliceMs = 1;  // between the end of the output and the end of the program

// In the child. A lower limit that is there already stays.
void Limit(decltype(RLIMIT_CORE) i_resource, UInt64 i_u64Most) {
  rlimit limit{};
  getrlimit(i_resource, &limit);
  limit.rlim_cur = static_cast<rlim_t>(std::min<UInt64>(limit.rlim_cur, i_u64Most));
  setrlimit(i_resource, &limit);
}

pid_t Start(const T_Program& i_program, SInt32 i_s32Stderr) {
  const pid_t child = Spawn(i_program.m_pArguments[0], i_program.m_pArguments, [&] {
    setpgid(0, 0);
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    Limit(RLIMIT_CORE, 0);
    Limit(RLIMIT_CPU, i_program.m_u32MaxProcessorS);
    Limit(RLIMIT_FSIZE, i_program.m_u64MaxFileBytes);
    Limit(RLIMIT_AS, i_program.m_u64MaxMemory);
    dup2(i_program.m_s32Stdin, STDIN_FILENO);
    dup2(i_program.m_s32Stdout, STDOUT_FILENO);
    dup2(i_s32Stderr, STDERR_FILENO);
  });
  if (child > 0) setpgid(child, child);  // where vfork does not wait for the child
  return child;
}

// The child stays a zombie, so that its process group keeps its number until all of it is killed.
Bool HasEnded(pid_t i_child) {
  siginfo_t info{};
  return waitid(P_PID, static_cast<id_t>(i_child), &info, WEXITED | WNOHANG | WNOWAIT) != 0 ||
         info.si_pid == i_child;
}

// One read of what there is; false at the end of the pipe. Beyond the limit it is thrown away.
Bool Collect(SInt32 i_s32Fd, std::string* io_pText) {
  char aText[T_ProgramResult::kMaxErrorText];
  const ssize_t got = read(i_s32Fd, aText, sizeof(aText));
  if (got < 0) return true;
  io_pText->append(aText, std::min(static_cast<size_t>(got), sizeof(aText) - io_pText->size()));
  return got > 0;
}

ProgramEnd AwaitEnd(pid_t i_child, SInt32 i_s32Fd, Clock::time_point i_limit,
                    const std::stop_token& i_stop, std::string* o_pText) {
  pollfd output{i_s32Fd, POLLIN, 0};
  while (!HasEnded(i_child)) {
    if (i_stop.stop_requested()) return ProgramEnd::kStopped;
    if (Clock::now() >= i_limit) return ProgramEnd::kTimedOut;
    poll(&output, 1, output.fd < 0 ? kClosingSliceMs : kSliceMs);
    if (output.revents != 0 && !Collect(i_s32Fd, o_pText)) output.fd = -1;
  }
  Collect(i_s32Fd, o_pText);
  return ProgramEnd::kEnded;
}

}  // namespace

std::optional<SInt32> RunShell(const char* i_pCommand) {
  const char* const aArguments[] = {"sh", "-c", i_pCommand, nullptr};
  const pid_t child = Spawn("/bin/sh", aArguments, [] {});
  if (child < 0) return std::nullopt;
  return AwaitChild(child);
}

T_ProgramResult RunProgram(const T_Program& i_program, const std::stop_token& i_stop) {
  const Clock::time_point limit = Clock::now() + std::chrono::milliseconds(i_program.m_u32LimitMs);
  T_ProgramResult result;
  int aEnds[2];
  if (pipe2(aEnds, O_CLOEXEC) != 0) return result;
  const CDescriptor reader(aEnds[0]);
  CDescriptor writer(aEnds[1]);
  fcntl(reader.Get(), F_SETFL, O_NONBLOCK);
  const pid_t child = Start(i_program, writer.Get());
  if (child < 0) return result;
  writer = CDescriptor();
  result.m_eEnd = AwaitEnd(child, reader.Get(), limit, i_stop, &result.m_strError);
  kill(-child, SIGKILL);
  kill(child, SIGKILL);  // it may have left its group
  result.m_s32Status = AwaitChild(child);
  return result;
}
