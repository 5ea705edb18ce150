// What a report waits for, by its five flags.

#include "reports/stage.h"

#include "reports/metadata.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <limits>
#include <string>

namespace KELP::Tool {
namespace {

using testing::ElementsAre;

Metadata withFlags(unsigned bits) {
  Metadata metadata;
  metadata.creationComplete = (bits & 1U) != 0;
  metadata.dataCollectionComplete = (bits & 2U) != 0;
  metadata.userInteractionComplete = (bits & 4U) != 0;
  metadata.dataPolicyApplied = (bits & 8U) != 0;
  metadata.uploadComplete = (bits & 16U) != 0;
  return metadata;
}

TEST(StageOfAReport, IsTheFirstThatIsNotDone) {
  const std::pair<unsigned, const char*> stages[] = {
      {0, "creating"},         {1, "collecting"}, {3, "awaiting-consent"}, {7, "awaiting-policy"},
      {15, "awaiting-upload"}, {31, "uploaded"},  {4, "creating"},  // The user may decide early.
      {5, "collecting"},
  };
  for (const auto& [bits, name] : stages) {
    EXPECT_STREQ(nameOf(stageOf(withFlags(bits))), name) << bits;
  }
}

TEST(StageOfAReport, IsTheFirstThatIsNotDoneForFlagsThatNoReportHas) {
  for (unsigned bits = 0; bits < 32; ++bits) {
    const auto stage = static_cast<unsigned>(stageOf(withFlags(bits)));
    if (bits >= 16) {
      EXPECT_EQ(stage, 5U) << bits;
      continue;
    }
    EXPECT_EQ(bits & (1U << stage), 0U) << bits;
    EXPECT_EQ(bits & ((1U << stage) - 1), (1U << stage) - 1) << bits;
    if (stage == 4) {
      EXPECT_EQ(bits, 15U);
    }
  }
}

TEST(StageNames, AreInOrderAndAreFound) {
  EXPECT_THAT(stageNames(), ElementsAre("creating", "collecting", "awaiting-consent",
                                        "awaiting-policy", "awaiting-upload", "uploaded"));
  for (const std::string& name : stageNames()) {
    const auto stage = stageNamed(name);
    ASSERT_TRUE(stage) << name;
    EXPECT_EQ(nameOf(*stage), name);
  }
  for (const char* const text : {"", "damaged", "Uploaded", "upload"}) {
    EXPECT_FALSE(stageNamed(text)) << text;
  }
  EXPECT_THAT(allStageTexts(), ElementsAre("creating", "collecting", "awaiting-consent",
                                           "awaiting-policy", "awaiting-upload", "uploaded",
                                           "half-made", "damaged", "mismatched", "unreadable"));
}

TEST(PermittedLevel, IsTheSmallerConsentLevel) {
  constexpr int kMost = std::numeric_limits<int>::max();
  const int levels[] = {-1, 0, 20, 30, kMost};
  for (const int current : levels) {
    for (const int most : levels) {
      Metadata metadata;
      metadata.currentConsentLevel = current;
      metadata.maxConsentLevel = most;
      EXPECT_EQ(metadata.permittedLevel(), std::min(current, most));
    }
  }
}

}  // namespace
}  // namespace KELP::Tool
