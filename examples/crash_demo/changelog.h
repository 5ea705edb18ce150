#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <filesystem>

namespace CrashDemo {

/**
 * When each role has changed the report, in memory that all processes of the demo share: only so
 * can the observer tell how long a change takes to be told. Nothing else needs it.
 *
 * The times are those of CLOCK_MONOTONIC, which all processes of a machine have in common, right
 * before a change is begun. So what the change itself takes counts as well.
 */
class ChangeLog {
 public:
  using Clock = std::chrono::steady_clock;

  /** What one role has done. */
  struct Turn {
    char role[16];
    std::atomic<Clock::time_point> start;
    std::atomic<Clock::time_point> firstChange;
    std::atomic<Clock::time_point> lastChange;
  };

  /** @param file where the memory comes from; made if it is not there. */
  explicit ChangeLog(const std::filesystem::path& file);
  ~ChangeLog();
  ChangeLog(const ChangeLog&) = delete;
  ChangeLog& operator=(const ChangeLog&) = delete;

  /** Forgets all turns. */
  void clear();
  /** The turn of this process begins. The roles take turns. */
  void start(const char* role);
  /** This process is about to change the report. */
  void change();

  /** Whose turn it was at @p time; null when it was nobody's. */
  [[nodiscard]] const Turn* at(Clock::time_point time) const;

 private:
  struct Memory;

  Memory* memory_;
  Turn* own_ = nullptr;
};

}  // namespace CrashDemo
