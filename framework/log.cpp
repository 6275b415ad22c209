#include "framework/log.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <cstdarg>
#include <cstring>
#include <ctime>
#include <deque>
#include <fstream>
#include <iterator>
#include <log4cpp/Category.hh>
#include <log4cpp/FileAppender.hh>
#include <log4cpp/LoggingEvent.hh>
#include <log4cpp/Priority.hh>
#include <log4cpp/PropertyConfigurator.hh>
#include <stdexcept>
#include <utility>
#include <vector>

#include "framework/console.h"
#include "framework/descriptor.h"
#include "framework/format.h"
#include "framework/log_appender.h"
#include "framework/log_writer.h"
#include "framework/mutex.h"

namespace {

// More than any datagram of 4096 bytes makes of a line. What is longer, a shell command, is cut.
constexpr size_t kMessageSize = 8192;

// A file's name has at most 255 bytes, a line 10 digits.
constexpr size_t kSuffixSize = sizeof(" --[:]") + 255 + 10;

// At exit log4cpp frees its categories before the objects that were made before main are destroyed.
std::atomic<Bool> s_bEnded{false};
struct T_End {
  ~T_End() {
    s_bEnded.store(true, std::memory_order_relaxed);
    CLogWriter::Get().Stop();
  }
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

// While it is held no appender of log4cpp's own is written or opened anew: log4cpp itself would let
// a file be opened anew beside a write to its descriptor.
CMutex& TheirLock() {
  static CMutex& s_lock = *new CMutex;
  return s_lock;
}

CLogLoss s_theirLoss;  // guarded by TheirLock

// How a line gets to the category's appenders: directly where all of them are ours, else by
// log4cpp.
struct T_Route {
  std::vector<CLogAppender*> m_ours;
  Bool m_bDirect = true;
  bool operator==(const T_Route&) const = default;
};
std::atomic<const T_Route*> s_pRoute{nullptr};  // by log4cpp as long as there is none

// The category and those above it that get its lines.
std::vector<log4cpp::Appender*> AllAppenders() {
  std::vector<log4cpp::Appender*> all;
  for (log4cpp::Category* p = &Category(); p != nullptr;
       p = p->getAdditivity() ? p->getParent() : nullptr)
    std::ranges::copy(p->getAllAppenders(), std::back_inserter(all));
  return all;
}

void FindRoute() {
  static auto& s_routes = *new std::deque<T_Route>;  // some thread may still be on an older one
  T_Route stRoute;
  for (log4cpp::Appender* const pAppender : AllAppenders()) {
    auto* const pOurs = dynamic_cast<CLogAppender*>(pAppender);
    stRoute.m_bDirect = stRoute.m_bDirect && pOurs != nullptr && pOurs->IsDirect();
    if (pOurs != nullptr) stRoute.m_ours.push_back(pOurs);
  }
  if (s_routes.empty() || s_routes.back() != stRoute) s_routes.push_back(std::move(stRoute));
  s_pRoute.store(&s_routes.back(), std::memory_order_release);
}

// What a configuration file looked like when it was read in vain.
struct T_ConfigurationTried {
  ino_t m_inode = 0;
  time_t m_seconds = 0;
  long m_nanoseconds = 0;
  std::string m_strPipe;  // as PipeNamedIn
  Bool m_bTried = false;
  bool operator==(const T_ConfigurationTried&) const = default;
};

// A log file of that configuration that is a pipe, or none: log4cpp would wait for its reader.
std::string PipeNamedIn(const std::string& i_strConfiguration) {
  std::ifstream lines(i_strConfiguration);
  for (std::string strLine; std::getline(lines, strLine);) {
    const size_t equal = strLine.find('=', strLine.find(".fileName"));
    if (equal == std::string::npos) continue;
    const size_t start = strLine.find_first_not_of(" \t", equal + 1);
    if (start == std::string::npos) continue;
    std::string strFile = strLine.substr(start, strLine.find_last_not_of(" \t\r") + 1 - start);
    struct stat file {};
    if (stat(strFile.c_str(), &file) == 0 && S_ISFIFO(file.st_mode)) return strFile;
  }
  return "";
}

// Throws why it cannot. log4cpp gets the name of the very file that was looked at: by now the path
// may lead to a pipe, on which it would wait.
void ReadConfiguration(const std::string& i_strSelf, mode_t i_mode, const std::string& i_strPipe) {
  if (!S_ISREG(i_mode)) throw std::runtime_error("it is no regular file");
  if (access(i_strSelf.c_str(), R_OK) != 0)
    throw std::runtime_error("it cannot be read, through " + i_strSelf + ": " +
                             std::strerror(errno));
  if (!i_strPipe.empty()) throw std::runtime_error("its log file " + i_strPipe + " is a pipe");
  log4cpp::PropertyConfigurator::configure(i_strSelf);
}

T_LogLine Line(SInt32 i_s32Priority, std::string_view i_text) {
  T_LogLine stLine{i_s32Priority, {}, i_text, CountControls(i_text)};
  clock_gettime(CLOCK_REALTIME, &stLine.m_stTime);
  return stLine;
}

std::string Escaped(std::string_view i_text, size_t i_controls) {
  std::string strEscaped(i_text.size() + 3 * i_controls, '\0');
  Escape(i_text, strEscaped.data());
  return strEscaped;
}

// A file that cannot be opened anew stays closed, and its next line is told as lost.
void FollowTheirs(log4cpp::Appender* i_pAppender) {
  auto* const pFile = dynamic_cast<log4cpp::FileAppender*>(i_pAppender);
  if (pFile == nullptr) return;
  int& fd = T_FileAppender::Fd(*pFile);
  const char* const pPath = T_FileAppender::Path(*pFile).c_str();
  if (IsAtItsName(fd, pPath)) return;
  pFile->close();
  fd = OpenLogFile(pPath, 0, 0644);
}

void WriteByLog4cpp(const T_LogLine& i_stLine) {
  const std::string strMessage = Escaped(i_stLine.m_text, i_stLine.m_controls);
  const CMutexLocker lock(&TheirLock());
  errno = 0;
  Category().log(i_stLine.m_s32Priority, strMessage);
  s_theirLoss.Watch(IsWriteFailure(errno) ? errno : 0);
}

// On the writer's thread, which is never to wait for log4cpp's other appenders.
void TellDropped() {
  const T_Route* const pRoute = s_pRoute.load(std::memory_order_acquire);
  const UInt32 u32Lines = CLogWriter::Get().TakeDropped();
  if (u32Lines == 0 || pRoute == nullptr) return;
  const log4cpp::LoggingEvent event(
      "CATEGORY",
      std::to_string(u32Lines) +
          " log lines were dropped, they came too fast --[" __FILE_NAME__ ":" +
          std::to_string(__LINE__) + "]",
      "", log4cpp::Priority::ERROR);
  Bool bTold = false;
  for (CLogAppender* const pOurs : pRoute->m_ours) bTold |= pOurs->Put(event, false);
  if (!bTold) CLogWriter::Get().AddDropped(u32Lines);
}

}  // namespace

// The descriptor only names the file: whatever it is, it is not opened before that is known.
Bool CLog::Configure(const char* i_pPath) {
  const CDescriptor named(open(i_pPath, O_PATH | O_CLOEXEC));
  const int openErrno = errno;
  struct stat file = {};  // all zeros where there is none
  if (named.Get() >= 0) fstat(named.Get(), &file);
  static T_ConfigurationTried s_stTried;
  const std::string strSelf = "/proc/self/fd/" + std::to_string(named.Get());
  const std::string strPipe = S_ISREG(file.st_mode) ? PipeNamedIn(strSelf) : "";
  const T_ConfigurationTried now{file.st_ino, file.st_mtim.tv_sec, file.st_mtim.tv_nsec, strPipe,
                                 true};
  if (s_stTried == now) return false;
  const Bool bFirst = !s_stTried.m_bTried;
  s_stTried = now;
  try {
    if (named.Get() < 0) throw std::runtime_error(std::strerror(openErrno));
    ReadConfiguration(strSelf, file.st_mode, strPipe);
    TakeOverFileAppenders();
    FindRoute();
    return true;
  } catch (const std::exception& failure) {
    TakeOverFileAppenders();  // a broken one may have named some before
    FindRoute();
    if (bFirst || file.st_ino != 0)
      Complain(std::string("cannot use the log configuration ") + i_pPath + ": " + failure.what() +
               "; going on without a log until a log4cpp property file is there");
    return false;
  }
}

void CLog::FollowFiles() {
  FindRoute();  // somebody may have added an appender
  for (CLogAppender* const pOurs : s_pRoute.load()->m_ours) pOurs->Follow();
  const CMutexLocker lock(&TheirLock());
  for (log4cpp::Appender* const pAppender : AllAppenders()) FollowTheirs(pAppender);
}

void CLog::Start() { CLogWriter::Get().Start(TellDropped); }

void CLog::Shutdown() {
  CLogWriter::Get().Stop();
  s_pRoute.store(nullptr, std::memory_order_release);
  log4cpp::Category::shutdown();
}

Bool CLog::Enabled(Priority i_ePriority) {
  return !s_bEnded.load(std::memory_order_relaxed) && Category().isPriorityEnabled(i_ePriority);
}

void CLog::Write(Priority i_ePriority, const char* i_pFile, UInt32 i_u32Line, const char* i_pFormat,
                 ...) {
  const int callersErrno = errno;
  char aText[kMessageSize + kSuffixSize];
  va_list arguments;
  va_start(arguments, i_pFormat);
  char* p = aText + Format(aText, kMessageSize, i_pFormat, arguments);
  va_end(arguments);
  p = stpcpy(stpcpy(p, " --["), i_pFile);
  *p++ = ':';
  p = std::to_chars(p, std::end(aText), i_u32Line).ptr;
  *p++ = ']';
  const T_LogLine stLine = Line(i_ePriority, {aText, p});
  const T_Route* const pRoute = s_pRoute.load(std::memory_order_acquire);
  if (pRoute == nullptr || !pRoute->m_bDirect)
    WriteByLog4cpp(stLine);
  else
    for (CLogAppender* const pOurs : pRoute->m_ours) pOurs->Append(stLine);
  errno = callersErrno;
}

std::string Printable(std::string_view i_text) { return Escaped(i_text, CountControls(i_text)); }
