#include <pthread.h>
#include <sched.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <string>
#include <thread>

#include "framework/socketutils.h"
#include "framework/udpsocket.h"
#include "tests/framework/event_loop.h"

namespace {

constexpr UInt32 kLoopback = 0x7F000001;
constexpr UInt32 kGroup = 0xE0010203;

class CListeningTask : public CTask {
 public:
  SInt64 Run() override { return 0; }
};

class Udp : public testing::Test {
 protected:
  static void SetUpTestSuite() { StartEventLoop(); }
  Udp() {
    for (CUDPSocket* pSocket : {&m_objReceiver, &m_objSender}) EXPECT_EQ(pSocket->Open(), 0);
    EXPECT_EQ(m_objSender.Bind(kLoopback, 0), 0);
  }
  OS_Error Receive() {
    return m_objReceiver.RecvFrom(&m_u32Addr, &m_u16Port, m_aBytes.data(), 8, &m_u32Length);
  }
  std::string Text() {
    EXPECT_EQ(Receive(), 0);
    return {m_aBytes.data(), m_u32Length};
  }
  OS_Error Send(UInt32 i_u32Addr, const std::string& i_refText) {
    return m_objSender.SendTo(i_u32Addr, m_objReceiver.GetLocalPort(), i_refText.data(),
                              static_cast<UInt32>(i_refText.size()));
  }

  CListeningTask m_objTask;
  CUDPSocket m_objReceiver{&m_objTask, CSocket::kNonBlocking};
  CUDPSocket m_objSender{nullptr, CSocket::kDemultiplexed};
  UInt32 m_u32Addr = 7, m_u32Length = 7;
  UInt16 m_u16Port = 7;
  std::array<char, 8> m_aBytes{};
};

TEST_F(Udp, DatagramSignalsTheTaskAndCarriesItsSource) {
  ASSERT_EQ(m_objReceiver.Bind(kLoopback, 0), 0);
  EXPECT_EQ(fcntl(m_objReceiver.GetFileDesc(), F_GETFD), FD_CLOEXEC);
  EXPECT_EQ(Receive(), EAGAIN);
  EXPECT_EQ(m_u32Addr + m_u16Port + m_u32Length, 21U);
  m_objReceiver.RequestEvent(EV_RE);
  EXPECT_EQ(Send(kLoopback, "longer than 8"), 0);
  while ((m_objTask.GetEvents() & CTask::kReadEvent) == 0) sched_yield();
  EXPECT_EQ(Text(), "longer t");
  EXPECT_EQ(m_u32Addr, kLoopback);
  EXPECT_EQ(m_u16Port, m_objSender.GetLocalPort());
}

TEST_F(Udp, TakenPortZeroesTheLocalAddress) {
  EXPECT_EQ(m_objReceiver.Bind(kLoopback, m_objSender.GetLocalPort()), EADDRINUSE);
  EXPECT_EQ(m_objReceiver.GetLocalAddr() + m_objReceiver.GetLocalPort(), 0U);
  m_objSender.Cleanup();
  EXPECT_EQ(m_objReceiver.Bind(kLoopback, 0), 0);
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(m_objReceiver.Open(), "socket:38: .*`m_s32FileDesc == .*::kInvalidFileDesc' failed");
}

TEST_F(Udp, GroupIsHeardOnlyWhileJoined) {
  ASSERT_EQ(m_objReceiver.Bind(INADDR_ANY, 0), 0);
  for (CUDPSocket* pSocket : {&m_objReceiver, &m_objSender}) {
    EXPECT_EQ(pSocket->SetMulticastInterface(kLoopback), 0);
    EXPECT_EQ(pSocket->SetMulticastLoop(1), 0);
    EXPECT_EQ(pSocket->SetTtl(1), 0);
  }
  EXPECT_EQ(m_objReceiver.JoinMulticast(kLoopback), EINVAL);
  ASSERT_EQ(m_objReceiver.JoinMulticast(kGroup), 0);
  EXPECT_EQ(Send(kGroup, "joined"), 0);
  EXPECT_EQ(Text(), "joined");
  ASSERT_EQ(m_objReceiver.LeaveMulticast(kGroup), 0);
  EXPECT_EQ(Send(kGroup, "left"), 0);
  EXPECT_EQ(Send(kLoopback, "direct"), 0);
  EXPECT_EQ(Text(), "direct");
}

TEST_F(Udp, BoundSocketFindsItsTexts) {
  CSocketUtils::Initialize(false);
  EXPECT_EQ(CSocketUtils::GetIPAddr(0) == kLoopback, CSocketUtils::GetNumIPAddrs() == 1);
  EXPECT_STREQ(m_objSender.GetLocalAddrStr()->m_pPtr, "127.0.0.1");
  EXPECT_STREQ(m_objSender.GetLocalDNSStr()->m_pPtr, "127.0.0.1");
  const CPLString* const pPort = m_objSender.GetLocalPortStr();
  EXPECT_EQ(std::string(pPort->m_pPtr, pPort->m_u32Len),
            std::to_string(m_objSender.GetLocalPort()));
}

TEST(SocketUtils, MulticastIsTheRangeFrom224To239) {
  for (const auto& [pText, bMulticast] : {std::pair("224.0.0.1", true),
                                          {"239.255.255.255", true},
                                          {"223.255.255.255", false},
                                          {"240.0.0.0", false},
                                          {"127.0.0.1", false}})
    EXPECT_EQ(CSocketUtils::IsMulticastIPAddr(CSocketUtils::ConvertStringToAddr(pText)),
              bMulticast);
}

class Stream : public testing::Test {
 protected:
  Stream() {
    SInt32 aEnds[2];
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, aEnds), 0);
    m_objSocket.AdoptConnected(aEnds[0]);
    m_s32Peer = aEnds[1];
  }
  ~Stream() override { close(m_s32Peer); }
  OS_Error Read() { return m_objSocket.Read(m_aBuffer, sizeof(m_aBuffer), &m_u32Count); }
  OS_Error Send() { return m_objSocket.Send(m_aBuffer, sizeof(m_aBuffer), &m_u32Count); }
  OS_Error WriteV() { return m_objSocket.WriteV(m_aPieces, 2, &m_u32Count); }

  CSocket m_objSocket{nullptr, 0};
  SInt32 m_s32Peer = -1;
  UInt32 m_u32Count = 7;
  char m_aBuffer[4] = {'a', 'b', 'c', 'd'};
  iovec m_aPieces[2] = {{&m_aBuffer[2], 2}, {&m_aBuffer[0], 2}};
};

