#include "framework/log_appender.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <log4cpp/Category.hh>
#include <log4cpp/RollingFileAppender.hh>
#include <map>
#include <typeinfo>
#include <vector>

#include "framework/log_writer.h"

namespace {

struct T_RollingAppender : log4cpp::RollingFileAppender {
  static SInt32 Digits(const RollingFileAppender& i_appender) {
    return i_appender.*&T_RollingAppender::_maxBackupIndexWidth;
  }
};

CLogFile::T_Settings Settings(const log4cpp::FileAppender& i_appender) {
  CLogFile::T_Settings stSettings{.m_strPath = T_FileAppender::Path(i_appender),
                                  .m_s32MoreFlags = T_FileAppender::Flags(i_appender) & O_TRUNC,
                                  .m_mode = i_appender.getMode()};
  const auto* const pRolling = dynamic_cast<const log4cpp::RollingFileAppender*>(&i_appender);
  if (pRolling == nullptr) return stSettings;
  stSettings.m_maxBytes = pRolling->getMaxFileSize();
  stSettings.m_u32MaxBackups = pRolling->getMaxBackupIndex();
  stSettings.m_s32Digits = T_RollingAppender::Digits(*pRolling);
  return stSettings;
}

Bool IsUrgent(SInt32 i_s32Priority) { return i_s32Priority <= log4cpp::Priority::ERROR; }

}  // namespace

CLogAppender::CLogAppender(log4cpp::FileAppender* i_pOriginal)
    : AppenderSkeleton(i_pOriginal->getName()),
      m_pOriginal(i_pOriginal),
      m_file(Settings(*i_pOriginal)),
      m_layout(CLogLayout::Of(T_FileAppender::Layout(*i_pOriginal))) {
  setThreshold(i_pOriginal->getThreshold());
  i_pOriginal->close();
}

void CLogAppender::Append(const T_LogLine& i_stLine) {
  const SInt32 s32Threshold = getThreshold();
  if (s32Threshold != log4cpp::Priority::NOTSET && i_stLine.m_s32Priority > s32Threshold) return;
  CLogWriter& writer = CLogWriter::Get();
  if (!writer.Put(&m_file, m_layout->MostBytes(i_stLine), IsUrgent(i_stLine.m_s32Priority),
                  [&](char* o_p) { return m_layout->Write(i_stLine, o_p); }))
    writer.AddDropped(1);
  writer.AwaitCrash();
}

Bool CLogAppender::Put(const log4cpp::LoggingEvent& i_event, Bool i_bMayWait) {
  const int callersErrno = errno;
  const std::string strLine = T_FileAppender::Layout(*m_pOriginal).format(i_event);
  const Bool bPut = CLogWriter::Get().Put(&m_file, strLine.size(), i_bMayWait, [&](char* o_p) {
    return std::ranges::copy(strLine, o_p).out;
  });
  errno = callersErrno;
  return bPut;
}

void CLogAppender::Follow() { CLogWriter::Get().Follow(m_file); }

bool CLogAppender::reopen() {
  Follow();
  return true;
}

void CLogAppender::setLayout(log4cpp::Layout* i_pLayout) {
  m_pOriginal->setLayout(i_pLayout);
  m_layout = CLogLayout::Of(T_FileAppender::Layout(*m_pOriginal));
}

void CLogAppender::_append(const log4cpp::LoggingEvent& i_event) {
  if (!Put(i_event, IsUrgent(i_event.priority))) CLogWriter::Get().AddDropped(1);
}

void TakeOverFileAppenders() {
  std::map<log4cpp::Appender*, CLogAppender*> ours;
  const std::unique_ptr<std::vector<log4cpp::Category*>> pCategories(
      log4cpp::Category::getCurrentCategories());
  for (log4cpp::Category* const pCategory : *pCategories)
    for (log4cpp::Appender* const pTheirs : pCategory->getAllAppenders()) {
      const Bool bFile = typeid(*pTheirs) == typeid(log4cpp::FileAppender) ||
                         typeid(*pTheirs) == typeid(log4cpp::RollingFileAppender);
      if (!bFile || pCategory->ownsAppender(pTheirs)) continue;
      CLogAppender*& pOurs = ours[pTheirs];
      if (pOurs == nullptr) pOurs = new CLogAppender(static_cast<log4cpp::FileAppender*>(pTheirs));
      pCategory->removeAppender(pTheirs);
      pCategory->addAppender(*pOurs);
    }
}
