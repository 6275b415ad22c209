// Five threads that wait for 5 ms again and again, as the daemon's do while nobody asks: the four of
// its tasks and the one of its timers. Runs until it is killed.
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

int main() {
  std::vector<std::jthread> threads;
  for (int i = 0; i < 5; ++i)
    threads.emplace_back([] {
      std::mutex mutex;
      std::condition_variable condition;
      for (std::unique_lock lock(mutex);;) condition.wait_for(lock, std::chrono::milliseconds(5));
    });
}
