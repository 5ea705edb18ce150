#pragma once

#include "os/filedescriptor.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <chrono>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <string>

namespace KELP::OS {

/**
 * The kernel's side of a file observer: an inotify instance, and a way to end waiting for it.
 *
 * Any number of threads may wait and end; the rest is for one thread at a time.
 */
class InotifyInstance {
 public:
  /** Makes the instance. When the system refuses, one line in the log says why. */
  InotifyInstance();

  explicit operator bool() const { return static_cast<bool>(inotify_); }

  /** As inotify_add_watch(2). */
  int add(const std::string& path, std::uint32_t mask) const;
  /** As inotify_rm_watch(2). */
  bool remove(int wd) const;

  /** Calls @p visit with each event that the kernel has to tell now. */
  template <typename Visit>
  void forEachEvent(const Visit& visit) const {
    alignas(inotify_event) std::byte buffer[kBufferSize];
    std::size_t size = 0;
    do {
      size = read(buffer);
      for (std::size_t at = 0; at < size;) {
        const auto& event = *reinterpret_cast<const inotify_event*>(buffer + at);
        visit(event);
        at += sizeof(event) + event.len;
      }
    } while (size > kBufferSize - kLargestEvent);  // Otherwise that was all.
  }

  /** Waits for events. @return false when waiting was ended. */
  [[nodiscard]] bool waitForEvents() const;
  /** Waits for @p time. @return false when waiting was ended. */
  [[nodiscard]] bool waitFor(std::chrono::milliseconds time) const;
  /** Ends all waiting, now and later. */
  void endWaiting() const;

  /** Closes both descriptors, and with them all watches. Nobody may be waiting. */
  void close();

 private:
  static constexpr std::size_t kLargestEvent = sizeof(inotify_event) + NAME_MAX + 1;
  static constexpr std::size_t kBufferSize = std::size_t{16} * 1024;

  std::size_t read(std::byte (&buffer)[kBufferSize]) const;

  FileDescriptor inotify_;
  FileDescriptor end_;
};

}  // namespace KELP::OS
