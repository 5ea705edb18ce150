// What `check --repair` mends, and what it leaves.

#include "damage.h"

#include <gmock/gmock.h>

#include <map>

namespace KELP::Test {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;

class CheckRepair : public KeepingTest {
 protected:
  [[nodiscard]] fs::path report(unsigned number) const { return repository_.root() / idOf(number); }
};

/** @p snapshot without what lies below @p gone, and without times, which removing changes. */
std::map<std::string, std::string> without(std::map<std::string, std::string> snapshot,
                                           const std::vector<std::string>& gone) {
  std::erase_if(snapshot, [&](const auto& entry) {
    return std::any_of(gone.begin(), gone.end(), [&](const std::string& path) {
      return entry.first == path || entry.first.starts_with(path + "/");
    });
  });
  for (auto& [path, state] : snapshot) {
    const bool isDirectory = fs::is_directory(fs::symlink_status(path));
    state = isDirectory ? "directory" : state;
  }
  return snapshot;
}

TEST_F(CheckRepair, MendsWhatLosesNoDataAndLeavesTheRestUntouched) {
  std::vector<std::string> gone;
  for (unsigned number = 0; number < damages().size(); ++number) {
    const Damage& damage = damages()[number];
    makeReport(repository_, idOf(number));
    damage.make(repository_, idOf(number));
    if (damage.isRepairable) {
      gone.push_back(damage.path.empty() ? report(number) : report(number) / damage.path);
    }
  }
  const auto before = repository_.snapshot();
  const ToolResult result = run({"check", "--repair", "--json"});
  EXPECT_EQ(result.status, 5);
  EXPECT_EQ(without(repository_.snapshot(), {}), without(before, gone));

  const Json::Value findings = result.json()["findings"];
  ASSERT_EQ(findings.size(), damages().size());
  for (unsigned number = 0; number < damages().size(); ++number) {
    SCOPED_TRACE(damages()[number].name);
    EXPECT_EQ(findings[number]["repaired"], Json::Value(damages()[number].isRepairable));
    EXPECT_EQ(findings[number]["left"].isString(), !damages()[number].isRepairable);
    EXPECT_NE(findings[number]["left"].asString(), damages()[number].isRepairable ? "-" : "");
  }
  EXPECT_EQ(run({"check", "--json"}).json()["findings"].size(), damages().size() - gone.size());
}

TEST_F(CheckRepair, SucceedsWhenEverythingWasMended) {
  makeReport(repository_, idOf(1));
  writeFile(report(1) / "tmp" / "left", "");
  fs::create_directory(report(2));
  const ToolResult result = run({"check", "--repair"});
  EXPECT_EQ(result.status, 0);
  ASSERT_EQ(result.lines().size(), 3U);
  EXPECT_THAT(result.lines()[1], HasSubstr("\"tmp/left\" is left over; repaired: removed"));
  EXPECT_THAT(result.lines()[2], HasSubstr("the directory is empty; repaired: removed"));
  EXPECT_FALSE(fs::exists(report(1) / "tmp" / "left"));
  EXPECT_FALSE(fs::exists(report(2)));
  const ToolResult again = run({"check"});
  EXPECT_EQ(again.status, 0);
  EXPECT_EQ(again.output, "");
}

TEST_F(CheckRepair, SaysWhatItLeavesAndWhy) {
  makeReport(repository_, idOf(1));
  writeFile(report(1) / "contentfiles" / "stray", "data");
  fs::create_directory(report(2));
  writeFile(report(2) / "lock", "");
  const ToolResult result = run({"check", "--repair"});
  EXPECT_EQ(result.status, 5);
  ASSERT_EQ(result.lines().size(), 3U);
  EXPECT_THAT(result.lines()[1],
              ::testing::EndsWith("is named by no record; left: it is data, though no record names "
                                  "it"));
  EXPECT_THAT(result.lines()[2],
              ::testing::EndsWith(
                  "\"metadata.db\" is missing; left: it may hold data; remove --force removes it"));
}

TEST_F(CheckRepair, LeavesTheScratchFilesOfAReportThatDoesNotOpen) {
  makeReport(repository_, idOf(1));
  repository_.writeKey(idOf(1), "report_id", idOf(2));
  writeFile(report(1) / "tmp" / "left", "");
  const ToolResult result = run({"check", "--repair"});
  EXPECT_EQ(result.status, 5);
  EXPECT_THAT(result.output, HasSubstr("\"tmp/left\" is left over; left: the report " + idOf(1) +
                                       " is mismatched"));
  EXPECT_TRUE(fs::exists(report(1) / "tmp" / "left"));
}

TEST_F(CheckRepair, FollowsNoLinkAmongScratchFiles) {
  const TemporaryDirectory elsewhere;
  writeFile(elsewhere / "kept", "data");
  makeReport(repository_, idOf(1));
  fs::create_directory_symlink(elsewhere.path(), report(1) / "tmp" / "link");
  fs::create_directory(report(1) / "tmp" / "directory");
  fs::create_directory_symlink(elsewhere.path(), report(1) / "tmp" / "directory" / "link");
  EXPECT_EQ(run({"check", "--repair"}).status, 0);
  EXPECT_TRUE(fs::is_empty(report(1) / "tmp"));
  EXPECT_EQ(readFile(elsewhere / "kept"), "data");
}

TEST_F(CheckRepair, LeavesTheTimeOfTheLastChangeOfAReport) {
  makeReport(repository_, idOf(1));
  repository_.writeKey(idOf(1), "modified", "1234567890");
  writeFile(report(1) / "tmp" / "left", "");
  const std::string store = readFile(report(1) / "metadata.db");
  EXPECT_EQ(run({"check", "--repair"}).status, 0);
  EXPECT_EQ(readFile(report(1) / "metadata.db"), store);
}

TEST_F(CheckRepair, LeavesWhatIsNoReport) {
  fs::create_directory(repository_.root() / "lost+found");
  const ToolResult result = run({"check", "--repair"});
  EXPECT_EQ(result.status, 5);
  EXPECT_THAT(result.output, HasSubstr("; left: it belongs to somebody else"));
  EXPECT_TRUE(fs::exists(repository_.root() / "lost+found"));
}

}  // namespace
}  // namespace KELP::Test
