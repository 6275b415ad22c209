#include "framework/log.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <log4cpp/Category.hh>
#include <log4cpp/FileAppender.hh>
#include <log4cpp/PropertyConfigurator.hh>
#include <mutex>
#include <stdexcept>
#include <utility>

#include "framework/console.h"
#include "framework/descriptor.h"

namespace {

// More than any datagram of 4096 bytes makes of a line. What is longer, a shell command, is cut.
constexpr size_t kMessageSize = 8192;

// While it is held no appender's file is written, rolled or opened anew: log4cpp itself would let a
// file be opened anew beside a write to its descriptor.
std::mutex s_files;
Bool s_bLosingLines = false;  // guarded by s_files

// At exit log4cpp frees its categories before the objects that were made before main are destroyed.
std::atomic<Bool> s_bEnded{false};
struct T_End {
  ~T_End() { s_bEnded.store(true, std::memory_order_relaxed); }
};

log4cpp::Category& Category() {
  static log4cpp::Category& s_category = log4cpp::Category::getInstance("CATEGORY");
  static const T_End s_stEnd;
  return s_category;
}

void Complain(const std::string& i_text) { PrintAtOnce(STDERR_FILENO, "osdsrv: " + i_text + "\n"); }

// log4cpp drops the result of its write(2), so errno is the only witness of a lost line.
Bool IsWriteFailure(int i_errno) {
  switch (i_errno) {
    case EAGAIN:
    case EBADF:
    case EDQUOT:
    case EFBIG:
    case EIO:
    case ENOSPC:
    case EROFS:
      return true;
    default:
      return false;
  }
}

// log4cpp keeps to itself where a file appender writes.
struct T_FileAppender : log4cpp::FileAppender {
  static Bool IsAtItsName(const FileAppender& i_appender) {
    const std::string& strName = i_appender.*&T_FileAppender::_fileName;
    struct stat opened {};
    struct stat named {};
    return fstat(i_appender.*&T_FileAppender::_fd, &opened) == 0 &&
           stat(strName.c_str(), &named) == 0 && opened.st_dev == named.st_dev &&
           opened.st_ino == named.st_ino;
  }
  // In log4cpp's place, which would wait for a pipe's reader while all that log wait for it. A file
  // that cannot be opened stays closed, and its next line is told as lost.
  static void Reopen(FileAppender& io_appender) {
    io_appender.close();
    io_appender.*& T_FileAppender::_fd =
        open((io_appender.*&T_FileAppender::_fileName).c_str(),
             O_WRONLY | O_APPEND | O_CREAT | O_NONBLOCK | O_CLOEXEC, 0644);
  }
};

void WatchForLoss(int i_errno) {
  const Bool bLost = IsWriteFailure(i_errno);
  if (std::exchange(s_bLosingLines, bLost) == bLost) return;
  if (bLost)
    Complain(std::string("cannot write the log: ") + std::strerror(i_errno) +
             "; lines are lost until the log's folder exists and has space again");
  else
    Complain("the log is written again");
}

// What a configuration file looked like when it was read in vain.
struct T_ConfigurationTried {
  ino_t m_inode = 0;
  time_t m_seconds = 0;
  long m_nanoseconds = 0;
  Bool m_bTried = false;
  bool operator==(const T_ConfigurationTried&) const = default;
};

// log4cpp would wait for a reader of a log file that is a pipe. Throws its name.
void RefusePipes(const std::string& i_strConfiguration) {
  std::ifstream lines(i_strConfiguration);
  for (std::string strLine; std::getline(lines, strLine);) {
    const size_t equal = strLine.find('=', strLine.find(".fileName"));
    if (equal == std::string::npos) continue;
    const size_t start = strLine.find_first_not_of(" \t", equal + 1);
    if (start == std::string::npos) continue;
    const std::string strFile =
        strLine.substr(start, strLine.find_last_not_of(" \t\r") + 1 - start);
    struct stat file {};
    if (stat(strFile.c_str(), &file) == 0 && S_ISFIFO(file.st_mode))
      throw std::runtime_error("its log file " + strFile + " is a pipe");
  }
}

// Throws why it cannot. log4cpp gets the name of the very file that was looked at: by now the path
// may lead to a pipe, on which it would wait.
void ReadConfiguration(const CDescriptor& i_named, mode_t i_mode) {
  if (!S_ISREG(i_mode)) throw std::runtime_error("it is no regular file");
  const std::string strSelf = "/proc/self/fd/" + std::to_string(i_named.Get());
  if (access(strSelf.c_str(), R_OK) != 0)
    throw std::runtime_error("it cannot be read, through " + strSelf + ": " + std::strerror(errno));
  RefusePipes(strSelf);
  log4cpp::PropertyConfigurator::configure(strSelf);
}

Bool IsControl(char i_c) {
  const auto u8Code = static_cast<UInt8>(i_c);
  return (u8Code & 0x60) == 0 || u8Code == 0x7F;
}

// With room for i_more bytes behind it.
std::string Escaped(std::string_view i_text, size_t i_more) {
  constexpr char kDigits[] = "0123456789abcdef";
  const auto controls = static_cast<size_t>(std::ranges::count_if(i_text, IsControl));
  std::string strEscaped;
  strEscaped.reserve(i_text.size() + 3 * controls + i_more);
  if (controls == 0) return strEscaped.append(i_text);
  for (const char c : i_text) {
    const auto u8Code = static_cast<UInt8>(c);
    if (IsControl(c))
      strEscaped.append({'\\', 'x', kDigits[u8Code >> 4], kDigits[u8Code & 15]});
    else
      strEscaped += c;
  }
  return strEscaped;
}

}  // namespace

