#pragma once

#include <chrono>

namespace KELP::OS {

/**
 * Takes the exclusive `flock` of @p descriptor, trying again until @p deadline.
 *
 * @return false when somebody else held it all the time, or the system refuses.
 */
[[nodiscard]] bool lockExclusively(int descriptor, std::chrono::steady_clock::time_point deadline);

/** Gives the lock of a descriptor up at the end. Closing the descriptor would do so too, but not
 *  while a child process that another thread has just forked still has a copy of it. */
class LockRelease {
 public:
  explicit LockRelease(int descriptor) : descriptor_(descriptor) {}
  ~LockRelease();
  LockRelease(const LockRelease&) = delete;
  LockRelease& operator=(const LockRelease&) = delete;

 private:
  int descriptor_;
};

}  // namespace KELP::OS
