#pragma once

#include "barecalls.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <string>

// What observer_benchmark.cpp shares with change_probe, the process that makes the changes.

namespace KELP::Bench {

/** CLOCK_MONOTONIC, which all processes of a machine have in common. */
using Clock = std::chrono::steady_clock;
using Moment = std::atomic<Clock::time_point>;

/** Who is told of a change. */
using Watcher = std::size_t;
constexpr Watcher kLibrary = 0;
constexpr Watcher kBare = 1;
constexpr std::size_t kWatchers = 2;

/** A setter writes the time of the change and the change, and each is an update. */
constexpr std::size_t kUpdatesOfChange = 2;

constexpr std::size_t kLatencyChanges = 200;  ///< For each watcher.
constexpr std::size_t kBurstReports = 100;
constexpr std::size_t kBurstChanges = 20;  ///< Of each report.

/** Memory of both processes. All zero at first. */
struct ChangeMemory {
  struct Change {
    Moment called;                     ///< When the setter was called.
    Moment returned;                   ///< When the setter had returned.
    Moment told;                       ///< When the last update until now was told.
    std::atomic<std::size_t> updates;  ///< How many were told.
  };

  Change changes[kLatencyChanges][kWatchers];
  std::atomic<std::size_t> current;  ///< The index of the changes that are being made.
  Moment burstStart;
};

/** The memory in a file, which is made if it is not there. */
class SharedChangeMemory {
 public:
  explicit SharedChangeMemory(const std::string& file) {
    const int descriptor = BareCalls::openFile(file, O_RDWR | O_CREAT);
    BareCalls::checked(::ftruncate(descriptor, sizeof(ChangeMemory)), "ftruncate");
    void* const memory =
        ::mmap(nullptr, sizeof(ChangeMemory), PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
    ::close(descriptor);
    BareCalls::checked(memory == MAP_FAILED ? -1 : 0, "mmap");
    memory_ = static_cast<ChangeMemory*>(memory);
  }
  ~SharedChangeMemory() { ::munmap(memory_, sizeof(ChangeMemory)); }
  SharedChangeMemory(const SharedChangeMemory&) = delete;
  SharedChangeMemory& operator=(const SharedChangeMemory&) = delete;

  ChangeMemory* operator->() const { return memory_; }
  ChangeMemory& operator*() const { return *memory_; }

 private:
  ChangeMemory* memory_;
};

}  // namespace KELP::Bench
