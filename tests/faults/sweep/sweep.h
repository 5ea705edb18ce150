#pragma once

#include "faults/sweep/fault.h"
#include "faults/sweep/judge.h"
#include "faults/sweep/ledger.h"
#include "faults/sweep/operation.h"
#include "support/temporarydirectory.h"
#include "support/tracedrun.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace KELP::Test {

/** Runs one operation in a process of its own again and again, each time from the same state. */
class Sweep : public testing::TestWithParam<Operation> {
 protected:
  /** How a process ended. */
  struct Ending {
    int status = 0;
    bool hung = false;  ///< It had to be killed.
    int injected = 0;   ///< How many of its calls were made to fail.
    Report report;
  };

  void SetUp() override;

  /** The calls that the operation makes, as an unharmed run makes them. */
  [[nodiscard]] const std::vector<CountedCall>& calls() const { return calls_; }
  [[nodiscard]] const Judge& judge() const { return *judge_; }
  [[nodiscard]] std::filesystem::path root() const { return scene_.root; }
  /** A place for what coverage counts in a process that cannot write it properly. */
  [[nodiscard]] std::string spoiltCounts() const { return directory_ / "counts"; }
  /** Whether the files outside the root are as they were. */
  [[nodiscard]] bool outsideIsUntouched() const;

  /** Puts back what the operation finds, and runs it with what strace is told to do to a call. */
  [[nodiscard]] Ending run(std::vector<std::string> options);

  /** What does not work any more for a process that comes afterwards: to change each thing that can
   *  be used, and then to delete it; and to delete what cannot be used. */
  [[nodiscard]] Complaints carryOn(const State& found) const;

 private:
  void restore();
  void makeOutside() const;
  void learn();
  [[nodiscard]] std::vector<std::string> command(std::vector<std::string> more = {}) const;

  TemporaryDirectory directory_{quickestPlace()};
  Scene scene_;
  const std::filesystem::path template_ = directory_ / "template";
  const std::filesystem::path ledgerFile_ = directory_ / "ledger";
  const std::filesystem::path trace_ = directory_ / "trace";
  LogCapture log_;
  std::optional<Ledger> ledger_;
  std::vector<CountedCall> calls_;
  std::optional<Judge> judge_;
};

/** Whether everything is to be tried: KELP_SWEEP=all. */
[[nodiscard]] bool sweepsAll();

}  // namespace KELP::Test
