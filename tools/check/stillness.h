#pragma once

#include "base/files.h"

#include <chrono>
#include <cstddef>

namespace KELP::Tool {

/** What was there in a directory at one time, and when it had last changed: to tell whether
 *  somebody is at work in it. */
class Stillness {
 public:
  void add(const Entry& entry);

  /** Whether the last change was at least @p span before @p now, a time since the epoch. Of a
   * change that is yet to come, because somebody has set the clock back, nobody knows; then two
   * looks that are equal tell that nothing has changed in between. */
  [[nodiscard]] bool isOlderThan(std::chrono::nanoseconds span, std::chrono::nanoseconds now) const;

  bool operator==(const Stillness&) const = default;

 private:
  std::chrono::nanoseconds lastChange_{};
  std::size_t everything_ = 0;  ///< A hash of all names and times.
};

/** Looks at @p directory and all below it. Throws a std::system_error when it cannot. */
[[nodiscard]] Stillness stillnessOf(const Entry& directory);

}  // namespace KELP::Tool
