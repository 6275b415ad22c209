#include "common/osd/pictures/worker.h"

#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <utility>

#include "framework/log.h"

namespace {

// Below all threads of the daemon, so that drawing goes on on a single core, too.
constexpr SInt32 kNice = 10;
constexpr UInt32 kRetryMs = 100;

CResult<T_Loaded> Load(const T_PictureJob& i_job, const std::stop_token& i_stop) {
  if (i_job.m_bWholeScreen) {
    std::vector<T_Extent> canvases;
    for (const auto& target : i_job.m_vecTargets) canvases.push_back(target.m_stCanvas);
    return LoadScreen(i_job.m_strPath, i_job.m_strOverlay, canvases, i_stop);
  }
  std::vector<T_WantedSize> sizes;
  for (const auto& target : i_job.m_vecTargets) sizes.push_back(target.m_stSize);
  return LoadPicture(i_job.m_strPath, sizes, i_stop);
}

}  // namespace

std::shared_ptr<const CPicture> T_PictureResult::For(SInt32 i_s32Output,
                                                     const T_Extent& i_stCanvas) const {
  if (!m_loaded) return nullptr;
  for (size_t i = 0; i < m_loaded->m_vecPictures.size(); ++i) {
    const T_PictureJob::T_Target& target = m_stJob.m_vecTargets[i];
    if (target.m_s32Output == i_s32Output && target.m_stCanvas == i_stCanvas)
      return m_loaded->m_vecPictures[i];
  }
  return nullptr;
}

UInt64 CPictureWorker::Add(T_PictureJob i_stJob) {
  if (!HasRoom()) return 0;
  UInt64 u64Ticket = 0;
  {
    CMutexLocker locker(&m_objLock);
    u64Ticket = ++m_u64LastTicket;
    m_dequeWaiting.push_back({u64Ticket, std::move(i_stJob)});
    m_objChanged.Signal();
  }
  StartOnce();
  return u64Ticket;
}

void CPictureWorker::StartOnce() {
  if (!IsStopRequested() && !std::exchange(m_bStarted, true)) Start();
}

Bool CPictureWorker::HasRoom() {
  CMutexLocker locker(&m_objLock);
  return m_dequeWaiting.size() < kMaxWaiting;
}

void CPictureWorker::Withdraw(UInt64 i_u64Ticket) {
  CMutexLocker locker(&m_objLock);
  std::erase_if(m_dequeWaiting,
                [=](const T_Waiting& i_waiting) { return i_waiting.m_u64Ticket == i_u64Ticket; });
  if (m_u64UnderWay == i_u64Ticket) m_objStop.request_stop();
}

void CPictureWorker::Stop() {
  {
    CMutexLocker locker(&m_objLock);
    RequestStop();
    m_objStop.request_stop();
    m_objChanged.Signal();
  }
  StopAndWaitForThread();
}

Bool CPictureWorker::Take(T_Waiting* o_pWaiting, std::stop_token* o_pStop) {
  CMutexLocker locker(&m_objLock);
  m_u64UnderWay = 0;
  while (m_dequeWaiting.empty() && !IsStopRequested()) m_objChanged.TimedWait(&m_objLock, 0);
  if (IsStopRequested()) return false;
  *o_pWaiting = std::move(m_dequeWaiting.front());
  m_dequeWaiting.pop_front();
  m_u64UnderWay = o_pWaiting->m_u64Ticket;
  m_objStop = {};
  *o_pStop = m_objStop.get_token();
  return true;
}

void CPictureWorker::Entry() {
  SetThreadName("osdpicture");
  setpriority(PRIO_PROCESS, static_cast<id_t>(syscall(SYS_gettid)), kNice);
  T_Waiting next;
  for (std::stop_token stop; Take(&next, &stop);) {
    CResult<T_Loaded> loaded = Load(next.m_stJob, stop);
    if (stop.stop_requested()) continue;
    if (!loaded)
      LOG_ERROR("picture <%.4000s> is not shown: %s", next.m_stJob.m_strPath.c_str(),
                loaded.Why().c_str());
    Deliver(std::make_unique<T_PictureResult>(
        T_PictureResult{next.m_u64Ticket, std::move(next.m_stJob), std::move(loaded)}));
  }
}

void CPictureWorker::Deliver(std::unique_ptr<T_PictureResult> i_pResult) {
  while (!m_deliver(i_pResult) && !IsStopRequested()) Sleep(kRetryMs);
}
