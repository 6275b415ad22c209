// The renderer: module 4 of the bus. It owns the layers, the display list and the font. One object
// lives as long as the process; asynchronous messages are handled on its thread, synchronous ones
// on the sender's. Pictures are read on a thread of their own and come back as messages.
//
// Locks, from the outside in: the renderer mutex, which lets every handler run alone; the mutex of
// layer map and display list; and then the lock of the picture worker's jobs. Neither mutex is held
// while the timer service is asked for the tick: a tick that is on its way holds the bus lock and
// wants them.
#pragma once

#include <deque>
#include <optional>
#include <string>

#include "common/osd/commands.h"
#include "common/osd/display_list.h"
#include "common/osd/guide.h"
#include "daemon/common/msg_queue.h"
#include "framework/thread.h"
#include "framework/thread_annotations.h"

class COsdHifb : public CThread {
 public:
  // A missing font is no obstacle.
  COsdHifb();
  // Stops the thread. What is still in the queue is freed unhandled.
  ~COsdHifb() override;

  // Queues a copy of i_pMsg, an asynchronous command, for the renderer's thread. 1 = queued, and what
  // it carries by address is the renderer's; 0 = refused (an ERROR line), and that stays the
  // sender's. Any thread.
  UInt32 PushMsg(const T_ModuleMsg* i_pMsg);

  // As CMsgQueue::HasRoomFor of that queue; from Stop on there is no room. Any thread.
  Bool HasRoomFor(CTask* i_pTask) { return m_objQueue.HasRoomFor(i_pTask); }

  // Handles i_pMsg, which is synchronous, on the calling thread and returns the handler's result: 1
  // for success and for numbers that are unknown, 0 for failure and null. What the message carries by
  // address is neither changed nor kept. i_u32Arg is not used. Any thread.
  UInt32 HandleSyncMsg(const T_ModuleMsg* i_pMsg, UInt32 i_u32Arg);

  // How many commands waited in the queue at a time, at most. Any thread.
  size_t LongestQueue() { return m_objQueue.Longest(); }

  // What is shown and kept now. Waits for a command that is being handled. Any thread.
  T_OsdState State();

  // Ends the thread within milliseconds and joins it. The owner's thread; again is harmless.
  void Stop();

 protected:
  void Entry() override;

 private:
  using T_Handler = UInt32 (COsdHifb::*)(const T_ModuleMsg&);
  struct T_Command {
    UInt32 m_u32MsgNo;
    T_Handler m_pHandler;
  };
  static const T_Command s_aCommands[];
  static const T_Command* FindCommand(UInt32 i_u32MsgNo);

  UInt32 Handle(const T_ModuleMsg& i_msg);
  UInt32 HandleAlone(const T_ModuleMsg& i_msg);
  UInt32 Dispatch(const T_ModuleMsg& i_msg) REQUIRES(m_objMutex, m_objListMutex);

  // Rows of the table: the command's body goes to its handler, or the record that it carries, in the
  // form that the list wants.
  template <class T, UInt32 (COsdHifb::*t_pHandler)(const T&)>
  UInt32 With(const T_ModuleMsg& i_msg) REQUIRES(m_objMutex, m_objListMutex);
  template <class T, UInt32 (COsdHifb::*t_pHandler)(T_DispRecord&)>
  UInt32 WithRecord(const T_ModuleMsg& i_msg) REQUIRES(m_objMutex, m_objListMutex);
  template <class T, auto t_pHandler>
  static constexpr T_Command Row();

  UInt32 HandleInit(const T_OsdInit& i_command) REQUIRES(m_objMutex, m_objListMutex);
  UInt32 HandleDeInit(const T_OsdDeInit& i_command) REQUIRES(m_objMutex, m_objListMutex);
  UInt32 HandleReInit(const T_OsdReInit& i_command) REQUIRES(m_objMutex, m_objListMutex);
  UInt32 HandleShow(T_DispRecord& io_record) REQUIRES(m_objMutex, m_objListMutex);
  UInt32 HandleCancel(const T_OsdTextCancel& i_command) REQUIRES(m_objMutex, m_objListMutex);
  UInt32 HandleIconHide(const T_OsdIconHide& i_command) REQUIRES(m_objMutex, m_objListMutex);
  UInt32 HandleGuide(const T_OsdGuide& i_command) REQUIRES(m_objMutex, m_objListMutex);
  UInt32 HandleShowById(T_DispRecord& io_record) REQUIRES(m_objMutex, m_objListMutex);
  UInt32 HandleCancelById(T_DispRecord& io_record) REQUIRES(m_objMutex, m_objListMutex);
  UInt32 HandleDelete(const T_OsdDelete& i_command) REQUIRES(m_objMutex, m_objListMutex);
  UInt32 HandlePictureOrResult(const T_ModuleMsg& i_msg) REQUIRES(m_objMutex, m_objListMutex);
  UInt32 HandlePicture(const T_OsdPicture& i_command) REQUIRES(m_objMutex, m_objListMutex);
  UInt32 HandleResult(const T_OsdPictureResult& i_command) REQUIRES(m_objMutex, m_objListMutex);
  UInt32 HandleCancelAll(const T_OsdCancelAll& i_command) REQUIRES(m_objMutex, m_objListMutex);

  UInt32 Init(const T_LayerRequest& i_request) REQUIRES(m_objMutex, m_objListMutex);
  void DeInit(SInt32 i_s32VoDev) REQUIRES(m_objMutex, m_objListMutex);
  void LoseLayer(T_LayerMap::iterator i_layer) REQUIRES(m_objMutex, m_objListMutex);
  void WantTick(Bool i_bWanted) REQUIRES(m_objMutex, m_objListMutex);
  std::optional<Bool> TickToSettle();
  void SettleTick();

  // The end of the command that is being handled, unless it waits for pictures.
  void Conclude(Bool i_bDone, const std::string& i_strWhy) REQUIRES(m_objMutex, m_objListMutex);
  UInt32 ConcludeShow(EOutcome i_eOutcome) REQUIRES(m_objMutex, m_objListMutex);

  CMsgQueue m_objQueue;

  CMutex m_objMutex ACQUIRED_BEFORE(m_objListMutex);
  // Whether the timer service was heard to have accepted the one-second tick.
  Bool m_bTickRunning GUARDED_BY(m_objMutex) = false;
  // What it is still to be asked for, in order: true starts the tick, false stops it.
  std::deque<Bool> m_dequeTick GUARDED_BY(m_objMutex);
  T_Asker m_stAsker GUARDED_BY(m_objMutex);  // of the command that is being handled
  // One thread at a time asks, so that the order is kept.
  Bool m_bTickSettling GUARDED_BY(m_objMutex) = false;

  CMutex m_objListMutex;
  T_LayerMap m_mapLayers GUARDED_BY(m_objListMutex);
  T_ItemList m_lstItems GUARDED_BY(m_objListMutex);
  CPictureDesk m_objDesk GUARDED_BY(m_objListMutex);
  CPainter m_objPainter GUARDED_BY(m_objListMutex){&m_mapLayers, &m_lstItems};
  CDisplayList m_objList GUARDED_BY(m_objListMutex){&m_lstItems, &m_objPainter, &m_objDesk};
  CGuide m_objGuide GUARDED_BY(m_objListMutex){&m_objPainter, &m_objDesk};
};
