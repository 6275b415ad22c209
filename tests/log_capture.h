// What the code under test logs, line by line, without the trailing " --[file:line]".
#pragma once

#include <algorithm>
#include <log4cpp/Appender.hh>
#include <log4cpp/Category.hh>
#include <log4cpp/LayoutAppender.hh>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

class CLogCapture {
 public:
  CLogCapture() : m_pAppender(new CAppender) {
    log4cpp::Category& category = log4cpp::Category::getInstance("CATEGORY");
    category.setPriority(log4cpp::Priority::DEBUG);
    category.addAppender(m_pAppender);
  }
  ~CLogCapture() { log4cpp::Category::getInstance("CATEGORY").removeAppender(m_pAppender); }
  CLogCapture(const CLogCapture&) = delete;
  CLogCapture& operator=(const CLogCapture&) = delete;

  // Lines so far, each "PRIORITY text"; the log is empty afterwards.
  std::vector<std::string> Take() { return m_pAppender->Take(); }

  // Whether i_line ("PRIORITY text") has been logged and not yet taken.
  bool Has(const std::string& i_line) { return m_pAppender->Count(i_line) > 0; }
  long Count(const std::string& i_line) { return m_pAppender->Count(i_line); }

 private:
  class CAppender : public log4cpp::LayoutAppender {
   public:
    CAppender() : LayoutAppender("capture") {}
    void close() override {}
    std::vector<std::string> Take() {
      std::lock_guard lock(m_mutex);
      return std::exchange(m_lines, {});
    }
    long Count(const std::string& i_line) {
      std::lock_guard lock(m_mutex);
      return std::count(m_lines.begin(), m_lines.end(), i_line);
    }

   protected:
    void _append(const log4cpp::LoggingEvent& i_event) override {
      std::lock_guard lock(m_mutex);
      m_lines.push_back(log4cpp::Priority::getPriorityName(i_event.priority) + " " +
                        i_event.message.substr(0, i_event.message.rfind(" --[")));
    }

   private:
    std::mutex m_mutex;
    std::vector<std::string> m_lines;
  };

  CAppender* m_pAppender;  // the category's
};
