#pragma once

#include <os/fileobserver.h>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace KELP::Tool {

/** What the kernel told of a watched directory. */
struct Notice {
  std::string watched;  ///< The name that the watch was given.
  int watch;            ///< Its descriptor; -1 with IN_Q_OVERFLOW.
  std::uint32_t mask;
  std::string entry;  ///< The name in the directory; empty when it is the directory itself.
  long time;          ///< When it came, in seconds since the epoch.
};

/** Watched directories, and what was told of them and waits to be taken. To be used by one thread.
 */
class Notices {
 public:
  Notices();
  ~Notices();
  Notices(const Notices&) = delete;
  Notices& operator=(const Notices&) = delete;

  /** As OS::FileObserver::addWatch(); @p name comes back with the notices. */
  [[nodiscard]] int watch(const std::filesystem::path& directory, std::uint32_t mask,
                          const std::string& name);
  void unwatch(int watch);

  /** All that came, at least one. Throws Interrupted when a signal came, or (SIGPIPE) when nobody
   * reads the standard output any more. */
  [[nodiscard]] std::vector<Notice> take();

 private:
  void push(Notice notice);
  [[nodiscard]] std::vector<Notice> takePending();
  void wait() const;

  int wake_;
  std::mutex mutex_;
  std::vector<Notice> pending_;
  std::unique_ptr<OS::FileObserver> observer_;  // The last one, so that its threads end first.
};

}  // namespace KELP::Tool
