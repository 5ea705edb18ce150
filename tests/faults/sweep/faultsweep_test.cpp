// An operation, each system call of which fails in turn: it does its work all the same, or says
// that it did not, and how.

#include "faults/sweep/sweep.h"
#include "unit/foundation/seed.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <iterator>
#include <utility>

namespace KELP::Test {
namespace {

using testing::IsEmpty;

class FaultSweep : public Sweep {
 protected:
  [[nodiscard]] std::vector<CountedCall> callsThatCanFail() const {
    std::vector<CountedCall> some;
    std::ranges::copy_if(calls(), std::back_inserter(some), canFail);
    some.pop_back();  // The one that says "end".
    return some;
  }

  void tryFault(const Fault& fault) {
    // Only the calls of that name stop, which makes it several times as fast.
    std::vector<std::string> options{"--seccomp-bpf", "-e", "trace=" + fault.call.name, "-e",
                                     fault.injection()};
    if (fault.extent == Fault::Extent::FromThenOn) {
      // It goes on to the program's end, where coverage adds its counts to those on disk, and takes
      // a file that it cannot read for a new one.
      options.insert(options.end(), {"-E", "GCOV_PREFIX=" + spoiltCounts()});
    }
    const Ending ending = run(std::move(options));
    ASSERT_FALSE(ending.hung);
    ASSERT_EQ(ending.status, 0) << "it crashed";
    ASSERT_TRUE(ending.report.ended);
    EXPECT_GT(ending.injected, 0) << "nothing failed: its calls are not the same at each run";
    const State found = stateOf(root());
    EXPECT_THAT(judge().ofFault(fault, ending.report, found), IsEmpty())
        << "it said: " << ending.report.outcome.text;
    EXPECT_TRUE(outsideIsUntouched());
    EXPECT_THAT(carryOn(found), IsEmpty());
  }
};

TEST_P(FaultSweep, IsDoneOrToldAndLeavesNoMixture) {
  SCOPED_TRACE(seedNote());
  const std::vector<Fault> faults = faultsFor(callsThatCanFail(), sweepsAll(), testSeed());
  for (const Fault& fault : faults) {
    SCOPED_TRACE(testing::PrintToString(fault));
    tryFault(fault);
  }
  RecordProperty("faults", std::to_string(faults.size()));
}

INSTANTIATE_TEST_SUITE_P(All, FaultSweep, testing::ValuesIn(allOperations()),
                         [](const auto& all) { return all.param.name; });

}  // namespace
}  // namespace KELP::Test
