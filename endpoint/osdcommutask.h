// The daemon's control endpoint: a task that owns the UDP control socket, validates and traces each
// datagram, answers protocol errors, acknowledges OSD requests and hands them to osdcommands. Made
// by main and started with kStartEvent; the framework deletes it after kKillEvent.
#pragma once

#include <string>

#include "endpoint/outgoing.h"
#include "framework/mutex.h"
#include "framework/task.h"
#include "framework/thread_annotations.h"
#include "framework/timeouttask.h"
#include "framework/udpsocket.h"
#include "protocol/apiparser.h"

class COsdCommuTask : public CTask {
 public:
  // Opens nothing yet. i_pLocalAddr is dotted text, i_u16LocalPort in host order.
  COsdCommuTask(const char* i_pLocalAddr, UInt16 i_u16LocalPort);

  // The task body; never blocks. -1 when the task is to be deleted, else 0.
  SInt64 Run() override;

  // Handles a message that was parsed from i_u32RemoteAddr:i_u16RemotePort (host order): the nine
  // OSD requests are acknowledged, carried out and freed, replies are logged, the rest is left
  // alone. Task thread only.
  void ProcessOsdMsg(UInt32 i_u32MsgId, UInt32 i_u32RemoteAddr, UInt16 i_u16RemotePort,
                     T_MsgParams* io_ptMsgParams);

  // The sequence number last recorded for the peer on i_u16RemotePort; 0, with a WARN line, for a
  // port that is not looked up here. Task thread only.
  UInt32 GetMsgPrevSeq(UInt16 i_u16RemotePort) const;

  // Numbers and packs the record of io_ptMsgParams, the rest of its header and its destination
  // filled, consumes it and sends it at once from the notification socket. The errno of sending;
  // EINVAL for null or for params without a record. Any thread, once started. For modules that have
  // something to tell unasked; none of the daemon has.
  OS_Error SendNotifyMsg(T_MsgParams* io_ptMsgParams);

  // What the task sends from its control socket, for whoever queues a message. Any thread, while the
  // task lives.
  COutgoing& Outgoing() { return m_objOutgoing; }

 private:
  enum ESocketState : UInt32 {
    SOCKET_STATE_INIT = 0,
    SOCKET_STATE_OPEN = 1,
    SOCKET_STATE_BOUND = 3,
    SOCKET_STATE_CLOSED = 4
  };

  void ProcessStartEvent();
  void InitSendSocket();
  void SizeReceiveBuffer();
  void Bind();
  Bool MayReceive();
  void LogBindFailure(OS_Error i_s32Error) const;
  Bool ProcessReadEvent();
  void ProcessDatagram(const UInt8* i_pBuf, UInt32 i_u32Len, UInt32 i_u32RemoteAddr,
                       UInt16 i_u16RemotePort);
  void ProcessWriteEvent();

  CUDPSocket m_udpSocket;
  CTimeoutTask m_objTimeoutTask;  // bind retries, and looks at a renderer that stands still
  const std::string m_strLocalAddr;
  const UInt16 m_u16LocalPort;
  ESocketState m_eSocketState = SOCKET_STATE_INIT;
  CUDPSocket m_udpSendSocket GUARDED_BY(m_objNotifyLock);  // for notifications; belongs to no task
  COutgoing m_objOutgoing;
  T_MsgSeq m_tMsgSeq;                  // its remote port is that of the last datagram
  CMutex m_objNotifyLock;              // one notification is packed and sent at a time
  OS_Error m_s32BindError = OS_NoErr;  // told already; retries that fail alike are silent
};
