#include "tools/client.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <optional>
#include <type_traits>

namespace {

using Clock = std::chrono::steady_clock;

class CPeerSocket {
 public:
  CPeerSocket() : m_s32Fd(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {}
  ~CPeerSocket() {
    if (m_s32Fd >= 0) ::close(m_s32Fd);
  }
  CPeerSocket(const CPeerSocket&) = delete;
  CPeerSocket& operator=(const CPeerSocket&) = delete;

  // Without address reuse, so that a port which somebody else holds is noticed. Connected, so that
  // the kernel drops what others send and tells when nobody listens.
  Bool Join(UInt16 i_u16Port) const {
    const sockaddr_in own = Loopback(i_u16Port);
    const sockaddr_in daemon = Loopback(kDaemonPort);
    return m_s32Fd >= 0 &&
           ::bind(m_s32Fd, reinterpret_cast<const sockaddr*>(&own), sizeof own) == 0 &&
           ::connect(m_s32Fd, reinterpret_cast<const sockaddr*>(&daemon), sizeof daemon) == 0;
  }

  Bool Send(std::span<const UInt8> i_data) const {
    return ::send(m_s32Fd, i_data.data(), i_data.size(), 0) == static_cast<ssize_t>(i_data.size());
  }

  // The length of the next datagram, or -1 with errno; EAGAIN when there is none.
  ssize_t Receive(std::span<UInt8> o_buf) const {
    return ::recv(m_s32Fd, o_buf.data(), o_buf.size(), 0);
  }

  // What waits before the request goes out was meant for whoever had the port before.
  void DropWaiting() const {
    UInt8 aStale[1];
    while (Receive(aStale) >= 0) {
    }
  }

  void AwaitReadable(Clock::time_point i_deadline) const {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(i_deadline - Clock::now());
    pollfd wanted = {m_s32Fd, POLLIN, 0};
    ::poll(&wanted, 1, static_cast<int>(std::max<SInt64>(left.count(), 0)));
  }

 private:
  static sockaddr_in Loopback(UInt16 i_u16Port) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(i_u16Port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
  }

  const SInt32 m_s32Fd;
};

__attribute__((format(printf, 1, 2))) std::string Words(const char* i_pFormat, ...) {
  char aWords[512];
  va_list args;
  va_start(args, i_pFormat);
  std::vsnprintf(aWords, sizeof aWords, i_pFormat, args);
  va_end(args);
  return aWords;
}

constexpr const char* kBuilds = "do osdctl and osdsrv come from the same build?";

std::string Explain(const T_MsgAck&) { return ""; }

std::string Explain(const T_MsgProcessFailure& i_reply) {
  return Words("the daemon could not carry it out: error code %#x", i_reply.m_u32MsgErrCode);
}

std::string Explain(const T_MsgErrMagic& i_reply) {
  return Words("the daemon saw the magic number %#x, which is not the protocol's: %s",
               i_reply.m_u32Magic, kBuilds);
}

std::string Explain(const T_MsgErrVersion& i_reply) {
  return Words("the daemon saw protocol version %u and knows version %u: %s", i_reply.m_u8Version,
               i_reply.m_u8Supported, kBuilds);
}

std::string Explain(const T_MsgErrType& i_reply) {
  return Words("the daemon saw the message type \"%.3s\", which is none of CMD, EVT and RES: %s",
               i_reply.m_aType, kBuilds);
}

std::string Explain(const T_MsgErrSequence& i_reply) {
  return Words(
      "the daemon saw sequence number %u again; the last it noted of this peer is %u. Another process speaks as this peer: choose another peer with --from",
      i_reply.m_u32MsgSeq, i_reply.m_u32PrevSeq);
}

std::string Explain(const T_MsgErrId& i_reply) {
  return Words("the daemon saw the message id %#x, which it does not know: %s", i_reply.m_u32MsgId,
               kBuilds);
}

std::string Explain(const T_MsgErrParamLen& i_reply) {
  return Words("the daemon saw a body of %u bytes in message %#x, which takes %u: %s",
               i_reply.m_u16ParamLen, i_reply.m_u32MsgId, i_reply.m_u16RequiredLen, kBuilds);
}

using T_Bytes = std::span<const UInt8>;

// What the reply of type Message says about i_request; nothing when it is about another request.
// A reply that names neither number is taken as ours: nobody else sends from our port.
template <class Message>
std::optional<T_Answer> Judge(T_Bytes i_body, const T_MsgHeader& i_request) {
  Message reply;
  if (i_body.size() < BodySize(reply)) return std::nullopt;
  DecodeBody(i_body.data(), static_cast<UInt32>(i_body.size()), {}, &reply);
  if constexpr (requires { reply.m_u32MsgSeq; })
    if (reply.m_u32MsgSeq != i_request.m_u32Seq) return std::nullopt;
  if constexpr (requires { reply.m_u32MsgId; })
    if (reply.m_u32MsgId != i_request.m_u32Id) return std::nullopt;
  constexpr Bool bGood = std::is_same_v<Message, T_MsgAck>;
  return T_Answer{bGood ? EOutcome::kDone : EOutcome::kRefused, Explain(reply), 0};
}

struct T_ReplyRow {
  UInt32 m_u32Id;
  std::optional<T_Answer> (*m_pJudge)(T_Bytes i_body, const T_MsgHeader& i_request);
};

constexpr T_ReplyRow kReplies[] = {
    {RES_MSG_ACK, Judge<T_MsgAck>},
    {RES_MSG_PROCESS_FAILURE, Judge<T_MsgProcessFailure>},
    {ERR_RES_MSG_MAGIC_NUM, Judge<T_MsgErrMagic>},
    {ERR_RES_MSG_VERSION, Judge<T_MsgErrVersion>},
    {ERR_RES_MSG_TYPE, Judge<T_MsgErrType>},
    {ERR_RES_MSG_SEQUENCE, Judge<T_MsgErrSequence>},
    {ERR_RES_MSG_ID, Judge<T_MsgErrId>},
    {ERR_RES_MSG_PARAM_LEN, Judge<T_MsgErrParamLen>},
};

std::optional<T_Answer> JudgeDatagram(T_Bytes i_datagram, const T_MsgHeader& i_request) {
  if (i_datagram.size() < kMsgHeaderSize) return std::nullopt;
  const T_MsgHeader header = DecodeHeader(i_datagram.data());
  if (header.m_u32Magic != kMsgMagic || std::memcmp(header.m_aType, "RES", 3) != 0)
    return std::nullopt;
  for (const T_ReplyRow& row : kReplies)
    if (row.m_u32Id == header.m_u32Id)
      return row.m_pJudge(i_datagram.subspan(kMsgHeaderSize), i_request);
  return std::nullopt;
}

T_Answer PortTaken(const T_Peer& i_peer) {
  return {
      EOutcome::kPortTaken,
      Words(
          "UDP port %u is taken: by the process \"%s\", whose port it is, or by another osdctl. End that one, or speak as another peer with --from",
          i_peer.m_u16Port, i_peer.m_pName),
      0};
}

T_Answer SocketFailed(const char* i_pStep, SInt32 i_s32Errno) {
  return {EOutcome::kFailed, Words("cannot %s: %s", i_pStep, std::strerror(i_s32Errno)), 0};
}

T_Answer NobodyListens() {
  return {
      EOutcome::kNoAnswer,
      Words("nobody listens at 127.0.0.1:%u: start osdsrv and give it three seconds", kDaemonPort),
      0};
}

T_Answer NoAnswer(std::chrono::milliseconds i_timeout) {
  return {
      EOutcome::kNoAnswer,
      Words(
          "the daemon did not answer within %lld ms: see its log for what became of the request, or wait longer with --timeout",
          static_cast<long long>(i_timeout.count())),
      0};
}

T_Answer Await(const CPeerSocket& i_socket, const T_MsgHeader& i_request,
               std::chrono::milliseconds i_timeout) {
  const auto deadline = Clock::now() + i_timeout;
  UInt8 aBuf[kMaxDatagram];
  do {
    i_socket.AwaitReadable(deadline);
    const ssize_t length = i_socket.Receive(aBuf);
    if (length < 0 && errno == ECONNREFUSED) return NobodyListens();
    if (length < 0) continue;
    if (auto answer = JudgeDatagram({aBuf, static_cast<size_t>(length)}, i_request)) return *answer;
  } while (Clock::now() < deadline);
  return NoAnswer(i_timeout);
}

}  // namespace

T_Answer Ask(const T_Peer& i_peer, std::span<const UInt8> i_request,
             std::chrono::milliseconds i_timeout) {
  const CPeerSocket socket;
  if (!socket.Join(i_peer.m_u16Port))
    return errno == EADDRINUSE ? PortTaken(i_peer) : SocketFailed("use the peer's port", errno);
  socket.DropWaiting();
  const auto start = Clock::now();
  if (!socket.Send(i_request)) return SocketFailed("send the request", errno);
  T_Answer answer = Await(socket, DecodeHeader(i_request.data()), i_timeout);
  answer.m_f64Millis = std::chrono::duration<double, std::milli>(Clock::now() - start).count();
  return answer;
}
