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

#include "common/osd/display_list.h"
#include "common/osd/guide.h"
#include "daemon/common/msg_queue.h"
#include "framework/thread.h"

class COsdHifb : public CThread {
 public:
  // A missing font is no obstacle.
  COsdHifb();
  // Stops the thread. Records that are still in the queue are freed unhandled.
  ~COsdHifb() override;

  // Queues a copy of i_pMsg for the renderer's thread. 1 = queued; 0 = refused (an ERROR line), and
  // what the message carries by address stays the sender's. Any thread.
  UInt32 PushMsg(const T_ModuleMsg* i_pMsg);

  // As CMsgQueue::HasRoomFor of that queue; from Stop on there is no room.
  Bool HasRoomFor(CTask* i_pTask) { return m_objQueue.HasRoomFor(i_pTask); }

  // Handles i_pMsg on the calling thread and returns the handler's result: 1 for success and for
  // numbers that are unknown, 0 for failure and null. i_u32Arg is not used. Any thread.
  UInt32 HandleSyncMsg(const T_ModuleMsg* i_pMsg, UInt32 i_u32Arg);

  // Ends the thread within milliseconds and joins it. The owner's thread; again is harmless.
  void Stop();

 protected:
  void Entry() override;

 private:
  using T_Handler = UInt32 (COsdHifb::*)(T_ModuleMsg*);
  struct T_Command {
    UInt32 m_u32MsgNo;
    T_Handler m_pHandler;
    void (*m_pFree)(T_ModuleMsg*);  // frees what the message carries by address; may be null
  };
  static const T_Command s_aCommands[];
  static const T_Command* FindCommand(UInt32 i_u32MsgNo);

  UInt32 Handle(T_ModuleMsg* io_pMsg);
  UInt32 HandleAlone(T_ModuleMsg* io_pMsg);
  UInt32 Dispatch(T_ModuleMsg* io_pMsg);
  static void FreeWhatIsLeft(T_ModuleMsg* io_pMsg);

  UInt32 HandleOsdInitMsg(T_ModuleMsg* i_pMsg);
  UInt32 HandleDeInit(T_ModuleMsg* i_pMsg);
  UInt32 HandleReInit(T_ModuleMsg* i_pMsg);
  UInt32 HandleShow(T_ModuleMsg* io_pMsg);
  UInt32 HandleCancel(T_ModuleMsg* i_pMsg);
  UInt32 HandleIconHide(T_ModuleMsg* i_pMsg);
  UInt32 HandleGuide(T_ModuleMsg* i_pMsg);
  UInt32 HandleShowById(T_ModuleMsg* io_pMsg);
  UInt32 HandleCancelById(T_ModuleMsg* io_pMsg);
  UInt32 HandleDelete(T_ModuleMsg* i_pMsg);
  UInt32 HandlePicture(T_ModuleMsg* io_pMsg);
  UInt32 HandleCancelAll(T_ModuleMsg* i_pMsg);

  void TakeResult(const T_PictureResult& i_result);
  void DeInit(SInt32 i_s32VoDev);
  void LoseLayer(T_LayerMap::iterator i_layer);
  void WantTick(Bool i_bWanted);
  std::optional<Bool> TickToSettle();
  void SettleTick();

  CMsgQueue m_objQueue;

  // Guarded by m_objMutex.
  CMutex m_objMutex;
  // Whether the timer service was heard to have accepted the one-second tick.
  Bool m_bTickRunning = false;
  // What it is still to be asked for, in order: true starts the tick, false stops it.
  std::deque<Bool> m_dequeTick;
  // One thread at a time asks, so that the order is kept.
  Bool m_bTickSettling = false;

  // Guarded by m_objListMutex, always taken after m_objMutex.
  CMutex m_objListMutex;
  T_LayerMap m_mapLayers;
  CPictureDesk m_objDesk;
  CDisplayList m_objList{&m_objPainter, &m_objDesk};
  CPainter m_objPainter{&m_mapLayers, m_objList.Items()};
  CGuide m_objGuide{&m_objPainter, &m_objDesk};
};
