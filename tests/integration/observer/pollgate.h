#pragma once

#include <condition_variable>
#include <mutex>
#include <thread>

namespace KELP::Test {

/**
 * Holds up all other threads of this program where they return from `poll`, from its construction
 * until it is opened or destroyed. One lives at a time.
 *
 * A program that links it defines `poll` itself, for the library too.
 */
class PollGate {
 public:
  PollGate();
  ~PollGate();
  PollGate(const PollGate&) = delete;
  PollGate& operator=(const PollGate&) = delete;

  /** Waits until so many threads are held. Throws when they do not come. */
  void awaitHeld(int threads);
  void open();

  /** What `poll` does before it returns. */
  static void pass();

 private:
  void hold();

  const std::thread::id owner_ = std::this_thread::get_id();
  std::mutex mutex_;
  std::condition_variable changed_;
  int held_ = 0;
  bool isOpen_ = false;
};

}  // namespace KELP::Test
