#include "daemon/state/server.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>

#include "daemon/state/document.h"
#include "framework/clock.h"
#include "framework/log.h"

namespace {

constexpr size_t kMaxCommand = 256;   // bytes
constexpr SInt64 kTellEveryMs = 100;  // at most
constexpr SInt64 kPatienceMs = 5000;  // with a reader that neither asks nor reads
constexpr UInt32 kMaxTicks = 65535;

// Only what a daemon before this one has left.
Bool RemoveStale(const std::string& i_strPath) {
  struct stat status {};
  if (lstat(i_strPath.c_str(), &status) != 0) return errno == ENOENT;
  if (S_ISSOCK(status.st_mode)) return unlink(i_strPath.c_str()) == 0;
  errno = EEXIST;
  return false;
}

}  // namespace

Bool CStateServer::Listen(const std::string& i_strPath) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  errno = ENAMETOOLONG;
  if (i_strPath.size() >= sizeof(address.sun_path)) return false;
  i_strPath.copy(address.sun_path, i_strPath.size());
  m_listener = CDescriptor(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  m_wake = CDescriptor(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC));
  if (m_listener.Get() < 0 || m_wake.Get() < 0 || !RemoveStale(i_strPath)) return false;
  // Before it is bound, so that it is never open to others.
  return fchmod(m_listener.Get(), 0660) == 0 &&
         bind(m_listener.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) ==
             0 &&
         chmod(i_strPath.c_str(), 0660) == 0 && listen(m_listener.Get(), SOMAXCONN) == 0;
}

void CStateServer::Open(const std::string& i_strPath) {
  if (!Listen(i_strPath)) {
    LOG_WARN("cannot listen at %s: %s; nobody can ask for the state", i_strPath.c_str(),
             std::strerror(errno));
    return;
  }
  m_strPath = i_strPath;
  Start();
}

void CStateServer::Stop() {
  if (m_strPath.empty()) return;
  RequestStop();
  eventfd_write(m_wake.Get(), 1);
  StopAndWaitForThread();
  m_listener = CDescriptor();
  unlink(m_strPath.c_str());
  m_strPath.clear();
}

void CStateServer::Changed() {
  if (!m_bWatched.load(std::memory_order_relaxed)) return;
  if (!m_bChanged.exchange(true, std::memory_order_acq_rel)) eventfd_write(m_wake.Get(), 1);
}

// Until the next thing that time alone brings; -1 when that is nothing.
SInt32 CStateServer::Wait(SInt64 i_s64Now) {
  SInt64 s64Until = m_bChanged.load(std::memory_order_acquire) ? m_s64NextTell : INT64_MAX;
  for (const T_Reader& reader : m_readers)
    if (!reader.m_bWatches || !reader.m_strOut.empty())
      s64Until = std::min(s64Until, reader.m_s64Since + kPatienceMs);
  if (s64Until == INT64_MAX) return -1;
  return static_cast<SInt32>(std::clamp<SInt64>(s64Until - i_s64Now, 0, kPatienceMs));
}

void CStateServer::Entry() {
  SetThreadName("osdstate");
  std::vector<pollfd> polled;
  while (!IsStopRequested()) {
    polled = {{m_wake.Get(), POLLIN, 0}, {m_listener.Get(), POLLIN, 0}};
    for (const T_Reader& reader : m_readers)
      polled.push_back(
          {reader.m_fd.Get(), static_cast<short>(reader.m_strOut.empty() ? POLLIN : POLLOUT), 0});
    if (poll(polled.data(), polled.size(), Wait(CTime::Milliseconds())) < 0 && errno != EINTR)
      CThread::Sleep(1000);  // no memory just now
    const SInt64 s64Now = CTime::Milliseconds();
    eventfd_t woken;
    if (polled[0].revents != 0) eventfd_read(m_wake.Get(), &woken);
    auto ready = polled.begin() + 2;
    m_readers.remove_if(
        [&](T_Reader& io_reader) { return !Serve(io_reader, (ready++)->revents, s64Now); });
    TellWatchers(s64Now);
    if (polled[1].revents != 0) Accept(s64Now);
    m_bWatched.store(std::ranges::any_of(m_readers, &T_Reader::m_bWatches),
                     std::memory_order_relaxed);
  }
  m_readers.clear();
}

