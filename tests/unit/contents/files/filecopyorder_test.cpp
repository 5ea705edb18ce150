// The order of a copy's steps: each test fails when two of them change places.

#include "unit/contents/files/filesfixture.h"
#include "unit/diagnostic/limits.h"

#include <diagnostic/diagnosticreport.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <optional>
#include <string>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using testing::Key;
using testing::Pair;
namespace fs = std::filesystem;

constexpr const char* kNoContents = "Cannot update file variations on report with no contents";
constexpr const char* kExists = "File already exists and overwrite is not allowed";
constexpr const char* kDirectoryFailure = "Failed to create directory for report file variation";
const std::string kClimbingName = "../../../../climbs";

/** Every test but those about the write lock does without it, which the touch would refuse. */
class FileCopyOrder : public FilesTest {
 protected:
  /** Expects a refusal whose line is its message. */
  void expectRefused(const Result& result, const std::string& message) {
    EXPECT_THAT(result, Refuses(message));
    EXPECT_EQ(log_.take(), errorLines({message}));
  }

  const fs::path source_ = makeSource("content");
  const fs::path missing_ = directory_ / "missing";
};

TEST_F(FileCopyOrder, LooksForContentsFirst) {
  store(kContentsKey, std::nullopt);
  unlock();
  const DiskState before = now();
  expectRefused(copy(missing_, kClimbingName), kNoContents);
  expectNothingChanged(before);
}

TEST_F(FileCopyOrder, LooksForThePropertyNext) {
  unlock();
  const DiskState before = now();
  for (const char* name : {"other", "", "lo", "log2", "LOG", "../log"}) {
    expectRefused(report().copyFileToFileProperty(name, kLevel, missing_, kClimbingName, false),
                  kNoDestinationLine);
  }
  expectNothingChanged(before);
}

TEST_F(FileCopyOrder, WithAnEmptyListOfContentsThereIsNoProperty) {
  storeContents({});
  const DiskState before = now();
  expectRefused(copy(source_), kNoDestinationLine);
  expectNothingChanged(before);
}

TEST_F(FileCopyOrder, RefusesAnExistingVariationBeforeItLooksAtThePaths) {
  storeVariations({fileVariation(decoy(), kLevel)});
  unlock();
  const DiskState before = now();
  expectRefused(copy(missing_, kClimbingName), kExists);
  expectNothingChanged(before);
}

TEST_F(FileCopyOrder, RefusesAnExistingVariationBeforeItMakesDirectories) {
  addFile(kLevel, "former");
  fs::remove_all(dir() / "contentfiles");
  const DiskState before = now();
  expectRefused(copy(source_), kExists);
  expectNothingChanged(before);
}

TEST_F(FileCopyOrder, ARefusedExistingVariationKeepsItsFile) {
  addFile(kLevel, "former");
  const DiskState before = now();
  expectRefused(copy(source_, "another.txt"), kExists);
  expectNothingChanged(before);
  EXPECT_EQ(readFile(storedFile()), "former");
}

TEST_F(FileCopyOrder, FindsTheDestinationBeforeItMakesDirectories) {
  unlock();
  const DiskState before = now();
  EXPECT_THAT(copy(missing_, kClimbingName), Refuses(kNotWithinReport));
  EXPECT_EQ(log_.take(),
            outsideLines(variationDirectory() / kClimbingName, dir(), kNoDestinationLine));
  expectNothingChanged(before);
}

TEST_F(FileCopyOrder, FindsARecordedDestinationBeforeItMakesDirectories) {
  storeVariations({fileVariation(outside() / "made/file", kLevel)});
  unlock();
  const DiskState before = now();
  EXPECT_THAT(copy(missing_, kFileName, true), Refuses(kNotWithinReport));
  EXPECT_EQ(log_.take(), outsideLines(outside() / "made/file", dir(), kNoDestinationLine));
  expectNothingChanged(before);
}

TEST_F(FileCopyOrder, FailsToMakeDirectoriesBeforeItTouches) {
  fs::create_directory(dir() / "contentfiles");
  writeFile(dir() / "contentfiles/log", "a file");
  unlock();
  const DiskState before = now();
  EXPECT_THAT(copy(missing_),
              FailsWith(std::error_code(ENOTDIR, std::generic_category()), kDirectoryFailure));
  EXPECT_EQ(log_.take(), errorLines({kDirectoryFailure}));
  expectNothingChanged(before);
}

