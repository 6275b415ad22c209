// Does for each datagram what the daemon's design asks for at least, and nothing else: no parsing,
// no logging, no drawing. The event thread yields, waits in select(), drains the wake-up pipe and
// disarms what it delivers; one task runs on a worker, which yields after every run; a read event
// takes one datagram, queues its answer, wakes the renderer, asks for the next read event and arms
// the descriptor again with a byte into the pipe; a write event sends one answer. Runs until it is
// killed.
#include <fcntl.h>
#include <sys/select.h>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

#include "bench/bench.h"

namespace {

using namespace std::chrono_literals;

enum : UInt32 { kRead = 1, kWrite = 2, kAlive = 4 };

int g_fd;
int g_aPipe[2];

std::mutex g_watchMutex;
fd_set g_watched;

// A count that one thread waits for.
class CGate {
 public:
  void Open() {
    {
      const std::lock_guard lock(m_mutex);
      ++m_u32Count;
    }
    m_condition.notify_one();
  }
  Bool Pass(std::chrono::milliseconds i_atMost) {
    std::unique_lock lock(m_mutex);
    if (m_u32Count == 0) m_condition.wait_for(lock, i_atMost);
    if (m_u32Count == 0) return false;
    --m_u32Count;
    return true;
  }

 private:
  std::mutex m_mutex;
  std::condition_variable m_condition;
  UInt32 m_u32Count = 0;
};

CGate g_task;
CGate g_renderer;
std::atomic<UInt32> g_u32Events{0};
std::mutex g_answersMutex;
std::deque<T_Datagram> g_answers;

void Signal(UInt32 i_u32Events) {
  if ((g_u32Events.fetch_or(i_u32Events | kAlive) & kAlive) == 0) g_task.Open();
}

void Arm() {
  {
    const std::lock_guard lock(g_watchMutex);
    FD_SET(g_fd, &g_watched);
  }
  if (write(g_aPipe[1], "p", 1) < 0 && errno != EAGAIN) std::abort();
}

void ReadOne() {
  T_Datagram datagram;
  datagram.Receive(g_fd);
  if (datagram.m_length >= 0) {
    {
      const std::lock_guard lock(g_answersMutex);
      g_answers.push_back(datagram);
    }
    Signal(kWrite);
    g_renderer.Open();
    Signal(kRead);
  }
  Arm();
}

void WriteOne() {
  T_Datagram datagram;
  Bool bMore = false;
  {
    const std::lock_guard lock(g_answersMutex);
    datagram = g_answers.front();
    g_answers.pop_front();
    bMore = !g_answers.empty();
  }
  datagram.Send(g_fd);
  if (bMore) Signal(kWrite);
}

void RunTask() {
  for (Bool bSettled = false; !bSettled; sched_yield()) {
    const UInt32 u32Events = g_u32Events.fetch_and(kAlive);
    if (u32Events & kRead) ReadOne();
    if (u32Events & kWrite) WriteOne();
    UInt32 u32Alive = kAlive;
    bSettled = g_u32Events.compare_exchange_strong(u32Alive, 0);
  }
}

void DeliverEvents() {
  fd_set ready;
  {
    const std::lock_guard lock(g_watchMutex);
    ready = g_watched;
  }
  sched_yield();
  timeval timeout{15, 0};
  if (select(std::max(g_fd, g_aPipe[0]) + 1, &ready, nullptr, nullptr, &timeout) <= 0) return;
  char aDrained[4096];
  if (FD_ISSET(g_aPipe[0], &ready) && read(g_aPipe[0], aDrained, sizeof(aDrained)) < 0) return;
  if (!FD_ISSET(g_fd, &ready)) return;
  {
    const std::lock_guard lock(g_watchMutex);
    FD_CLR(g_fd, &g_watched);
  }
  Signal(kRead);
  sched_yield();
}

}  // namespace

int main() {
  g_fd = BoundAndTold();
  if (pipe2(g_aPipe, O_CLOEXEC | O_NONBLOCK) != 0) Die("no pipe");
  FD_ZERO(&g_watched);
  FD_SET(g_fd, &g_watched);
  FD_SET(g_aPipe[0], &g_watched);
  std::thread renderer([] {
    for (;;) g_renderer.Pass(10s);
  });
  std::thread worker([] {
    for (;;)
      if (g_task.Pass(5ms)) RunTask();
  });
  for (;;) DeliverEvents();
}