void CStateServer::Accept(SInt64 i_s64Now) {
  CDescriptor fd(accept4(m_listener.Get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
  if (fd.Get() < 0) return CThread::Sleep(100);  // no descriptor just now
  if (m_readers.size() < kMaxReaders) {
    m_readers.push_back({std::move(fd), {}, {}, false, i_s64Now});
    return;
  }
  const std::string strFull =
      ErrorDocument("too many readers are connected; try again later") + "\n";
  send(fd.Get(), strFull.data(), strFull.size(), MSG_NOSIGNAL);
}

// False when the reader is to go.
Bool CStateServer::Serve(T_Reader& io_reader, short i_events, SInt64 i_s64Now) {
  if ((i_events & (POLLIN | POLLHUP | POLLERR)) != 0) {
    io_reader.m_s64Since = i_s64Now;
    if (!Receive(io_reader)) return false;
  }
  if (!Flush(io_reader, i_s64Now)) return false;
  const Bool bIdle = io_reader.m_bWatches && io_reader.m_strOut.empty();
  return bIdle || i_s64Now - io_reader.m_s64Since < kPatienceMs;
}

// One command at a time: what a reader asks for beyond that waits in the socket until it has taken
// the answer.
Bool CStateServer::Receive(T_Reader& io_reader) {
  if (!io_reader.m_strOut.empty()) return true;
  char aBytes[kMaxCommand];
  const ssize_t received = recv(io_reader.m_fd.Get(), aBytes, sizeof(aBytes), MSG_PEEK);
  if (received == 0) return false;
  if (received < 0) return errno == EAGAIN || errno == EINTR;
  const auto end = std::find(aBytes, aBytes + received, '\n');
  const Bool bWhole = end != aBytes + received;
  const auto taken = static_cast<size_t>(end - aBytes) + (bWhole ? 1 : 0);
  recv(io_reader.m_fd.Get(), aBytes, taken, 0);
  io_reader.m_strIn.append(aBytes, static_cast<size_t>(end - aBytes));
  if (io_reader.m_strIn.size() > kMaxCommand) return false;
  if (bWhole) Answer(io_reader, std::exchange(io_reader.m_strIn, {}));
  return true;
}

void CStateServer::Answer(T_Reader& io_reader, const std::string& i_strCommand) {
  constexpr std::string_view kTick = "tick ";
  UInt32 u32Seconds = 0;
  if (i_strCommand.starts_with(kTick) && m_source.m_tick) {
    const char* const pEnd = i_strCommand.data() + i_strCommand.size();
    const auto [pRest, error] =
        std::from_chars(i_strCommand.data() + kTick.size(), pEnd, u32Seconds);
    if (error != std::errc() || pRest != pEnd || u32Seconds > kMaxTicks) {
      io_reader.m_strOut = ErrorDocument("tick wants a number of seconds from 0 to 65535") + "\n";
      return;
    }
    m_source.m_tick(u32Seconds);
  } else if (i_strCommand == "watch") {
    io_reader.m_bWatches = true;
    m_bWatched.store(true, std::memory_order_relaxed);  // changes from now on are not missed
  } else if (i_strCommand != "state") {
    io_reader.m_strOut = ErrorDocument("unknown command; there are state, watch" +
                                       std::string(m_source.m_tick ? " and tick N" : "")) +
                         "\n";
    return;
  }
  io_reader.m_strOut = m_source.m_document() + "\n";
}

// One that has not taken the document before gets none now, but the next one.
void CStateServer::TellWatchers(SInt64 i_s64Now) {
  if (i_s64Now < m_s64NextTell || !m_bChanged.exchange(false, std::memory_order_acq_rel)) return;
  m_s64NextTell = i_s64Now + kTellEveryMs;
  std::string strDocument;
  for (T_Reader& reader : m_readers) {
    if (!reader.m_bWatches) continue;
    if (!reader.m_strOut.empty()) {
      m_bChanged.store(true, std::memory_order_release);
      continue;
    }
    if (strDocument.empty()) strDocument = m_source.m_document() + "\n";
    reader.m_strOut = strDocument;
    reader.m_s64Since = i_s64Now;
    Flush(reader, i_s64Now);
  }
}

// False when the reader has gone.
Bool CStateServer::Flush(T_Reader& io_reader, SInt64 i_s64Now) {
  if (io_reader.m_strOut.empty()) return true;
  const ssize_t sent = send(io_reader.m_fd.Get(), io_reader.m_strOut.data(),
                            io_reader.m_strOut.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
  if (sent < 0) return errno == EAGAIN || errno == EINTR;
  io_reader.m_strOut.erase(0, static_cast<size_t>(sent));
  io_reader.m_s64Since = i_s64Now;
  return true;
}