TEST_F(FileCopyOrder, MakesDirectoriesBeforeItTouches) {
  unlock();
  const DiskState before = now();
  expectRefused(copy(source_), kNoWriteLockLine);
  EXPECT_THAT(changesSince(before),
              ElementsAre(Key(entry("contentfiles")), Key(entry("contentfiles/log")),
                          Key(entry("contentfiles/log/2"))));
  EXPECT_THAT(recordsSince(before.records), IsEmpty());
}

TEST_F(FileCopyOrder, TouchesBeforeItLooksAtTheSource) {
  fs::create_directories(variationDirectory());
  unlock();
  const DiskState before = now();
  expectRefused(copy(missing_), kNoWriteLockLine);
  expectNothingChanged(before);
}

TEST_F(FileCopyOrder, TouchesBeforeItCopies) {
  addFile(kLevel, "former");
  ASSERT_THAT(report().acquireReadLock(true), Succeeds()) << "a read lock is not enough";
  const DiskState before = now();
  expectRefused(copy(source_, kFileName, true), kNoWriteLockLine);
  expectNothingChanged(before);
}

TEST_F(FileCopyOrder, CopiesNothingWhenTheStampCannotBeWritten) {
  addFile(kLevel, "former");
  const DiskState before = now();
  {
    const FileSizeLimit full(fs::file_size(metadataFile()));
    expectRefused(copy(source_, kFileName, true), kTouchFailureLine);
  }
  expectNothingChanged(before);
}

TEST_F(FileCopyOrder, StampsBeforeItFailsToCopyAndThenWritesNoContents) {
  fs::create_directories(variationDirectory());
  const DiskState before = now();
  EXPECT_THAT(copy(missing_),
              FailsWith(std::error_code(ENOENT, std::generic_category()), kCopyFailure));
  EXPECT_EQ(log_.take(), errorLines({std::string(kCopyFailure) + ": No such file or directory"}));
  expectOnlyStamped(before);
}

TEST_F(FileCopyOrder, CopiesBeforeItWritesTheContents) {
  fs::create_directories(variationDirectory());
  const DiskState before = now();
  {
    const FileSizeLimit full(fs::file_size(metadataFile()) + recordSize(stamp()));
    expectRefused(copy(source_), kWriteFailure);
  }
  EXPECT_THAT(changesSince(before),
              ElementsAre(Pair(entry("contentfiles/log/2/a.txt"), EndsWith(": content"))));
  EXPECT_THAT(recordsSince(before.records), ElementsAre(stamp()));
  EXPECT_THAT(property().variations, IsEmpty());
}

TEST_F(FileCopyOrder, AFailedWriteAfterOverwritingKeepsTheNewFileAndTheRecord) {
  addFile(kLevel, "former");
  const DiskState before = now();
  {
    const FileSizeLimit full(fs::file_size(metadataFile()) + recordSize(stamp()) + 5);
    expectRefused(copy(source_, "", true), kWriteFailure);
  }
  EXPECT_THAT(changesSince(before),
              ElementsAre(Pair(entry("contentfiles/log/2/a.txt"), EndsWith(": content"))));
  EXPECT_EQ(stored("modified"), stamp().value);
  EXPECT_THAT(property().variations, ElementsAre(fileVariation(storedFile(), kLevel)));
}

TEST_F(FileCopyOrder, CanBeRepeatedAfterAFailedWrite) {
  {
    const FileSizeLimit full(fs::file_size(metadataFile()) + recordSize(stamp()));
    expectRefused(copy(source_), kWriteFailure);
  }
  EXPECT_THAT(copy(source_), Succeeds());
  EXPECT_THAT(property().variations, ElementsAre(fileVariation(storedFile(), kLevel)));
  EXPECT_EQ(readFile(storedFile()), "content");
}

TEST_F(FileCopyOrder, AReportOfNothingHasNoContents) {
  DiagnosticReport nothing;
  expectRefused(nothing.copyFileToFileProperty(kProperty, kLevel, source_, kFileName, true),
                kNoContents);
}

}  // namespace
}  // namespace KELP::Diagnostic
