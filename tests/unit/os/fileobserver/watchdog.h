#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

namespace KELP::Test {

/** Makes a failure of a deadlock: unless it is destroyed before @p limit is over, it names what
 *  hangs on stderr and aborts the program. */
class Watchdog {
 public:
  Watchdog(std::chrono::milliseconds limit, std::string what)
      : thread_([this, limit, what = std::move(what)] { watch(limit, what); }) {}

  ~Watchdog() {
    {
      const std::lock_guard lock(mutex_);
      disarmed_ = true;
    }
    changed_.notify_one();
    thread_.join();
  }

  Watchdog(const Watchdog&) = delete;
  Watchdog& operator=(const Watchdog&) = delete;

 private:
  void watch(std::chrono::milliseconds limit, const std::string& what) {
    std::unique_lock lock(mutex_);
    if (!changed_.wait_for(lock, limit, [this] { return disarmed_; })) {
      std::fprintf(stderr, "Watchdog: not over in time: %s\n", what.c_str());
      std::abort();
    }
  }

  std::mutex mutex_;
  std::condition_variable changed_;
  bool disarmed_ = false;
  std::thread thread_;  // Last: it uses all the others.
};

}  // namespace KELP::Test
