#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace KELP::Test {

/**
 * What inotify tells about changes in one directory from the construction on.
 *
 * The kernel queues an event before the call that caused it returns, in whatever process: once the
 * cause is known to be over, nothing has to be waited for.
 */
class DirectoryEvents {
 public:
  explicit DirectoryEvents(const std::filesystem::path& directory);
  ~DirectoryEvents();
  DirectoryEvents(const DirectoryEvents&) = delete;
  DirectoryEvents& operator=(const DirectoryEvents&) = delete;

  /** The events since the last call, oldest first, as "MODIFY name". */
  [[nodiscard]] std::vector<std::string> take();
  /** Those of the entry @p name only, as "MODIFY"; the others are dropped. */
  [[nodiscard]] std::vector<std::string> takeOf(const std::string& name);

 private:
  int descriptor_;
};

}  // namespace KELP::Test
