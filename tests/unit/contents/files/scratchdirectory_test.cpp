// The report's scratch directory: handing out names in it, and removing it.

#include "unit/contents/files/filesfixture.h"
#include "unit/diagnostic/limits.h"

#include <diagnostic/diagnosticreport.h>
#include <diagnostic/reporttemporaryfile.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <system_error>
#include <vector>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Key;
namespace fs = std::filesystem;

constexpr const char* kNullIdLine = "Unable to get report path for report with null UUID";
constexpr const char* kUnknownDirectoryLine =
    "Unable to prepare relative report path for report with unknown report directory";

class ScratchDirectory : public FilesTest {
 protected:
  ScratchDirectory() { unlock(); }

  /** A handle, which must be given. */
  std::shared_ptr<ReportTemporaryFile> make() {
    const auto made = report().createReportTemporaryFile();
    EXPECT_TRUE(made.has_value());
    return made ? made.value() : std::make_shared<ReportTemporaryFile>(std::nullopt);
  }
};

TEST_F(ScratchDirectory, IsMadeWithTheFirstNameAndNeedsNoLock) {
  const DiskState before = now();
  const auto file = make();
  ASSERT_TRUE(file->isValid());
  EXPECT_EQ(file->getPath()->parent_path(), tmpDirectory());
  EXPECT_EQ(file->getPath()->filename().string().size(), 36U);
  EXPECT_THAT(changesSince(before), ElementsAre(Key(entry("tmp"))));
  EXPECT_THAT(recordsSince(before.records), IsEmpty());
  EXPECT_THAT(namesIn(tmpDirectory()), IsEmpty());
  EXPECT_THAT(log_.take(), IsEmpty());
  EXPECT_TRUE(lockIsFree());
}

TEST_F(ScratchDirectory, HoldsAllNamesAndEachIsAnother) {
  const auto first = make();
  const auto second = make();
  EXPECT_NE(first->getPath(), second->getPath());
  EXPECT_EQ(first->getPath()->parent_path(), second->getPath()->parent_path());
}

