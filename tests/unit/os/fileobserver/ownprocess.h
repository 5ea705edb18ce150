#pragma once

#include "support/descriptors.h"

#include <sys/types.h>

#include <cstdint>
#include <map>
#include <set>
#include <string>

/** @file What the kernel knows of the test program itself. */
namespace KELP::Test {

/** The descriptors that are open now and were not @p before. */
[[nodiscard]] std::map<int, std::string> descriptorsSince(const std::map<int, std::string>& before);

/** The inotify instance among those that were not open @p before; throws unless there is one. */
[[nodiscard]] int inotifyInstanceSince(const std::map<int, std::string>& before);

/** How much the kernel has to tell at @p inotifyInstance. */
[[nodiscard]] int pendingBytes(int inotifyInstance);

/** The threads, by the kernel's number. */
[[nodiscard]] std::set<pid_t> threads();

/** The signals that @p thread has blocked; the lowest bit is signal 1. */
[[nodiscard]] std::uint64_t blockedSignals(pid_t thread);

/** What must be as it was once an observer is gone. */
class Footprint {
 public:
  Footprint() : descriptors_(descriptorsOf("self")), threads_(threads()) {}

  /** Waits until all is as it was; the kernel shows a thread a little longer than it runs.
   *  @return whether it came to be so in time. */
  [[nodiscard]] bool isBack() const;

 private:
  std::map<int, std::string> descriptors_;
  std::set<pid_t> threads_;
};

}  // namespace KELP::Test
