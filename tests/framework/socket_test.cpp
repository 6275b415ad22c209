#include <fcntl.h>
#include <gtest/gtest.h>
#include <ifaddrs.h>
#include <unistd.h>

#include <csignal>
#include <thread>

#include "framework/socketutils.h"
#include "framework/udpsocket.h"

namespace {

constexpr UInt32 kGroup = 0xE0010203;

TEST(Udp, DatagramsComeCutAndThoseOfAGroupOnlyWhileJoined) {
  CUDPSocket receiver(nullptr, CSocket::kNonBlocking), sender(nullptr, CSocket::kDemultiplexed);
  for (CUDPSocket* pSocket : {&receiver, &sender}) ASSERT_EQ(pSocket->Open(), 0);
  ASSERT_EQ(sender.Bind(CSocketUtils::ConvertStringToAddr("127.0.0.1"), 0), 0);
  EXPECT_EQ(receiver.Bind(INADDR_LOOPBACK, sender.GetLocalPort()), EADDRINUSE);
  EXPECT_EQ(receiver.GetLocalAddr() + receiver.GetLocalPort(), 0U);
  ASSERT_EQ(receiver.Bind(INADDR_ANY, 0), 0);
  for (CUDPSocket* pSocket : {&receiver, &sender}) {
    EXPECT_EQ(pSocket->SetMulticastInterface(INADDR_LOOPBACK), 0);
    EXPECT_EQ(pSocket->SetMulticastLoop(1), 0);
    EXPECT_EQ(pSocket->SetTtl(1), 0);
  }

  UInt32 u32Addr = 7, u32Length = 7;
  UInt16 u16Port = 7;
  char aBytes[8];
  const auto receive = [&] {
    return receiver.RecvFrom(&u32Addr, &u16Port, aBytes, sizeof(aBytes), &u32Length);
  };
  EXPECT_EQ(receive(), EAGAIN);
  EXPECT_EQ(u32Addr + u16Port + u32Length, 21U);
  EXPECT_EQ(receiver.JoinMulticast(kGroup), 0);
  EXPECT_EQ(sender.SendTo(kGroup, receiver.GetLocalPort(), "joined for long", 15), 0);
  EXPECT_EQ(receive(), 0);
  EXPECT_EQ(std::string(aBytes, u32Length), "joined f");
  EXPECT_EQ(u32Addr, INADDR_LOOPBACK);
  EXPECT_EQ(std::to_string(u16Port), sender.GetLocalPortStr()->m_pPtr);
  EXPECT_EQ(receiver.LeaveMulticast(kGroup), 0);
  EXPECT_EQ(sender.SendTo(kGroup, receiver.GetLocalPort(), "left", 4), 0);
  EXPECT_EQ(receive(), EAGAIN);
}

TEST(SocketUtils, TableAndConversionsKnowTheLoopback) {
  CSocketUtils::Initialize(false);
  ifaddrs* pAll = nullptr;
  ASSERT_EQ(getifaddrs(&pAll), 0);
  SInt32 s32Addresses = 0;
  for (const ifaddrs* p = pAll; p != nullptr; p = p->ifa_next)
    if (p->ifa_addr != nullptr && p->ifa_addr->sa_family == AF_INET) ++s32Addresses;
  freeifaddrs(pAll);
  EXPECT_EQ(CSocketUtils::GetIPAddr(0) == INADDR_LOOPBACK, s32Addresses == 1);
  EXPECT_STREQ(CSocketUtils::FindIPAddrStr(INADDR_LOOPBACK)->m_pPtr, "127.0.0.1");
  for (const UInt32 u32Last : {0xDFFFFFFFU, 0xEFFFFFFFU})
    EXPECT_NE(CSocketUtils::IsMulticastIPAddr(u32Last),
              CSocketUtils::IsMulticastIPAddr(u32Last + 1));
}

struct T_Stream {
  T_Stream() {
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, m_aEnds), 0);
    m_objSocket.InitNonBlocking(m_aEnds[0]);
  }
  ~T_Stream() { close(m_aEnds[1]); }
  OS_Error Read() { return m_objSocket.Read(m_aBuffer, sizeof(m_aBuffer), &m_u32Count); }
  OS_Error Send() { return m_objSocket.Send(m_aBuffer, sizeof(m_aBuffer), &m_u32Count); }
  OS_Error WriteV() { return m_objSocket.WriteV(m_aPieces, 2, &m_u32Count); }

  CSocket m_objSocket{nullptr, CSocket::kConnected};
  SInt32 m_aEnds[2];
  UInt32 m_u32Count = 7;
  char m_aBuffer[4] = {'a', 'b', 'c', 'd'};
  iovec m_aPieces[2] = {{&m_aBuffer[2], 2}, {&m_aBuffer[0], 2}};
};

TEST(Stream, AnEndOnEitherSideIsNotConnectedFromThenOn) {
  for (const auto pCall : {&T_Stream::Read, &T_Stream::Send, &T_Stream::WriteV}) {
    T_Stream stream;
    shutdown(stream.m_aEnds[1], SHUT_RDWR);
    EXPECT_EQ((stream.*pCall)(), pCall == &T_Stream::Read ? ENOTCONN : EPIPE);
    for (const auto pLater : {&T_Stream::Read, &T_Stream::Send, &T_Stream::WriteV})
      EXPECT_EQ((stream.*pLater)(), ENOTCONN);
  }
}

std::atomic<UInt32> s_u32Interruptions{0};

TEST(Stream, NeitherWouldBlockNorASignalEndsTheConnection) {
  T_Stream stream;
  EXPECT_EQ(stream.WriteV(), 0);
  EXPECT_EQ(read(stream.m_aEnds[1], stream.m_aBuffer, 4), 4);
  EXPECT_EQ(std::string(stream.m_aBuffer, 4), "cdab");
  EXPECT_EQ(stream.Read(), EAGAIN);
  while (stream.Send() == 0) EXPECT_GT(stream.m_u32Count, 0U);
  EXPECT_EQ(stream.Send(), EAGAIN);

  fcntl(stream.m_aEnds[0], F_SETFL, 0);
  struct sigaction stAction {};
  stAction.sa_handler = [](int) { ++s_u32Interruptions; };
  ASSERT_EQ(sigaction(SIGUSR1, &stAction, nullptr), 0);
  std::thread reader([&] { EXPECT_EQ(stream.Read(), 0); });
  for (; s_u32Interruptions < 50; std::this_thread::yield())
    pthread_kill(reader.native_handle(), SIGUSR1);
  EXPECT_EQ(write(stream.m_aEnds[1], "x", 1), 1);
  reader.join();
  EXPECT_EQ(stream.m_u32Count, 1U);
}

}  // namespace