TEST_F(ScratchDirectory, IsMadeWithAllThatIsMissingAboveIt) {
  fs::remove_all(root_);
  EXPECT_TRUE(make()->isValid());
  EXPECT_TRUE(fs::is_directory(tmpDirectory()));
  EXPECT_THAT(namesIn(dir()), ElementsAre("tmp"));
  EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(ScratchDirectory, StaysWhenItsFilesAreGone) {
  make();
  EXPECT_TRUE(fs::is_directory(tmpDirectory()));
}

TEST_F(ScratchDirectory, CanBeUsedWhileAnotherObjectHoldsTheWriteLock) {
  const auto other = open();
  ASSERT_THAT(other->acquireWriteLock(false), Succeeds());
  const DiskState before = now();
  EXPECT_TRUE(make()->isValid());
  EXPECT_THAT(report().purgeReportTemporaryFiles(), Succeeds());
  expectNothingChanged(before);
  EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(ScratchDirectory, CanBeUsedWithoutAStore) {
  fs::remove(metadataFile());
  EXPECT_TRUE(make()->isValid());
  EXPECT_THAT(report().purgeReportTemporaryFiles(), Succeeds());
  EXPECT_FALSE(fs::exists(metadataFile()));
  EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(ScratchDirectory, MayBeALinkToADirectory) {
  fs::create_directory_symlink(outside(), tmpDirectory());
  const auto file = make();
  writeFile(file->getPath().value(), "scratch");
  EXPECT_EQ(namesIn(outside()).size(), 1U);
  file->cleanup();
  EXPECT_THAT(namesIn(outside()), IsEmpty());
}

TEST_F(ScratchDirectory, AFileInItsPlaceIsTakenAsItIs) {
  writeFile(tmpDirectory(), "a file");
  const DiskState before = now();
  auto file = make();
  EXPECT_TRUE(file->isValid());
  EXPECT_EQ(file->getPath()->parent_path(), tmpDirectory());
  file.reset();
  expectNothingChanged(before);
  EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(ScratchDirectory, ADanglingLinkInItsPlaceIsAFailure) {
  fs::create_symlink(outside() / "missing", tmpDirectory());
  const DiskState before = now();
  std::error_code expected;
  fs::create_directories(tmpDirectory(), expected);
  ASSERT_EQ(expected, std::errc::file_exists);
  EXPECT_THAT(report().createReportTemporaryFile(),
              FailsWith(expected, "Failed to create temp directory for report"));
  EXPECT_EQ(log_.take(), errorLines({"Failed to create temp directory for report"}));
  expectNothingChanged(before);
}

TEST_F(ScratchDirectory, WithoutPermissionIsAFailure) {
  const Permissions readOnly(dir(), 0555);
  const DiskState before = now();
  {
    const Unprivileged nobody;
    EXPECT_THAT(report().createReportTemporaryFile(),
                FailsWith(std::error_code(EACCES, std::generic_category()),
                          "Failed to create temp directory for report"));
  }
  EXPECT_EQ(log_.take(), errorLines({"Failed to create temp directory for report"}));
  expectNothingChanged(before);
}

TEST_F(ScratchDirectory, ThatCannotBeExaminedIsAnException) {
  fs::create_symlink("tmp", tmpDirectory());
  const DiskState before = now();
  try {
    static_cast<void>(report().createReportTemporaryFile());
    ADD_FAILURE() << "nothing was thrown";
  } catch (const fs::filesystem_error& error) {
    EXPECT_EQ(error.code(), std::errc::too_many_symbolic_link_levels);
  }
  EXPECT_THAT(log_.take(), IsEmpty());
  expectNothingChanged(before);
}

TEST_F(ScratchDirectory, OfAReportOfNothingIsNotKnown) {
  DiagnosticReport nothing;
  EXPECT_THAT(nothing.createReportTemporaryFile(), Refuses(kNullIdLine));
  EXPECT_EQ(log_.take(), errorLines({kNullIdLine, kUnknownDirectoryLine,
                                     "Failed to get report temporary directory path"}));
  EXPECT_THAT(nothing.purgeReportTemporaryFiles(), Refuses(kNullIdLine));
  EXPECT_EQ(log_.take(), errorLines({kNullIdLine, kUnknownDirectoryLine,
                                     "Cannot purge unknown report temporary directory path"}));
}

TEST_F(ScratchDirectory, OfAReportWhoseDirectoryCannotBeResolvedIsNotKnown) {
  const fs::path aside = root_ / "aside";
  fs::rename(dir(), aside);
  fs::create_symlink(kIdText, dir());
  const std::string loop = "Too many levels of symbolic links";
  const auto lines = [&](const char* last) {
    return errorLines(
        {"Error " + loop + " while attempting to resolve path: " + dir().string(),
         "Path: " + tmpDirectory().string() + ", is not within report directory: " + dir().string(),
         last});
  };
  EXPECT_THAT(report().createReportTemporaryFile(), Refuses(kNotWithinReport));
  EXPECT_EQ(log_.take(), lines("Failed to get report temporary directory path"));
  EXPECT_THAT(report().purgeReportTemporaryFiles(), Refuses(kNotWithinReport));
  EXPECT_EQ(log_.take(), lines("Cannot purge unknown report temporary directory path"));
}

TEST_F(ScratchDirectory, IsPurgedAsAWholeAndMadeAnew) {
  const auto file = make();
  writeFile(file->getPath().value(), "scratch");
  fs::create_directories(tmpDirectory() / "nested/deeper");
  writeFile(tmpDirectory() / "nested/deeper/file", "scratch");
  fs::create_symlink(decoy(), tmpDirectory() / "link");
  fs::create_directory_symlink(outside(), tmpDirectory() / "links");
  writeFile(outside() / "kept", "kept");
  const DiskState before = now();

  EXPECT_THAT(report().purgeReportTemporaryFiles(), Succeeds());
  EXPECT_FALSE(fs::exists(tmpDirectory()));
  for (const auto& [name, description] : changesSince(before)) {
    EXPECT_TRUE(name.starts_with(entry("tmp"))) << name << " is " << description;
  }
  EXPECT_THAT(recordsSince(before.records), IsEmpty());
  EXPECT_THAT(log_.take(), IsEmpty());

  EXPECT_TRUE(make()->isValid());
  EXPECT_TRUE(fs::is_directory(tmpDirectory()));
}

TEST_F(ScratchDirectory, PurgedLeavesHandlesValid) {
  auto file = make();
  const fs::path path = file->getPath().value();
  writeFile(path, "scratch");
  ASSERT_THAT(report().purgeReportTemporaryFiles(), Succeeds());
  EXPECT_TRUE(file->isValid());
  EXPECT_EQ(file->getPath(), path);
  EXPECT_NO_THROW(file->cleanup());
  EXPECT_FALSE(file->isValid());
}

TEST_F(ScratchDirectory, CanBePurgedWhenThereIsNone) {
  const DiskState before = now();
  EXPECT_THAT(report().purgeReportTemporaryFiles(), Succeeds());
  EXPECT_THAT(report().purgeReportTemporaryFiles(), Succeeds());
  expectNothingChanged(before);
  EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(ScratchDirectory, WhateverStandsInItsPlaceIsPurged) {
  writeFile(outside() / "kept", "kept");
  const std::vector<std::function<void()>> places{
      [&] { writeFile(tmpDirectory(), "a file"); },
      [&] { fs::create_directory_symlink(outside(), tmpDirectory()); },
      [&] { fs::create_symlink(outside() / "missing", tmpDirectory()); },
      [&] { fs::create_symlink("tmp", tmpDirectory()); },
  };
  for (const auto& place : places) {
    const DiskState before = now();
    place();
    EXPECT_THAT(report().purgeReportTemporaryFiles(), Succeeds());
    expectNothingChanged(before);
    EXPECT_THAT(log_.take(), IsEmpty());
  }
}

TEST_F(ScratchDirectory, ThatCannotBePurgedStaysAndTheCodeIsNotPassedOn) {
  fs::create_directory(tmpDirectory());
  writeFile(tmpDirectory() / "scratch", "scratch");
  const Permissions readOnly(tmpDirectory(), 0555);
  const DiskState before = now();
  {
    const Unprivileged nobody;
    EXPECT_THAT(report().purgeReportTemporaryFiles(),
                Refuses("err, Failed to remove temp directory for report"));
  }
  EXPECT_EQ(log_.take(), errorLines({"Failed to remove temp directory for report"}));
  expectNothingChanged(before);
}

}  // namespace
}  // namespace KELP::Diagnostic
