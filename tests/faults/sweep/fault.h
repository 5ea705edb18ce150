#pragma once

#include "support/tracedrun.h"

#include <ostream>
#include <string>
#include <vector>

namespace KELP::Test {

/** How a system call goes wrong. */
struct Fault {
  enum class Extent { Once, FromThenOn };

  CountedCall call;
  std::string error;  ///< Such as "EIO"; empty for one that writes less than it was given.
  Extent extent = Extent::Once;

  /** The error's number; 0 without one. */
  [[nodiscard]] int number() const;
  /** The expression for strace. */
  [[nodiscard]] std::string injection() const;
  /** Whether it is a signal that comes while the library waits, or reads or writes a store. */
  [[nodiscard]] bool isInterruption() const;
  /** Whether it keeps files from being removed. */
  [[nodiscard]] bool hindersRemoval() const;
};

std::ostream& operator<<(std::ostream& out, const Fault& fault);

/** Whether a call can be made to fail: all but those for memory, the failures of which are
 *  exceptions, and those that always succeed. */
[[nodiscard]] bool canFail(const CountedCall& call);

/**
 * The faults to try on an operation that makes @p calls: all, or for each call one error that comes
 * once and one that stays, which @p choice tells, so that neighbours get different ones.
 */
[[nodiscard]] std::vector<Fault> faultsFor(const std::vector<CountedCall>& calls, bool all,
                                           unsigned choice);

}  // namespace KELP::Test
