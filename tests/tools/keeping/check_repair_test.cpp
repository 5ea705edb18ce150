// What `check --repair` mends, and what it leaves.

#include "damage.h"
#include "support/childprocess.h"
#include "support/waituntil.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <csignal>
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
  writeOldFile(report(1) / "tmp" / "left");
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
  writeOldFile(report(1) / "tmp" / "left");
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
  makeOld(report(1) / "tmp" / "link");
  makeOld(report(1) / "tmp" / "directory");
  EXPECT_EQ(run({"check", "--repair"}).status, 0);
  EXPECT_TRUE(fs::is_empty(report(1) / "tmp"));
  EXPECT_EQ(readFile(elsewhere / "kept"), "data");
}

TEST_F(CheckRepair, LeavesAllScratchFilesThatARecordLeadsTo) {
  makeReport(repository_, idOf(1));
  const fs::path tmp = report(1) / "tmp";
  fs::create_directories(tmp / "directory" / "deep");
  fs::create_directory(tmp / "whole");
  for (const char* const name : {"kept", "directory/deep/file", "whole/file", "target", "free"}) {
    writeFile(tmp / name, name);
  }
  fs::create_directory_symlink("../tmp/directory", report(1) / "contentfiles" / "way");
  fs::create_symlink("../tmp/target", report(1) / "contentfiles" / "link");
  for (const char* const name : {"kept", "directory", "whole", "target", "free"}) {
    makeOld(tmp / name);
  }
  int level = 10;
  for (const char* const path : {"tmp/kept", "contentfiles/way/deep/file", "tmp/whole/",
                                 "contentfiles/link", "tmp/../tmp/./kept"}) {
    addRecord(repository_, idOf(1), level++, path);
  }
  const ToolResult result = run({"check", "--repair"});
  EXPECT_EQ(result.status, 5);
  for (const char* const name : {"kept", "directory", "whole", "target"}) {
    EXPECT_THAT(result.output, HasSubstr("\"tmp/" + std::string(name) +
                                         "\" is left over; left: a "
                                         "record names it, or something in it\n"));
  }
  EXPECT_THAT(result.output, HasSubstr("\"tmp/free\" is left over; repaired: removed\n"));
  for (const char* const name : {"kept", "directory/deep/file", "whole/file", "target"}) {
    EXPECT_EQ(readFile(tmp / name), name);
  }
  EXPECT_FALSE(fs::exists(tmp / "free"));
}

TEST_F(CheckRepair, LeavesScratchFilesWhenItIsNotKnownWhatTheRecordsName) {
  makeReport(repository_, idOf(1));
  repository_.writeKey(idOf(1), "report_contents", "{");
  writeOldFile(report(1) / "tmp" / "left");
  EXPECT_THAT(run({"check", "--repair"}).output,
              HasSubstr("\"tmp/left\" is left over; left: it is not known what the records name"));
  EXPECT_TRUE(fs::exists(report(1) / "tmp" / "left"));
}

TEST_F(CheckRepair, SaysTheTruthAboutRemovingByForce) {
  for (unsigned number = 0; number < damages().size(); ++number) {
    makeReport(repository_, idOf(number));
    damages()[number].make(repository_, idOf(number));
  }
  const Json::Value document = run({"check", "--repair", "--json"}).json();
  std::map<bool, unsigned> counts;
  for (const Json::Value& finding : document["findings"]) {
    const std::string left = finding["left"].asString();
    if (left.find("--force") != std::string::npos) {
      SCOPED_TRACE(finding.toStyledString());
      const std::string id = finding["report"].asString();
      const bool isRemoved = run({"remove", "--force", "-y", id}).status == 0;
      EXPECT_EQ(isRemoved, !exists(id));
      EXPECT_EQ(left.ends_with("; remove --force removes it"), isRemoved);
      EXPECT_EQ(left == "it may hold data; even remove --force does not remove what is in it",
                !isRemoved);
      ++counts[isRemoved];
    }
  }
  EXPECT_EQ(counts[false], 2U);  // A directory as store, and as lock.
  EXPECT_GT(counts[true], 10U);
}

class CheckRepairOfMany : private TemporaryInMemory, public CheckRepair {
 protected:
  static constexpr std::size_t kReports = 2000;

  CheckRepairOfMany() {
    for (const std::string& id : repository_.createMany(kReports)) {
      fs::create_directory(repository_.root() / id / "tmp");
      writeOldFile(repository_.root() / id / "tmp" / "left");
    }
  }

  /** What is told by a repair that a signal ends when it has begun. */
  [[nodiscard]] ToolResult repairUntilSignal(const std::vector<std::string>& options) const {
    std::vector<std::string> command = repository_.arguments({"check", "--repair"});
    command.insert(command.begin(), toolPath());
    command.insert(command.end(), options.begin(), options.end());
    ChildProcess tool(command);
    const fs::path first = repository_.root() / names().front() / "tmp" / "left";
    EXPECT_TRUE(waitUntil([&] { return !fs::exists(first); }));
    tool.signal(SIGTERM);
    ToolResult result;
    while (const auto line = tool.receive()) {
      result.output += *line + "\n";
    }
    result.status = tool.wait();
    return result;
  }

  /** How many scratch files are left. */
  [[nodiscard]] std::size_t countLeft() const {
    const std::vector<std::string> all = names();
    return static_cast<std::size_t>(std::count_if(all.begin(), all.end(), [&](const auto& name) {
      return fs::exists(repository_.root() / name / "tmp" / "left");
    }));
  }
};

TEST_F(CheckRepairOfMany, ADocumentTellsWhatWasDoneUntilASignalCame) {
  const ToolResult result = repairUntilSignal({"--json"});
  EXPECT_EQ(result.status, 128 + SIGTERM);
  const Json::Value document = result.json();
  ASSERT_EQ(document["findings"].size(), kReports);
  std::size_t left = 0;
  for (const Json::Value& finding : document["findings"]) {
    const bool isRepaired = finding["repaired"].asBool();
    left += isRepaired ? 0 : 1;
    EXPECT_EQ(isRepaired, !fs::exists(finding["path"].asString()));
    EXPECT_EQ(finding["left"], isRepaired ? Json::Value() : "the repair was interrupted");
  }
  EXPECT_GE(left, 1U);
  EXPECT_LT(left, kReports);
}

TEST_F(CheckRepairOfMany, ATableTellsWhatWasDoneUntilASignalCame) {
  const ToolResult result = repairUntilSignal({});
  EXPECT_EQ(result.status, 128 + SIGTERM);
  const std::vector<std::string> lines = result.lines();
  EXPECT_EQ(lines.size(), kReports + 1);
  const auto left = std::count_if(lines.begin(), lines.end(), [](const std::string& line) {
    return line.ends_with("is left over; left: the repair was interrupted");
  });
  EXPECT_EQ(static_cast<std::size_t>(left), countLeft());
  EXPECT_GE(left, 1);
}

TEST_F(CheckRepair, LeavesTheTimeOfTheLastChangeOfAReport) {
  makeReport(repository_, idOf(1));
  repository_.writeKey(idOf(1), "modified", "1234567890");
  writeOldFile(report(1) / "tmp" / "left");
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
