#include "os/filelock.h"

#include <sys/file.h>

#include <algorithm>
#include <cerrno>
#include <thread>

namespace KELP::OS {

bool lockExclusively(int descriptor, std::chrono::steady_clock::time_point deadline) {
  // flock cannot wait for a limited time, so this polls: at once again at first, since writers hold
  // the lock for microseconds, and every few milliseconds when one does not let go.
  constexpr std::chrono::microseconds kLongestPause{4000};
  std::chrono::microseconds pause{20};
  while (::flock(descriptor, LOCK_EX | LOCK_NB) != 0) {
    if (errno != EWOULDBLOCK && errno != EINTR) {
      return false;
    }
    if (std::chrono::steady_clock::now() >= deadline) {
      return false;
    }
    std::this_thread::sleep_for(pause);
    pause = std::min(pause * 2, kLongestPause);
  }
  return true;
}

LockRelease::~LockRelease() {
  ::flock(descriptor_, LOCK_UN);
}

}  // namespace KELP::OS
