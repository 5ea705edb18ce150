// Removing a file variation: first its record, then its file.

#include "unit/contents/files/filesfixture.h"
#include "unit/diagnostic/limits.h"

#include <diagnostic/diagnosticreport.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <string>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
namespace fs = std::filesystem;

class FileRemoval : public FilesTest {
 protected:
  Result remove(int level = kLevel) { return report().removeFileVariation(kProperty, level); }

  void expectDone(const Result& result, const DiskState& before) {
    EXPECT_THAT(result, Succeeds());
    EXPECT_THAT(log_.take(), IsEmpty());
    EXPECT_THAT(keysSince(before), ElementsAre("modified", kContentsKey));
  }

  /** Expects the refusal of a variation that does not exist. */
  void expectMissing(const std::string& name, int level) {
    const DiskState before = now();
    EXPECT_THAT(report().removeFileVariation(name, level),
                Refuses("Report file variation to be removed does not exist in the report"));
    EXPECT_EQ(log_.take(), errorLines({"Report file variation to be removed (" + name + ", " +
                                       std::to_string(level) + ") does not exist in the report"}));
    expectNothingChanged(before);
  }
};

TEST_F(FileRemoval, TakesTheRecordAndTheFileAndLeavesTheRest) {
  const fs::path other = addFile(1, "other");
  addFile(kLevel, "content");
  writeFile(variationDirectory() / "beside", "kept");
  const DiskState before = now();
  expectDone(remove(), before);
  EXPECT_THAT(changesSince(before), ElementsAre(Pair(entry("contentfiles/log/2/a.txt"), "gone")));
  EXPECT_THAT(property().variations, ElementsAre(fileVariation(other, 1)));
}

TEST_F(FileRemoval, OfTheLastVariationLeavesTheProperty) {
  addFile(kLevel, "content");
  const DiskState before = now();
  expectDone(remove(), before);
  EXPECT_THAT(property().variations, IsEmpty());
  EXPECT_TRUE(report().hasReportFileProperty(kProperty));
}

TEST_F(FileRemoval, OfADirectoryTakesAllThatIsInIt) {
  fs::create_directories(storedFile() / "nested");
  writeFile(storedFile() / "nested/file", "content");
  fs::create_directory_symlink(outside(), storedFile() / "link");
  writeFile(outside() / "kept", "kept");
  storeVariations({fileVariation(storedFile(), kLevel)});
  const DiskState before = now();
  expectDone(remove(), before);
  EXPECT_FALSE(fs::exists(storedFile()));
  EXPECT_EQ(readFile(outside() / "kept"), "kept");
}

TEST_F(FileRemoval, OfALinkLeavesWhatItNames) {
  fs::create_directories(variationDirectory());
  fs::create_symlink(decoy(), storedFile());
  storeVariations({fileVariation(storedFile(), kLevel)});
  const DiskState before = now();
  expectDone(remove(), before);
  EXPECT_THAT(changesSince(before), ElementsAre(Pair(entry("contentfiles/log/2/a.txt"), "gone")));
}

TEST_F(FileRemoval, LeavesWhatTheSystemDoesNotFindByTheRecordedPath) {
  const fs::path other = addFile(1, "other");
  for (const std::string path :
       {"contentfiles/none/../log/1/a.txt", "contentfiles/log/1/a.txt/../a.txt"}) {
    storeVariations({fileVariation(other, 1), fileVariation(path, kLevel)});
    const DiskState before = now();
    expectDone(remove(), before);
    EXPECT_THAT(changesSince(before), IsEmpty()) << path;
    EXPECT_THAT(property().variations, ElementsAre(fileVariation(other, 1)));
  }
}

TEST_F(FileRemoval, DoesNotMindThatTheFileIsGone) {
  fs::remove(addFile(kLevel, "content"));
  const DiskState before = now();
  expectDone(remove(), before);
  EXPECT_THAT(property().variations, IsEmpty());
}