TEST_F(Stream, PeersEndIsNotConnectedFromThenOn) {
  EXPECT_EQ(WriteV(), 0);
  EXPECT_EQ(read(m_s32Peer, m_aBuffer, 4), 4);
  EXPECT_EQ(std::string(m_aBuffer, 4), "cdab");
  EXPECT_EQ(shutdown(m_s32Peer, SHUT_WR), 0);
  m_u32Count = 7;
  for (int i = 0; i < 2; ++i) EXPECT_EQ(Read(), ENOTCONN);
  EXPECT_EQ(Send(), ENOTCONN);
  EXPECT_EQ(WriteV(), ENOTCONN);
  EXPECT_EQ(m_u32Count, 7U);
}

TEST_F(Stream, BrokenPipeIsAnErrorAndNoSignal) {
  EXPECT_EQ(shutdown(m_s32Peer, SHUT_RD), 0);
  CSocket objSame(nullptr, 0);
  objSame.AdoptConnected(dup(m_objSocket.GetFileDesc()));
  EXPECT_EQ(objSame.Send(m_aBuffer, 1, &m_u32Count), EPIPE);
  EXPECT_EQ(WriteV(), EPIPE);
  EXPECT_EQ(Send(), ENOTCONN);
}

TEST_F(Stream, WouldBlockKeepsTheConnection) {
  CSocket objSame(nullptr, CSocket::kNonBlocking);
  objSame.AdoptConnected(dup(m_objSocket.GetFileDesc()));
  EXPECT_EQ(Read(), EAGAIN);
  while (Send() == 0) EXPECT_GT(m_u32Count, 0U);
  EXPECT_EQ(Send(), EAGAIN);
  EXPECT_EQ(write(m_s32Peer, "x", 1), 1);
  EXPECT_EQ(Read(), 0);
}

std::atomic<UInt32> s_u32Interruptions{0};

TEST_F(Stream, SignalDoesNotEndARead) {
  struct sigaction stAction {};
  stAction.sa_handler = [](int) { ++s_u32Interruptions; };
  ASSERT_EQ(sigaction(SIGUSR1, &stAction, nullptr), 0);
  std::thread reader([&] { EXPECT_EQ(Read(), 0); });
  while (s_u32Interruptions < 50) {
    pthread_kill(reader.native_handle(), SIGUSR1);
    sched_yield();
  }
  EXPECT_EQ(write(m_s32Peer, "x", 1), 1);
  reader.join();
  EXPECT_EQ(m_u32Count, 1U);
}

TEST(Socket, OptionsReachTheKernel) {
  CSocket objSocket(nullptr, 0);
  ASSERT_EQ(objSocket.Open(SOCK_STREAM), 0);
  objSocket.NoDelay();
  objSocket.KeepAlive();
  EXPECT_EQ(objSocket.SetSocketRcvBufSize(8192), 0);
  EXPECT_EQ(objSocket.GetSocketRcvBufSize(), 2 * 8192);
}

}  // namespace
