// Sends back what it gets, by way of one hand-over: a thread that waits in select() and reads, and
// one that waits on a condition and answers. The least that a server of two threads can do. Runs
// until it is killed.
#include <sys/select.h>

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

#include "bench/bench.h"

int main() {
  const int fd = BoundAndTold();
  std::mutex mutex;
  std::condition_variable condition;
  std::deque<T_Datagram> waiting;
  std::thread worker([&] {
    for (T_Datagram datagram;;) {
      {
        std::unique_lock lock(mutex);
        condition.wait(lock, [&] { return !waiting.empty(); });
        datagram = waiting.front();
        waiting.pop_front();
      }
      datagram.Send(fd);
    }
  });
  for (T_Datagram datagram;;) {
    fd_set ready;
    FD_ZERO(&ready);
    FD_SET(fd, &ready);
    select(fd + 1, &ready, nullptr, nullptr, nullptr);
    datagram.Receive(fd);
    if (datagram.m_length < 0) continue;
    {
      const std::lock_guard lock(mutex);
      waiting.push_back(datagram);
    }
    condition.notify_one();
  }
}