TEST_F(FileRemoval, DoesNotMindThatTheFileCannotBeRemoved) {
  addFile(kLevel, "content");
  const Permissions metadata(metadataFile(), 0666);
  const Permissions readOnly(variationDirectory(), 0555);
  const DiskState before = now();
  {
    const Unprivileged nobody;
    expectDone(remove(), before);
  }
  EXPECT_THAT(changesSince(before), IsEmpty());
  EXPECT_THAT(property().variations, IsEmpty());
}

TEST_F(FileRemoval, OfAMissingVariationIsRefusedBeforeAnythingElse) {
  addFile(kLevel, "content");
  ASSERT_THAT(report().createReportStringProperty("text", {}), Succeeds());
  ASSERT_THAT(report().addReportStringVariation("text", kLevel, "value", false), Succeeds());
  unlock();
  expectMissing(kProperty, 1);
  expectMissing(kProperty, -kLevel);
  expectMissing("other", kLevel);
  expectMissing("text", kLevel);
  expectMissing("%s%n", kLevel);
  store(kContentsKey, std::nullopt);
  expectMissing(kProperty, kLevel);
}

TEST_F(FileRemoval, OutsideTheReportIsRefusedBeforeTheLock) {
  storeVariations({fileVariation(decoy(), kLevel)});
  unlock();
  const DiskState before = now();
  EXPECT_THAT(remove(), Refuses(kNotWithinReport));
  EXPECT_EQ(log_.take(), outsideLines(decoy(), dir(),
                                      "Unable to determine destination path for file to remove"));
  expectNothingChanged(before);
}

TEST_F(FileRemoval, ByWayOfALinkThatLeadsOutIsRefused) {
  addFile(kLevel, "content");
  fs::remove_all(dir() / "contentfiles/log");
  fs::create_directory(outside() / "2");
  writeFile(outside() / "2/a.txt", "another decoy");
  fs::create_directory_symlink(outside(), dir() / "contentfiles/log");
  const DiskState before = now();
  EXPECT_THAT(remove(), Refuses(kNotWithinReport));
  expectNothingChanged(before);
}

TEST_F(FileRemoval, WithoutTheWriteLockChangesNothing) {
  addFile(kLevel, "content");
  ASSERT_THAT(report().acquireReadLock(true), Succeeds());
  const DiskState before = now();
  EXPECT_THAT(remove(), Refuses(kNoWriteLockLine));
  EXPECT_EQ(log_.take(), errorLines({kNoWriteLockLine}));
  expectNothingChanged(before);
}

TEST_F(FileRemoval, KeepsTheFileWhenTheStampCannotBeWritten) {
  addFile(kLevel, "content");
  const DiskState before = now();
  const FileSizeLimit full(fs::file_size(metadataFile()));
  EXPECT_THAT(remove(), Refuses(kTouchFailureLine));
  EXPECT_EQ(log_.take(), errorLines({kTouchFailureLine}));
  expectNothingChanged(before);
}

TEST_F(FileRemoval, KeepsTheFileWhenTheContentsCannotBeWritten) {
  addFile(kLevel, "content");
  const DiskState before = now();
  const FileSizeLimit full(fs::file_size(metadataFile()) + recordSize(stamp()));
  EXPECT_THAT(remove(), Refuses(kWriteFailure));
  EXPECT_EQ(log_.take(), errorLines({kWriteFailure}));
  expectOnlyStamped(before);
  EXPECT_THAT(property().variations, ElementsAre(fileVariation(storedFile(), kLevel)));
}

TEST_F(FileRemoval, TakesTheFirstOfSeveralVariationsAtALevel) {
  const fs::path first = addFile(kLevel, "first");
  const fs::path second = addFile(3, "second");
  storeVariations({fileVariation(first, kLevel), fileVariation(second, kLevel)});
  const DiskState before = now();
  expectDone(remove(), before);
  EXPECT_FALSE(fs::exists(first));
  EXPECT_THAT(property().variations, ElementsAre(fileVariation(second, kLevel)));
}

}  // namespace
}  // namespace KELP::Diagnostic
