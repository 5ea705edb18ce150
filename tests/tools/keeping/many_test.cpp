// Ten thousand reports.

#include "reports.h"

#include <gmock/gmock.h>

namespace KELP::Test {
namespace {

using ::testing::HasSubstr;

constexpr std::size_t kMany = 10'000;

class Many : private TemporaryInMemory, public KeepingTest {
 protected:
  Many() : ids_(repository_.createMany(kMany)) {}

  std::vector<std::string> ids_;  ///< The newest first.
};

TEST_F(Many, AreCheckedAndPrunedWithProgress) {
  writeFile(repository_.root() / ids_[7] / "metadata.db", "this is no store of keys");
  const ToolResult checked = runOnTerminal({"check"}, "");
  EXPECT_EQ(checked.status, 5);
  EXPECT_THAT(checked.output, HasSubstr("Checking reports: "));
  EXPECT_THAT(checked.output, HasSubstr(" of 10000 ("));
  EXPECT_THAT(checked.output, HasSubstr(ids_[7] + "  \x1b[31mdamaged-store\x1b[0m  "));

  const ToolResult pruned = run({"prune", "--max-count", "9000"});
  EXPECT_EQ(pruned.status, 0);
  EXPECT_EQ(pruned.errors, "");
  ASSERT_EQ(pruned.lines().size(), 1001U);
  EXPECT_EQ(pruned.lines()[0], "left " + ids_[7] + ": damaged");
  EXPECT_EQ(pruned.lines()[1], "removed " + ids_.back() + ": more than 9000 reports");
  EXPECT_EQ(names().size(), 9000U);
  EXPECT_TRUE(exists(ids_[8999]));
  EXPECT_FALSE(exists(ids_[9000]));

  std::vector<std::string> arguments{"remove", "--force"};
  arguments.insert(arguments.end(), ids_.begin(), ids_.begin() + 1000);
  EXPECT_EQ(run(arguments).status, 0);
  EXPECT_EQ(names().size(), 8000U);
  EXPECT_FALSE(exists(ids_[999]));
}

}  // namespace
}  // namespace KELP::Test
