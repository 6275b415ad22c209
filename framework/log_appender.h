// Between log4cpp and the log's writer: an appender that puts its lines into memory, for each of
// log4cpp's FileAppender and RollingFileAppender that a property file names.
#pragma once

#include <log4cpp/AppenderSkeleton.hh>
#include <log4cpp/FileAppender.hh>
#include <memory>
#include <optional>

#include "framework/log_file.h"
#include "framework/log_layout.h"
#include "framework/types.h"

// log4cpp keeps to itself where a file appender writes.
struct T_FileAppender : log4cpp::FileAppender {
  static const std::string& Path(const FileAppender& i_appender) {
    return i_appender.*&T_FileAppender::_fileName;
  }
  static int& Fd(FileAppender& io_appender) { return io_appender.*&T_FileAppender::_fd; }
  static int Flags(const FileAppender& i_appender) { return i_appender.*&T_FileAppender::_flags; }
  static log4cpp::Layout& Layout(FileAppender& i_appender) {
    return (i_appender.*&T_FileAppender::_getLayout)();
  }
};

class CLogAppender : public log4cpp::AppenderSkeleton {
 public:
  // Takes over name, file, threshold and layout of i_pOriginal, which it closes and owns.
  explicit CLogAppender(log4cpp::FileAppender* i_pOriginal);

  // Whether lines need no log4cpp to be formatted: a condition of Append.
  Bool IsDirect() const { return m_layout.has_value(); }
  // As doAppend. A line of log4cpp's ERROR and above may wait for room.
  void Append(const T_LogLine& i_stLine);
  // Whatever the threshold. False, and not counted as dropped, when there is no room. Keeps errno.
  Bool Put(const log4cpp::LoggingEvent& i_event, Bool i_bMayWait);

  void Follow();

  void close() override {}
  bool reopen() override;
  bool requiresLayout() const override { return true; }
  // From whoever has no lines written meanwhile.
  void setLayout(log4cpp::Layout* i_pLayout) override;

 protected:
  void _append(const log4cpp::LoggingEvent& i_event) override;

 private:
  std::unique_ptr<log4cpp::FileAppender> m_pOriginal;
  CLogFile m_file;
  std::optional<CLogLayout> m_layout;  // guarded by the writer's lock while lines are put in
};

// Puts a CLogAppender in the place of each FileAppender and RollingFileAppender that no category
// owns, in all categories. They live until log4cpp deletes them, at exit. One thread only.
void TakeOverFileAppenders();
