#include "framework/idletask.h"

#include "framework/clock.h"

void CIdleTaskThread::SetIdleTimer(CIdleTask* i_pIdleObj, SInt64 i_s64Msec) {
  CMutexLocker locker(&m_objMutex);
  if (i_pIdleObj->m_objIdleElem.IsMemberOfAnyHeap()) return;
  i_pIdleObj->m_objIdleElem.SetValue(CTime::Milliseconds() + i_s64Msec);
  m_objIdleHeap.Insert(&i_pIdleObj->m_objIdleElem);
  m_objCond.Signal();
}

void CIdleTaskThread::CancelTimeout(CIdleTask* i_pIdleObj) {
  OSD_ASSERT(i_pIdleObj != nullptr, "i_pIdleObj != NULL", "idletask", 26);
  CMutexLocker locker(&m_objMutex);
  m_objIdleHeap.Remove(&i_pIdleObj->m_objIdleElem);
}

void CIdleTaskThread::Entry() {
  SetThreadName("idletaskthread");
  CMutexLocker locker(&m_objMutex);
  while (!IsStopRequested()) {
    if (m_objIdleHeap.CurrentHeapSize() == 0) {
      m_objCond.TimedWait(&m_objMutex, 0);
      continue;
    }
    const SInt64 s64Remaining = m_objIdleHeap.PeekMin()->GetValue() - CTime::Milliseconds();
    if (s64Remaining > 0) {
      m_objCond.TimedWait(&m_objMutex, CTime::ClampWait(s64Remaining));
      continue;
    }
    CHeapElem* const pElem = m_objIdleHeap.ExtractMin();
    OSD_ASSERT(pElem != nullptr, "pElem != NULL", "idletask", 50);
    static_cast<CIdleTask*>(pElem->GetEnclosingObject())->Signal(CTask::kIdleEvent);
  }
}

void CIdleTaskThread::StopAndWake() {
  {
    CMutexLocker locker(&m_objMutex);
    RequestStop();
    m_objCond.Signal();
  }
  StopAndWaitForThread();
}

std::atomic<CIdleTaskThread*> CIdleTask::s_pIdleThread{nullptr};

void CIdleTask::Initialize() {
  if (s_pIdleThread.load(std::memory_order_acquire) != nullptr) return;
  auto* pThread = new CIdleTaskThread;
  s_pIdleThread.store(pThread, std::memory_order_release);
  pThread->Start();
}

CIdleTask::CIdleTask() : m_objIdleElem(this) { SetTaskName("CIdleTask"); }

CIdleTask::~CIdleTask() {
  CIdleTaskThread* const pThread = s_pIdleThread.load(std::memory_order_acquire);
  OSD_ASSERT(pThread != nullptr, "s_pIdleThread != NULL", "idletask", 80);
  pThread->CancelTimeout(this);
}

void CIdleTask::SetIdleTimer(SInt64 i_s64Msec) {
  s_pIdleThread.load(std::memory_order_acquire)->SetIdleTimer(this, i_s64Msec);
}

void CIdleTask::CancelTimeout() {
  s_pIdleThread.load(std::memory_order_acquire)->CancelTimeout(this);
}
