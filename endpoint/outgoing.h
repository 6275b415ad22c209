// The datagrams that wait to be sent: any thread queues, the endpoint's task alone takes. Owns the
// records until they are packed. One sequence counter numbers all that the endpoint sends.
#pragma once

#include <algorithm>
#include <deque>

#include "framework/mutex.h"
#include "framework/task.h"
#include "framework/thread_annotations.h"
#include "protocol/msg_params.h"

class COutgoing {
 public:
  // i_pTask is signalled with kWriteEvent for every record queued; it outlives this object.
  explicit COutgoing(CTask* i_pTask) : m_pTask(i_pTask) {}

  // A flood of requests whose answers cannot keep up must not take the memory of the device.
  static constexpr UInt32 kCapacity = 1024;

  // Queues a record of the kind T whose destination, header type, id and fields are filled; magic,
  // version, sequence number and the length of the body as it will be sent are filled here. With
  // kCapacity records waiting the new one is lost, with a WARN line.
  template <class T>
  void Queue(std::unique_ptr<T> i_pBody) {
    T_MsgHeader& header = i_pBody->m_stHeader;
    header.m_u32Magic = kMsgMagic;
    header.m_u8Version = 0;
    header.m_u16ParamLen = std::min<UInt16>(BodySize(*i_pBody), T::kMaxPacked - kMsgHeaderSize);
    T_MsgParams params;
    params.m_eMsgId = static_cast<MsgId>(header.m_u32Id);
    params.Body<T>() = std::move(i_pBody);
    Append(std::move(params), &header.m_u32Seq);
  }

  // Takes the oldest record, which is the caller's then; false when there is none. Task thread.
  Bool Take(T_MsgParams* o_pParams);

  // Whether nothing waits at this moment. Any thread.
  Bool IsEmpty();

  // The next number of the counter, which starts at 0, for a datagram that is not queued. Any thread.
  UInt32 NextSeq();

 private:
  // Numbers and queues in one step, so that numbers leave in their order.
  void Append(T_MsgParams&& i_params, UInt32* o_pu32Seq);
  Bool TryAppend(T_MsgParams&& i_params, UInt32* o_pu32Seq);

  CTask* const m_pTask;
  CMutex m_objLock;
  std::deque<T_MsgParams> m_objMsgQueue GUARDED_BY(m_objLock);
  UInt32 m_u32Seq GUARDED_BY(m_objLock) = 0;
};
