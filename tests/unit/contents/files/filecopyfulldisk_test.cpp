// Copies for which there is no room.

#include "support/smalldisk.h"
#include "unit/contents/files/filesfixture.h"
#include "unit/diagnostic/limits.h"

#include <diagnostic/diagnosticdata.h>
#include <diagnostic/diagnosticreport.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <system_error>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;
using testing::ElementsAre;
using testing::IsEmpty;
namespace fs = std::filesystem;

const std::string kLarge(100'000, 'L');

class FileCopyWithoutRoom : public FilesTest {
 protected:
  /** Expects that a large file cannot be copied, with the code that a bare copy ends in, and that
   *  nothing of it is recorded. */
  void expectFailure(bool overwrite) {
    const DiskState before = now();
    const auto record = stored(kContentsKey);
    const Result result = copy(source_, kFileName, overwrite);
    std::error_code bare;
    fs::copy_file(source_, storedFile(), fs::copy_options::overwrite_existing, bare);
    ASSERT_TRUE(bare) << "there was room";
    EXPECT_THAT(result, FailsWith(bare, kCopyFailure));
    EXPECT_EQ(log_.take(), errorLines({std::string(kCopyFailure) + ": " + bare.message()}));
    EXPECT_THAT(recordsSince(before.records), ElementsAre(stamp()));
    EXPECT_EQ(stored(kContentsKey), record);
    EXPECT_EQ(readFile(decoy()), "decoy");
    EXPECT_EQ(readFile(source_), kLarge);
  }

  const fs::path source_ = makeSource(kLarge);
};

TEST_F(FileCopyWithoutRoom, FailsAtTheSizeThatFilesMayHave) {
  {
    const FileSizeLimit limit(50'000);
    expectFailure(false);
  }
  EXPECT_THAT(property().variations, IsEmpty());
  EXPECT_THAT(copy(source_), Succeeds());
  EXPECT_EQ(readFile(storedFile()), kLarge);
}

class FileCopyOntoAFullDisk : public FileCopyWithoutRoom {
 protected:
  void SetUp() override {
    if (!disk_.unavailable().empty()) GTEST_SKIP() << disk_.unavailable();
  }

  const SmallDisk disk_{dir() / "contentfiles"};
};

TEST_F(FileCopyOntoAFullDisk, FailsAndCanBeRepeatedWhenThereIsRoom) {
  disk_.fill(10);
  expectFailure(false);
  EXPECT_THAT(property().variations, IsEmpty());
  disk_.empty();
  EXPECT_THAT(copy(source_), Succeeds());
  EXPECT_EQ(readFile(storedFile()), kLarge);
}

TEST_F(FileCopyOntoAFullDisk, KeepsTheRecordOfTheFileThatWasToBeReplaced) {
  addFile(kLevel, "former");
  disk_.fill(10);
  expectFailure(true);
  EXPECT_THAT(property().variations, ElementsAre(fileVariation(storedFile(), kLevel)));
  EXPECT_TRUE(fs::is_regular_file(storedFile()));
  EXPECT_THAT(kLarge, testing::StartsWith(readFile(storedFile()))) << "a part of the new file";
  disk_.empty();
  EXPECT_THAT(copy(source_, kFileName, true), Succeeds());
  EXPECT_EQ(readFile(storedFile()), kLarge);
}

TEST_F(FileCopyOntoAFullDisk, ReadsAsBeforeByAnotherObject) {
  const fs::path path = addFile(1, "other");
  disk_.fill(10);
  expectFailure(false);
  unlock();
  const auto other = open();
  ASSERT_NE(other, nullptr);
  EXPECT_THAT(other->getReportFileVariationPath(kProperty, 1), Holds(path));
  EXPECT_EQ(readFile(path), "other");
}

/** The whole report stands on the full disk, its store too. */
class ReportOnAFullDisk : public FilesTest {
 protected:
  void SetUp() override {
    if (!disk_.unavailable().empty()) GTEST_SKIP() << disk_.unavailable();
    onDisk_ = DiagnosticData(directory_ / "disk").createReport(id_, 1, 2, 3, "device", "session");
    ASSERT_NE(onDisk_, nullptr);
    ASSERT_THAT(onDisk_->acquireWriteLock(true), Succeeds());
    ASSERT_THAT(onDisk_->createReportFileProperty(kProperty, "", {}), Succeeds());
  }
  ~ReportOnAFullDisk() override { onDisk_.reset(); }

  const SmallDisk disk_{directory_ / "disk"};
  ReportPtr onDisk_;
};

TEST_F(ReportOnAFullDisk, AcceptsNoFileAndKeepsWhatItHas) {
  const fs::path small = makeSource("content", "small");
  const fs::path large = makeSource(kLarge, "large");
  ASSERT_THAT(onDisk_->copyFileToFileProperty(kProperty, 1, small, "", false), Succeeds());
  const auto contents = onDisk_->getReportContents();
  for (const std::size_t pages : {0U, 1U, 2U, 3U, 10U}) {
    SCOPED_TRACE(pages);
    disk_.fill(pages);
    EXPECT_FALSE(onDisk_->copyFileToFileProperty(kProperty, kLevel, large, "", false).has_value());
    EXPECT_EQ(log_.take().size(), 1U);
    EXPECT_EQ(onDisk_->getReportContents(), contents);
    EXPECT_EQ(readFile(onDisk_->getReportFileVariationPath(kProperty, 1).value()), "content");
    disk_.empty();
    fs::remove_all(directory_ / "disk" / kIdText / "contentfiles/log/2");
  }
  EXPECT_THAT(onDisk_->copyFileToFileProperty(kProperty, kLevel, large, "", false), Succeeds());
  EXPECT_EQ(readFile(onDisk_->getReportFileVariationPath(kProperty, kLevel).value()), kLarge);
}

}  // namespace
}  // namespace KELP::Diagnostic
