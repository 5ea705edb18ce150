#pragma once

#include "os/filedescriptor.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
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

  /** Calls @p visit with each event that the kernel has to tell now. Those that come meanwhile are
   * left, since they may come faster than they are read. */
  template <typename Visit>
  void forEachEvent(const Visit& visit) const {
    alignas(inotify_event) std::byte buffer[kBufferSize];
    std::size_t size = visitSome(buffer, visit);
    if (size <= kBufferSize - kLargestEvent) {
      return;  // That was all.
    }
    for (std::size_t left = pending(); left > 0 && size > 0; left -= std::min(left, size)) {
      size = visitSome(buffer, visit);
    }
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

  /** Calls @p visit with the events that one call reads. @return their size. */
  template <typename Visit>
  std::size_t visitSome(std::byte (&buffer)[kBufferSize], const Visit& visit) const {
    const std::size_t size = read(buffer);
    for (std::size_t at = 0; at < size;) {
      const auto& event = *reinterpret_cast<const inotify_event*>(buffer + at);
      visit(event);
      at += sizeof(event) + event.len;
    }
    return size;
  }

  std::size_t read(std::byte (&buffer)[kBufferSize]) const;
  /** The size of the events that could be read now. */
  [[nodiscard]] std::size_t pending() const;

  FileDescriptor inotify_;
  FileDescriptor end_;
};

}  // namespace KELP::OS
