#pragma once

#include <sys/inotify.h>

#include <cstdint>
#include <string>
#include <vector>

namespace KELP::Test {

/** An event as the kernel would give it: its name padded with NULs, or none at all. */
class InotifyRecord {
 public:
  explicit InotifyRecord(std::uint32_t mask, const std::string& name = {});

  [[nodiscard]] inotify_event* get() { return storage_.data(); }

 private:
  std::vector<inotify_event> storage_;  ///< The record, and as many more as its name takes.
};

}  // namespace KELP::Test
