#pragma once

#include <chrono>
#include <functional>
#include <vector>

/**
 * @file
 * The test program defines `flock`, `gettimeofday`, `time` and `usleep` itself, as it does the log
 * functions, so that tests see the library's calls, choose the time, and make a call fail. While
 * none of the objects below lives, the functions do what the system's do.
 */
namespace KELP::Test {

/** A clock that stands still but for sleeping, which takes no time. One lives at a time. */
class FakeClock {
 public:
  explicit FakeClock(std::chrono::microseconds start = std::chrono::seconds(1'700'000'000));
  ~FakeClock();
  FakeClock(const FakeClock&) = delete;
  FakeClock& operator=(const FakeClock&) = delete;

  /** The sleeps that the library asked for, oldest first. */
  [[nodiscard]] const std::vector<std::chrono::microseconds>& sleeps() const { return sleeps_; }
  /** How much longer than asked each sleep takes. */
  void oversleep(std::chrono::microseconds extra) { extra_ = extra; }
  /** Called at each sleep, with the count of sleeps including this one. */
  void whenSleeping(std::function<void(std::size_t)> action) { action_ = std::move(action); }
  /** How far the clock moves at each call of `time`, after that call has read it. */
  void advanceAtEachReading(std::chrono::seconds step) { step_ = step; }

  /** Whole seconds since the epoch. */
  [[nodiscard]] long seconds() const;

  // For the functions that stand in for the system's.
  [[nodiscard]] std::chrono::microseconds now() const { return now_; }
  long readSeconds();
  void sleep(std::chrono::microseconds duration);

 private:
  std::chrono::microseconds now_;
  std::chrono::microseconds extra_{0};
  std::chrono::seconds step_{0};
  std::vector<std::chrono::microseconds> sleeps_;
  std::function<void(std::size_t)> action_;
};

/** Records the `flock` calls on lock files of reports. One lives at a time. */
class FlockSpy {
 public:
  FlockSpy();
  ~FlockSpy();
  FlockSpy(const FlockSpy&) = delete;
  FlockSpy& operator=(const FlockSpy&) = delete;

  /** The operations so far, oldest first, which are then forgotten. */
  [[nodiscard]] std::vector<int> take();
  /** Lets the next calls fail, one for each of @p errors; 0 lets that call through. */
  void failNext(std::vector<int> errors) { errors_ = std::move(errors); }
  /** Called with the operation before each call. */
  void beforeEach(std::function<void(int)> action) { action_ = std::move(action); }

  // For the function that stands in for the system's: 0, or the error to fail with.
  int called(int operation);

 private:
  std::vector<int> operations_;
  std::vector<int> errors_;
  std::function<void(int)> action_;
};

}  // namespace KELP::Test
