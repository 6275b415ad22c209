// One request to the daemon in the name of one of its peers: the peer's own port is bound, since
// the daemon knows a peer by its source port alone; the reply that belongs to the request is awaited
// and put into words. Nothing is kept between requests; any thread.
#pragma once

#include <chrono>
#include <span>
#include <string>
#include <vector>

#include "protocol/bodies.h"
#include "protocol/peers.h"

// What became of a run; the value is osdctl's exit code.
enum class EOutcome : SInt32 {
  kDone = 0,       // acknowledged (a screenshot: written)
  kRefused = 1,    // an error reply
  kNoAnswer = 2,   // nothing that belongs to the request came in time, or nobody listens
  kBadUsage = 3,   // the command line
  kPortTaken = 4,  // another process holds the peer's port
  kFailed = 5      // this machine: a socket, a file, a screen that shows nothing
};

struct T_Answer {
  EOutcome m_eOutcome;
  std::string m_strWords;  // what happened, and what to do about it; empty when acknowledged
  double m_f64Millis;      // from the sending to the end of the wait
};

// The datagram of io_message, whose header is filled in. The sequence number is the one that the
// daemon accepts from i_peer whatever it saw last, so that runs which know nothing of one another
// get on.
template <class Message>
std::vector<UInt8> MakeRequest(const T_Peer& i_peer, MsgId i_eId, Message& io_message) {
  io_message.m_stHeader = {
      kMsgMagic, 0, {'C', 'M', 'D'}, i_peer.m_u32AlwaysAccepted, i_eId, BodySize(io_message)};
  std::vector<UInt8> vecRequest(kMaxDatagram);
  vecRequest.resize(EncodeMessage(io_message, vecRequest.data()));
  return vecRequest;
}

// Sends i_request, a whole datagram, from the port of i_peer and waits up to i_timeout for the
// reply that names its sequence number and id. Everything else that arrives is dropped. kPortTaken
// when another process has the port, kFailed when the socket cannot be made or sent to.
T_Answer Ask(const T_Peer& i_peer, std::span<const UInt8> i_request,
             std::chrono::milliseconds i_timeout);
