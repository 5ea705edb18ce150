#pragma once

#include "faults/sweep/fault.h"
#include "faults/sweep/ledger.h"
#include "faults/sweep/operation.h"
#include "faults/sweep/state.h"

#include <string>
#include <vector>

namespace KELP::Test {

/** What broken promises there are, in words. */
using Complaints = std::vector<std::string>;

/** Compares what became of an operation with what is stated of it, and with an unharmed run. */
class Judge {
 public:
  Judge(const Operation& operation, State before, State after, std::string answer)
      : operation_(operation),
        before_(std::move(before)),
        after_(std::move(after)),
        answer_(std::move(answer)) {}

  /** Of an operation that came to its end. */
  [[nodiscard]] Complaints ofFault(const Fault& fault, const Report& report,
                                   const State& found) const;
  /** Of one that was killed. */
  [[nodiscard]] Complaints ofKill(const State& found) const;

 private:
  /** How far an operation came, and what that excuses. */
  struct Case {
    bool done = false;  ///< It said so.
    bool killed = false;
    bool unremovable = false;  ///< What was to be removed may be there, by the fault.
  };

  void judgeOutcome(const Fault& fault, const Report& report, Complaints& complaints) const;
  void judgeError(const Fault& fault, const Report& report, Complaints& complaints) const;
  void judgeLines(const Report& report, Complaints& complaints) const;
  void judgeState(const Case& ending, const State& found, Complaints& complaints) const;
  [[nodiscard]] bool isAheadOfList(const std::string& path, const State& found) const;
  [[nodiscard]] bool mayBeLeft(const Case& ending, const std::string& path) const;
  [[nodiscard]] bool mayStand(const Case& ending, const std::string& path,
                              const State& found) const;
  [[nodiscard]] bool mayHold(const Case& ending, const std::string& name, const State& found) const;
  [[nodiscard]] bool mustBeUsable(const Case& ending, const std::string& path) const;
  [[nodiscard]] bool isAnswer(const std::string& text) const;

  const Operation& operation_;
  State before_;
  State after_;
  std::string answer_;
};

}  // namespace KELP::Test
