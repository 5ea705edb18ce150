#pragma once

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <map>
#include <utility>

namespace KELP::Tool {

enum class LockState { Free, Read, Write };

/** "free", "read", "write". */
[[nodiscard]] const char* nameOf(LockState state);

/**
 * Who holds files by `flock`, as the kernel lists it in /proc/locks at the time of construction. To
 * try for a lock would tell the same, but could make somebody else's attempt fail. The
 * kernel leaves out processes that this one cannot see, such as those outside of its container.
 */
class LockTable {
 public:
  LockTable();

  /** Free also for a file that is not there. */
  [[nodiscard]] LockState stateOf(const std::filesystem::path& file) const;

 private:
  std::map<std::uint64_t, dev_t> devices_;  ///< Of the file systems, by their mounts.
  std::map<std::pair<dev_t, ino_t>, LockState> states_;
};

}  // namespace KELP::Tool
