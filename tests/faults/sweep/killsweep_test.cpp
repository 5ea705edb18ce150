// An operation whose process is killed at each of its system calls in turn: others find old or new
// values, and carry on.

#include "faults/sweep/sweep.h"

#include <gmock/gmock.h>
#include <signal.h>

namespace KELP::Test {
namespace {

using testing::IsEmpty;

class KillSweep : public Sweep {
 protected:
  void tryKill(const CountedCall& call) {
    const Ending ending =
        run({"-e", "trace=" + call.name, "-e",
             "inject=" + call.name + ":signal=KILL:when=" + std::to_string(call.count)});
    ASSERT_FALSE(ending.hung);
    ASSERT_EQ(ending.status, 128 + SIGKILL);
    ASSERT_TRUE(ending.report.begun && !ending.report.ended);
    const State found = stateOf(root());
    EXPECT_THAT(judge().ofKill(found), IsEmpty());
    EXPECT_TRUE(outsideIsUntouched());
    EXPECT_THAT(carryOn(found), IsEmpty());
  }
};

TEST_P(KillSweep, LeavesOldOrNewAndOthersCarryOn) {
  for (const CountedCall& call : calls()) {
    SCOPED_TRACE(call.name + " number " + std::to_string(call.count));
    tryKill(call);
  }
  RecordProperty("kills", std::to_string(calls().size()));
}

INSTANTIATE_TEST_SUITE_P(All, KillSweep, testing::ValuesIn(allOperations()),
                         [](const auto& all) { return all.param.name; });

}  // namespace
}  // namespace KELP::Test
