// A peer process: its socket, its numbers, and its patience.
#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <functional>

#include "tests/wire.h"

// Whether i_holds becomes true in time.
inline bool Eventually(const std::function<bool()>& i_holds) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (!i_holds()) {
    if (std::chrono::steady_clock::now() > end) return false;
    poll(nullptr, 0, 5);
  }
  return true;
}

// A socket on a peer's port that hears nothing but the daemon. Numbers its requests itself, from
// the number that the daemon accepts from this peer whatever came before.
class CPeer {
 public:
  explicit CPeer(UInt16 i_u16Port) : m_u32Seq(RestartOf(i_u16Port)) {
    const auto call = [&](auto* i_pFunction, UInt16 i_u16Number) {
      sockaddr_in address{AF_INET, htons(i_u16Number), {htonl(INADDR_LOOPBACK)}, {}};
      EXPECT_EQ(i_pFunction(m_s32Fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    };
    call(&bind, i_u16Port);
    call(&connect, 9636);
    // Where that is not allowed, a peer that gets no time may lose the answers to a burst.
    const int bytes = 1 << 20;
    setsockopt(m_s32Fd, SOL_SOCKET, SO_RCVBUFFORCE, &bytes, sizeof(bytes));
  }
  ~CPeer() { close(m_s32Fd); }
  CPeer(const CPeer&) = delete;
  CPeer& operator=(const CPeer&) = delete;

  static UInt32 RestartOf(UInt16 i_u16Port) {
    return i_u16Port == 9640 || (i_u16Port >= 9642 && i_u16Port <= 9647) ? 1 : 0;
  }
  // The number of the next request.
  UInt32 NextSeq() { return m_u32Seq++; }
  void Send(const Bytes& i_datagram) {
    static_cast<void>(!send(m_s32Fd, i_datagram.data(), i_datagram.size(), 0));
  }
  // The next datagram; empty when none comes within i_s32Ms or nobody listens at the daemon's port.
  Bytes Await(SInt32 i_s32Ms = 10000) {
    pollfd readable{m_s32Fd, POLLIN, 0};
    if (poll(&readable, 1, i_s32Ms) <= 0) return {};
    Bytes datagram(65536);
    const ssize_t length = recv(m_s32Fd, datagram.data(), datagram.size(), 0);
    datagram.resize(length < 0 ? 0 : static_cast<size_t>(length));
    return datagram;
  }
  // Sends a request and takes what comes up to its ACK. The number that the daemon's next datagram
  // will have; 0 without an ACK.
  UInt32 Request(UInt32 i_u32Id, const Bytes& i_body, SInt32 i_s32Ms = 10000) {
    const Bytes sought = Pack(NextSeq(), i_u32Id);
    Send(Datagram(m_u32Seq - 1, i_u32Id, i_body));
    for (Bytes reply; !(reply = Await(i_s32Ms)).empty();)
      if (reply.size() == 26 && std::equal(sought.begin(), sought.end(), reply.begin() + 18))
        return reply[8] + reply[9] * 256U + 1;
    return 0;
  }
  // Asks for what changes nothing until the daemon answers; as Request.
  UInt32 AwaitAnswer() {
    UInt32 u32Next = 0;
    Eventually([&] { return (u32Next = Request(kCalibrate, {2}, 2000)) > 0; });
    return u32Next;
  }

 private:
  int m_s32Fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  UInt32 m_u32Seq;
};
