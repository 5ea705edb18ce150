// What the data policy keeps and what it drops.

#include "unit/contents/files/filesfixture.h"
#include "unit/foundation/namedcase.h"

#include <diagnostic/diagnosticreport.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <limits>
#include <optional>
#include <string>
#include <vector>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
namespace fs = std::filesystem;

constexpr int kLowest = std::numeric_limits<int>::min();
constexpr int kHighest = std::numeric_limits<int>::max();

class PolicyTest : public FilesTest {
 protected:
  void storeConsent(const std::optional<std::string>& current,
                    const std::optional<std::string>& maximum) {
    store("current_consent_level", current);
    store("max_consent_level", maximum);
  }

  /** Applies the policy and expects a success that stamps the report and writes contents once. */
  void apply() {
    const DiskState before = now();
    EXPECT_THAT(report().applyPolicyFilters(), Succeeds());
    EXPECT_THAT(log_.take(), IsEmpty());
    EXPECT_THAT(keysSince(before), ElementsAre("modified", kContentsKey));
    EXPECT_EQ(stored("modified"), stamp().value);
  }

  /** The levels of a property's variations, in list order. */
  [[nodiscard]] std::vector<int> levels(const std::string& name) {
    std::vector<int> levels;
    const auto found = report().getReportContentProperty(name);
    for (const Variation& variation : found->variations) {
      levels.push_back(variation.sensitivity_level);
    }
    return levels;
  }
};

/** Consent levels as stored, and what they keep of kLevels. */
struct PolicyCase : NamedCase {
  std::optional<std::string> current;
  std::optional<std::string> maximum;
  std::vector<int> kept;
};

const std::vector<int> kLevels{3, 0, kHighest, -1, 2, 21, kLowest, 20, 1, 31, 30};

class PolicyLevels : public PolicyTest, public testing::WithParamInterface<PolicyCase> {};

TEST_P(PolicyLevels, KeepWhatIsAtMostTheSmallerConsentInItsOrder) {
  ASSERT_THAT(report().createReportStringProperty("text", {}), Succeeds());
  for (const int level : kLevels) {
    addFile(level, "level " + std::to_string(level));
    ASSERT_THAT(report().addReportStringVariation("text", level, std::to_string(level), false),
                Succeeds());
  }
  storeConsent(GetParam().current, GetParam().maximum);
  store("modified", "1");
  apply();
  EXPECT_EQ(levels(kProperty), GetParam().kept);
  EXPECT_EQ(levels("text"), GetParam().kept);
  for (const int level : kLevels) {
    const bool kept = std::ranges::count(GetParam().kept, level) > 0;
    EXPECT_EQ(readFile(storedFile(level)), kept ? "level " + std::to_string(level) : "");
    EXPECT_EQ(fs::exists(storedFile(level)), kept);
    EXPECT_EQ(report().hasReportStringVariation("text", level), kept);
  }
}

INSTANTIATE_TEST_SUITE_P(
    All, PolicyLevels,
    testing::Values(PolicyCase{{"OfANewReport"}, "20", "30", {3, 0, -1, 2, kLowest, 20, 1}},
                    PolicyCase{{"MaximumIsSmaller"}, "3", "2", {0, -1, 2, kLowest, 1}},
                    PolicyCase{{"CurrentIsSmaller"}, "2", "3", {0, -1, 2, kLowest, 1}},
                    PolicyCase{{"Equal"}, "30", "30", {3, 0, -1, 2, 21, kLowest, 20, 1, 30}},
                    PolicyCase{{"Absent"}, std::nullopt, std::nullopt, {0, -1, kLowest}},
                    PolicyCase{{"CurrentAbsent"}, std::nullopt, "30", {0, -1, kLowest}},
                    PolicyCase{{"MaximumAbsent"}, "30", std::nullopt, {0, -1, kLowest}},
                    PolicyCase{
                        {"MaximumAbsentAndCurrentNegative"}, "-1", std::nullopt, {-1, kLowest}},
                    PolicyCase{{"Unreadable"}, "all", "30", {0, -1, kLowest}},
                    PolicyCase{{"Negative"}, "-2", "30", {kLowest}},
                    PolicyCase{{"Lowest"}, "-2147483648", "2147483647", {kLowest}},
                    PolicyCase{{"Highest"}, "2147483647", "2147483647", kLevels}),
    CaseName());

TEST_F(PolicyTest, LeavesAPropertyWhoseVariationsAreAllDropped) {
  ASSERT_THAT(report().createReportIntegerProperty("number", {"kept"}), Succeeds());
  ASSERT_THAT(report().addReportIntegerVariation("number", 21, 1, false), Succeeds());
  addFile(21, "content");
  apply();
  const Contents contents = report().getReportContents().value();
  ASSERT_EQ(contents.size(), 2U);
  EXPECT_EQ(contents[0].stable_id, kProperty);
  EXPECT_EQ(contents[0].media_type, "text/plain");
  EXPECT_THAT(contents[0].tags, ElementsAre("tag"));
  EXPECT_THAT(contents[0].variations, IsEmpty());
  EXPECT_EQ(contents[1].stable_id, "number");
  EXPECT_THAT(contents[1].tags, ElementsAre("kept"));
  EXPECT_THAT(contents[1].variations, IsEmpty());
}

