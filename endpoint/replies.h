// The endpoint's answers: the ACK of a request, and what a refused datagram gets: a log line and,
// for most refusals, an error reply built from what was received. Task thread only.
#pragma once

#include "endpoint/outgoing.h"

// A received header and its sender, in host order.
struct T_Received {
  const T_MsgHeader& m_header;
  UInt32 m_u32RemoteAddr;
  UInt16 m_u16RemotePort;
};

// The ACK of i_request, to its sender.
void QueueAck(COutgoing& io_outgoing, const T_Received& i_request);

// i_u32CmdErr is the parser's result, not kCmdSuccess. kCmdHeadLen, kCmdBody and kCmdPort get a log
// line and no reply. i_u32PrevSeq, the number last recorded for the sender, travels in the reply to
// a repeated one.
void RefuseDatagram(COutgoing& io_outgoing, UInt32 i_u32CmdErr, const T_Received& i_refused,
                    UInt32 i_u32PrevSeq);