// The descriptor only names the file: whatever it is, it is not opened before that is known.
Bool CLog::Configure(const char* i_pPath) {
  const CDescriptor named(open(i_pPath, O_PATH | O_CLOEXEC));
  const int openErrno = errno;
  struct stat file = {};  // all zeros where there is none
  if (named.Get() >= 0) fstat(named.Get(), &file);
  static T_ConfigurationTried s_stTried;
  const T_ConfigurationTried now{file.st_ino, file.st_mtim.tv_sec, file.st_mtim.tv_nsec, true};
  if (s_stTried == now) return false;
  const Bool bFirst = !s_stTried.m_bTried;
  s_stTried = now;
  try {
    if (named.Get() < 0) throw std::runtime_error(std::strerror(openErrno));
    ReadConfiguration(named, file.st_mode);
    return true;
  } catch (const std::exception& failure) {
    if (bFirst || file.st_ino != 0)
      Complain(std::string("cannot use the log configuration ") + i_pPath + ": " + failure.what() +
               "; going on without a log until a log4cpp property file is there");
    return false;
  }
}

void CLog::FollowFiles() {
  const std::lock_guard guard(s_files);
  for (log4cpp::Category* p = &Category(); p != nullptr; p = p->getParent())
    for (log4cpp::Appender* const pAppender : p->getAllAppenders()) {
      auto* const pFile = dynamic_cast<log4cpp::FileAppender*>(pAppender);
      if (pFile != nullptr && !T_FileAppender::IsAtItsName(*pFile)) T_FileAppender::Reopen(*pFile);
    }
}

void CLog::Shutdown() { log4cpp::Category::shutdown(); }

Bool CLog::Enabled(Priority i_ePriority) {
  return !s_bEnded.load(std::memory_order_relaxed) && Category().isPriorityEnabled(i_ePriority);
}

void CLog::Write(Priority i_ePriority, const char* i_pFile, UInt32 i_u32Line, const char* i_pFormat,
                 ...) {
  const int callersErrno = errno;
  char szMessage[kMessageSize];
  va_list arguments;
  va_start(arguments, i_pFormat);
  std::vsnprintf(szMessage, sizeof(szMessage), i_pFormat, arguments);
  va_end(arguments);
  const std::string strLine = std::to_string(i_u32Line);
  std::string strMessage = Escaped(szMessage, std::strlen(i_pFile) + strLine.size() + 6);
  strMessage.append(" --[").append(i_pFile).append(":").append(strLine).append("]");
  {
    const std::lock_guard guard(s_files);
    errno = 0;
    Category().log(i_ePriority, strMessage);
    WatchForLoss(errno);
  }
  errno = callersErrno;
}

std::string Printable(std::string_view i_text) { return Escaped(i_text, 0); }
