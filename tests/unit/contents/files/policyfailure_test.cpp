// Data policies that cannot be applied, or not quite, and the order of their steps.

#include "unit/contents/files/filesfixture.h"
#include "unit/diagnostic/limits.h"

#include <diagnostic/diagnosticreport.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
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

constexpr const char* kNoContents =
    "Cannot remove content property variations from report with no contents";
constexpr const char* kNoPathLine = "Unable to determine destination path for file to remove";

class PolicyFailure : public FilesTest {
 protected:
  PolicyFailure() {
    addFile(20, "kept");
    addFile(21, "dropped");
  }

  /** Expects a refusal with a line like its message. */
  void expectRefused(const std::string& message) {
    EXPECT_THAT(report().applyPolicyFilters(), Refuses(message));
    EXPECT_EQ(log_.take(), errorLines({message}));
  }
};

TEST_F(PolicyFailure, WithoutContentsComesBeforeTheLock) {
  store(kContentsKey, std::nullopt);
  unlock();
  const DiskState before = now();
  expectRefused(kNoContents);
  expectNothingChanged(before);
  DiagnosticReport nothing;
  EXPECT_THAT(nothing.applyPolicyFilters(), Refuses(kNoContents));
}

TEST_F(PolicyFailure, WithoutTheWriteLockChangesNothing) {
  const auto record = stored(kContentsKey);
  unlock();
  const DiskState before = now();
  expectRefused(kNoWriteLockLine);
  ASSERT_THAT(report().acquireReadLock(true), Succeeds());
  expectRefused(kNoWriteLockLine);
  expectNothingChanged(before);
  EXPECT_EQ(stored(kContentsKey), record);
}

TEST_F(PolicyFailure, KeepsTheFilesWhenTheStampCannotBeWritten) {
  const DiskState before = now();
  const FileSizeLimit full(fs::file_size(metadataFile()));
  expectRefused(kTouchFailureLine);
  expectNothingChanged(before);
}

TEST_F(PolicyFailure, KeepsTheFilesWhenTheContentsCannotBeWritten) {
  const auto record = stored(kContentsKey);
  const DiskState before = now();
  {
    const FileSizeLimit full(fs::file_size(metadataFile()) + recordSize(stamp()));
    expectRefused(kWriteFailure);
  }
  expectOnlyStamped(before);
  EXPECT_EQ(stored(kContentsKey), record);
  EXPECT_THAT(report().applyPolicyFilters(), Succeeds());
  EXPECT_THAT(changesSince(before), ElementsAre(Pair(entry("contentfiles/log/21/a.txt"), "gone")));
}

TEST_F(PolicyFailure, IgnoresThatAFileCannotBeRemoved) {
  const Permissions metadata(metadataFile(), 0666);
  const Permissions readOnly(variationDirectory(21), 0555);
  addFile(22, "dropped too");
  const Permissions writable(variationDirectory(22), 0777);
  const DiskState before = now();
  {
    const Unprivileged nobody;
    EXPECT_THAT(report().applyPolicyFilters(), Succeeds());
  }
  EXPECT_THAT(log_.take(), IsEmpty());
  EXPECT_THAT(changesSince(before), ElementsAre(Pair(entry("contentfiles/log/22/a.txt"), "gone")));
  EXPECT_THAT(property().variations, ElementsAre(fileVariation(storedFile(20), 20)));
}

/** Variations whose files are recorded outside, between some that are not. */
class PolicyWithPathsOutside : public PolicyFailure {
 protected:
  PolicyWithPathsOutside() {
    writeFile(outside() / "x", "another decoy");
    fs::create_directory_symlink(outside(), dir() / "contentfiles/out");
    storeVariations({fileVariation(decoy(), 30), fileVariation(storedFile(20), 20),
                     fileVariation(dir() / "contentfiles/out/x", 40),
                     fileVariation(storedFile(21), 21), fileVariation("", 50),
                     fileVariation(decoy(), 5)});
  }

  /** Two lines for each path outside that is dropped, in list order. */
  [[nodiscard]] std::vector<LogLine> lines() const {
    std::vector<LogLine> all;
    for (const fs::path& path : {decoy(), dir() / "contentfiles/out/x", dir() / ""}) {
      for (const LogLine& line : outsideLines(path, dir(), kNoPathLine)) {
        all.push_back(line);
      }
    }
    return all;
  }
};

TEST_F(PolicyWithPathsOutside, DropsThemAllTheSameAndLeavesTheFiles) {
  const DiskState before = now();
  EXPECT_THAT(report().applyPolicyFilters(), Succeeds());
  EXPECT_EQ(log_.take(), lines());
  EXPECT_THAT(changesSince(before), ElementsAre(Pair(entry("contentfiles/log/21/a.txt"), "gone")));
  EXPECT_THAT(property().variations,
              ElementsAre(fileVariation(storedFile(20), 20), fileVariation(decoy(), 5)));
}

TEST_F(PolicyWithPathsOutside, LooksAtThePathsBeforeTheLock) {
  unlock();
  const DiskState before = now();
  EXPECT_THAT(report().applyPolicyFilters(), Refuses(kNoWriteLockLine));
  auto all = lines();
  all.push_back(errorLine(kNoWriteLockLine));
  EXPECT_EQ(log_.take(), all);
  expectNothingChanged(before);
}

}  // namespace
}  // namespace KELP::Diagnostic