TEST_F(PolicyTest, DropsVariationsOfEveryTypeAndRemovesFilesOnly) {
  addFile(21, "dropped");
  addFile(20, "kept");
  ASSERT_THAT(report().createReportStringProperty("text", {}), Succeeds());
  ASSERT_THAT(report().createReportIntegerProperty("integer", {}), Succeeds());
  ASSERT_THAT(report().createReportDoubleProperty("double", {}), Succeeds());
  ASSERT_THAT(report().createReportBooleanProperty("boolean", {}), Succeeds());
  for (const int level : {21, 20}) {
    ASSERT_THAT(report().addReportStringVariation("text", level, decoy(), false), Succeeds());
    ASSERT_THAT(report().addReportIntegerVariation("integer", level, 5, false), Succeeds());
    ASSERT_THAT(report().addReportDoubleVariation("double", level, 0.5, false), Succeeds());
    ASSERT_THAT(report().addReportBooleanVariation("boolean", level, true, false), Succeeds());
  }
  const DiskState before = now();
  apply();
  for (const char* name : {kProperty, "text", "integer", "double", "boolean"}) {
    EXPECT_THAT(levels(name), ElementsAre(20)) << name;
  }
  EXPECT_THAT(changesSince(before), ElementsAre(Pair(entry("contentfiles/log/21/a.txt"), "gone")));
}

TEST_F(PolicyTest, RemovesADirectoryInAFilesPlaceWithAllThatIsInIt) {
  fs::create_directories(storedFile(21) / "nested");
  writeFile(storedFile(21) / "nested/file", "content");
  storeVariations({fileVariation(storedFile(21), 21)});
  apply();
  EXPECT_FALSE(fs::exists(storedFile(21)));
  EXPECT_TRUE(fs::is_empty(variationDirectory(21)));
}

TEST_F(PolicyTest, RemovesALinkInAFilesPlaceAndLeavesWhatItNames) {
  fs::create_directories(variationDirectory(21));
  fs::create_directory_symlink(outside(), storedFile(21));
  writeFile(outside() / "kept", "kept");
  storeVariations({fileVariation(storedFile(21), 21)});
  const DiskState before = now();
  apply();
  EXPECT_THAT(changesSince(before), ElementsAre(Pair(entry("contentfiles/log/21/a.txt"), "gone")));
}

TEST_F(PolicyTest, DoesNotMindThatAFileIsGone) {
  fs::remove(addFile(21, "content"));
  addFile(22, "content");
  apply();
  EXPECT_FALSE(fs::exists(storedFile(22)));
  EXPECT_THAT(property().variations, IsEmpty());
}

TEST_F(PolicyTest, LeavesWhatTheSystemDoesNotFindByTheRecordedPath) {
  const fs::path kept = addFile(0, "kept");
  storeConsent("0", "0");
  storeVariations({fileVariation(kept, 0), fileVariation("contentfiles/none/../log/0/a.txt", 1),
                   fileVariation("contentfiles/log/0/a.txt/../a.txt", 2)});
  apply();
  EXPECT_EQ(levels(kProperty), std::vector<int>{0});
  EXPECT_EQ(readFile(kept), "kept");
}

TEST_F(PolicyTest, DroppingNothingWritesTheSameContents) {
  addFile(20, "kept");
  const auto record = stored(kContentsKey);
  const DiskState before = now();
  apply();
  EXPECT_EQ(stored(kContentsKey), record);
  EXPECT_THAT(changesSince(before), IsEmpty());
}

TEST_F(PolicyTest, WorksOnAnEmptyList) {
  storeContents({});
  apply();
  EXPECT_EQ(stored(kContentsKey), "[]");
}

TEST_F(PolicyTest, AsksForNoStageAndMarksNone) {
  addFile(21, "dropped");
  ASSERT_FALSE(report().canApplyDataPolicy());
  apply();
  EXPECT_FALSE(report().isDataPolicyApplied());
  EXPECT_THAT(property().variations, IsEmpty());
  store("upload_complete", "1");
  store("data_policy_applied", "1");
  addFile(21, "dropped");
  apply();
  EXPECT_THAT(property().variations, IsEmpty());
}

TEST_F(PolicyTest, AppliedTwiceDropsNothingMore) {
  addFile(21, "dropped");
  addFile(20, "kept");
  apply();
  const DiskState before = now();
  store("modified", "1");
  apply();
  EXPECT_THAT(changesSince(before), IsEmpty());
  EXPECT_THAT(levels(kProperty), ElementsAre(20));
}

}  // namespace
}  // namespace KELP::Diagnostic
