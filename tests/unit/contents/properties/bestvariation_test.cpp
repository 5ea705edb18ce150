// The best variation, and how the consent levels decide it.

#include "unit/contents/properties/typefamilies.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <optional>
#include <string>
#include <vector>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;
using Text = std::optional<std::string>;

constexpr int kLowest = std::numeric_limits<int>::min();
constexpr int kHighest = std::numeric_limits<int>::max();

class BestVariation : public ContentsTest {
 protected:
  void storeConsent(const Text& current, const Text& maximum) {
    store("current_consent_level", current);
    store("max_consent_level", maximum);
  }
  /** The position of the best of variations at these levels; -1 when there is none. */
  int bestOf(const std::vector<int>& levels) {
    storeContents({numbered("name", levels)});
    const auto best = report().getReportContentBestVariation("name");
    return best ? best->integer : -1;
  }
};

TEST_F(BestVariation, IsTheHighestThatBothConsentLevelsPermit) {
  storeConsent("2", "1");
  EXPECT_EQ(bestOf({0, 1, 2}), 1);
  storeConsent("1", "2");
  EXPECT_EQ(bestOf({0, 1, 2}), 1);
  storeConsent("5", "5");
  EXPECT_EQ(bestOf({0, 1, 2}), 2);
  EXPECT_EQ(bestOf({2, 0, 1}), 0);
}

TEST_F(BestVariation, OfANewReportHasAtMostLevel20) {
  EXPECT_EQ(bestOf({0, 20, 21, 30}), 1);
  EXPECT_EQ(bestOf({21, 30}), -1);
}

TEST_F(BestVariation, HasLevel0WhenConsentIsAbsentOrUnreadable) {
  storeConsent(std::nullopt, std::nullopt);
  EXPECT_EQ(bestOf({-1, 1, 0, 2}), 2);
  EXPECT_EQ(bestOf({1, 2}), -1);
  for (const char* text : {"", "much", "-", "+5", " 5", "2147483648", "-2147483649"}) {
    storeConsent(text, "5");
    EXPECT_EQ(bestOf({0, 1, 2}), 0) << text;
    storeConsent("5", text);
    EXPECT_EQ(bestOf({0, 1, 2}), 0) << text;
  }
}

TEST_F(BestVariation, DoesNotExistBelowLevel0) {
  for (const auto& [current, maximum] : {std::pair("5", "5"), {"-1", "5"}, {"-2147483648", "-1"}}) {
    storeConsent(current, maximum);
    EXPECT_EQ(bestOf({-1}), -1);
    EXPECT_EQ(bestOf({-2, kLowest, -1}), -1);
  }
}

TEST_F(BestVariation, DoesNotExistWithNegativeConsent) {
  for (const auto& [current, maximum] : {std::pair("-1", "5"), {"5", "-1"}, {"5", "-2147483648"}}) {
    storeConsent(current, maximum);
    EXPECT_EQ(bestOf({-1, 0, 1, kLowest}), -1);
  }
}

TEST_F(BestVariation, MayHaveTheHighestLevelOfAll) {
  storeConsent("2147483647", "2147483647");
  EXPECT_EQ(bestOf({0, kHighest, kHighest - 1}), 1);
  storeConsent("2147483647", "2147483646");
  EXPECT_EQ(bestOf({0, kHighest, kHighest - 1}), 2);
}

TEST_F(BestVariation, IsTheFirstOfSeveralAtItsLevel) {
  EXPECT_EQ(bestOf({1, 3, 2, 3, 3}), 1);
}

TEST_F(BestVariation, DoesNotExistWithoutVariations) {
  EXPECT_EQ(bestOf({}), -1);
}

TEST_F(BestVariation, FollowsTheConsentLevelsWithoutAWriteToTheContents) {
  storeContents({numbered("name", {0, 10, 20, 30})});
  const std::vector<std::pair<int, int>> steps{{5, 0}, {10, 1}, {40, 3}, {-1, -1}};
  ASSERT_THAT(report().setMaxConsentLevel(35), Succeeds());
  for (const auto& [level, position] : steps) {
    ASSERT_THAT(report().setCurrentConsentLevel(level), Succeeds());
    const auto best = report().getReportIntegerBestVariation("name");
    EXPECT_EQ(best ? best->integer : -1, position);
  }
  EXPECT_EQ(stored(kContentsKey), textOf({numbered("name", {0, 10, 20, 30})}));
}

TEST_F(BestVariation, DoesNotDependOnTheStages) {
  for (const char* stage : {"report_creation_complete", "user_interaction_complete",
                            "data_collection_complete", "data_policy_applied", "upload_complete"}) {
    store(stage, "1");
    EXPECT_EQ(bestOf({0, 20, 21}), 1) << stage;
  }
}

}  // namespace
}  // namespace KELP::Diagnostic
