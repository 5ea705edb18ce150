// Where the file of a variation is, and of the best one.

#include "unit/contents/files/filesfixture.h"

#include <diagnostic/diagnosticreport.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <string>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;
using testing::IsEmpty;
namespace fs = std::filesystem;

constexpr const char* kNoVariation =
    "Unable to get path for report file variation that does not exist";

/** No query needs a lock or changes anything. */
class FilePath : public FilesTest {
 protected:
  void expectPath(const DiagnosticReport::PathResult& result, const fs::path& path) {
    EXPECT_THAT(result, Holds(path));
    EXPECT_THAT(log_.take(), IsEmpty());
  }
  void expectNone(const DiagnosticReport::PathResult& result) {
    EXPECT_THAT(result, Refuses(kNoVariation));
    EXPECT_EQ(log_.take(), errorLines({kNoVariation}));
  }
  DiagnosticReport::PathResult pathOf(int level) {
    return report().getReportFileVariationPath(kProperty, level);
  }
  DiagnosticReport::PathResult bestPath() {
    return report().getReportFileBestVariationPath(kProperty);
  }
};

TEST_F(FilePath, IsThatOfTheLevel) {
  const fs::path first = addFile(1, "one", "one.txt");
  const fs::path second = addFile(kLevel, "two", "");
  unlock();
  const DiskState before = now();
  expectPath(pathOf(1), first);
  expectPath(pathOf(kLevel), second);
  expectNone(pathOf(0));
  expectNone(report().getReportFileVariationPath("other", 1));
  expectNothingChanged(before);
}

TEST_F(FilePath, OfTheBestVariationFollowsTheConsentLevels) {
  const fs::path zero = addFile(0, "zero");
  const fs::path ten = addFile(10, "ten");
  const fs::path thirty = addFile(30, "thirty");
  const fs::path twenty = addFile(20, "twenty");
  unlock();
  const auto expectBest = [&](const std::optional<std::string>& current,
                              const std::optional<std::string>& maximum, const fs::path& path) {
    store("current_consent_level", current);
    store("max_consent_level", maximum);
    const DiskState before = now();
    expectPath(bestPath(), path);
    expectNothingChanged(before);
  };
  expectPath(bestPath(), twenty);
  expectBest("30", "30", thirty);
  expectBest("100", "29", twenty);
  expectBest("19", "30", ten);
  expectBest("30", "9", zero);
  expectBest(std::nullopt, "30", zero);
  expectBest("30", std::nullopt, zero);
  store("current_consent_level", "-1");
  expectNone(bestPath());
}

TEST_F(FilePath, OfTheBestVariationIsMissingWhenAllAreTooSensitiveOrNegative) {
  addFile(21, "too sensitive");
  addFile(-1, "negative");
  expectNone(bestPath());
  expectNone(report().getReportFileBestVariationPath("other"));
}

TEST_F(FilePath, NeedsAPropertyOfFiles) {
  ASSERT_THAT(report().createReportStringProperty("text", {}), Succeeds());
  ASSERT_THAT(report().addReportStringVariation("text", kLevel, "value", false), Succeeds());
  expectNone(report().getReportFileVariationPath("text", kLevel));
  expectNone(report().getReportFileBestVariationPath("text"));
}

TEST_F(FilePath, NeedsContents) {
  store(kContentsKey, std::nullopt);
  expectNone(pathOf(kLevel));
  expectNone(bestPath());
  DiagnosticReport nothing;
  expectNone(nothing.getReportFileVariationPath(kProperty, kLevel));
  expectNone(nothing.getReportFileBestVariationPath(kProperty));
}

TEST_F(FilePath, MayBeRecordedRelativeToTheReport) {
  storeVariations({fileVariation("contentfiles/x", kLevel)});
  expectPath(pathOf(kLevel), dir() / "contentfiles/x");
  expectPath(bestPath(), dir() / "contentfiles/x");
}

TEST_F(FilePath, DoesNotTellWhetherTheFileIsThere) {
  const fs::path path = addFile(kLevel, "content");
  fs::remove(path);
  expectPath(pathOf(kLevel), path);
  expectPath(bestPath(), path);
}

TEST_F(FilePath, OutsideTheReportIsRefusedWithTheBuildersLineAlone) {
  for (const fs::path& recorded : {decoy(), fs::path("../x"), fs::path("")}) {
    storeVariations({fileVariation(recorded, kLevel)});
    const auto lines = errorLines({"Path: " + (dir() / recorded).string() +
                                   ", is not within report directory: " + dir().string()});
    EXPECT_THAT(pathOf(kLevel), Refuses(kNotWithinReport));
    EXPECT_EQ(log_.take(), lines);
    EXPECT_THAT(bestPath(), Refuses(kNotWithinReport));
    EXPECT_EQ(log_.take(), lines);
  }
}

}  // namespace
}  // namespace KELP::Diagnostic
