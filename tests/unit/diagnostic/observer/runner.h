#pragma once

#include <sys/types.h>

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <mutex>
#include <thread>

namespace KELP::Test {

/** Where threads wait until it is opened. */
class Gate {
 public:
  /** Waits until the gate is open; throws when that takes too long. */
  void pass();
  /** Waits until somebody is, or was, at the gate; throws when that takes too long. */
  void waitForArrival();
  void open();

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  bool somebodyCame_ = false;
  bool isOpen_ = false;
};

/** A thread that does one thing, and is joined at the end. */
class Runner {
 public:
  explicit Runner(std::function<void()> action);
  ~Runner();
  Runner(const Runner&) = delete;
  Runner& operator=(const Runner&) = delete;

  /** Waits until the thread waits for something itself, or is done. */
  void waitUntilAsleep() const;
  [[nodiscard]] bool isDone() const { return isDone_; }
  void join();

 private:
  std::atomic<pid_t> id_{0};
  std::atomic<bool> isDone_{false};
  std::thread thread_;
};

/** How many threads of this process wait for a lock, or for each other, according to the kernel. */
[[nodiscard]] std::size_t waitingThreads();
/** Waits until there are @p count of them or more; throws when that takes too long. */
void waitForWaitingThreads(std::size_t count);

}  // namespace KELP::Test
