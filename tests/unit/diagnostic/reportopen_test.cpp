#include "unit/diagnostic/limits.h"
#include "unit/diagnostic/reportfixture.h"
#include "unit/diagnostic/systemcalls.h"

#include <diagnostic/diagnosticreport.h>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
namespace fs = std::filesystem;

constexpr const char* kNoLock = "Lock file does not exist for diagnostic report";
constexpr const char* kNoMetadata = "Metadata file does not exist for diagnostic report";
constexpr const char* kNoStore = "Failed to initialize metadata kv store for report";
constexpr const char* kWouldBlockLine =
    "Failed acquire read lock for report. errno = 11 (Resource temporarily unavailable)";

std::error_code statusCode(const fs::path& path) {
  std::error_code code;
  static_cast<void>(fs::status(path, code));
  return code;
}

class ReportOpening : public ReportTest {
 protected:
  [[nodiscard]] DiagnosticReport::Result openOn(DiagnosticReport& report) const {
    return report._open(root_, id_);
  }
  [[nodiscard]] std::string lockLine() const {
    return "Lock file " + lockFile().string() + " does not exist for diagnostic report";
  }
  [[nodiscard]] std::string metadataLine() const {
    return "Metadata file " + metadataFile().string() + " does not exist for diagnostic report";
  }

  /** Expects that opening fails so, and that nothing on disk changed. */
  void expectRefused(std::error_code code, const std::string& message,
                     const std::vector<LogLine>& lines) {
    const Tree before = treeOf(directory_.path());
    EXPECT_THAT(openOn(report_), FailsWith(code, message));
    EXPECT_EQ(log_.take(), lines);
    EXPECT_EQ(treeOf(directory_.path()), before);
  }

  DiagnosticReport report_;
};

TEST_F(ReportOpening, AttachesToAnExistingReport) {
  createAndClose();
  const Tree before = treeOf(root_);
  ASSERT_THAT(openOn(report_), Succeeds());
  EXPECT_THAT(log_.take(), IsEmpty());
  EXPECT_EQ(treeOf(root_), before) << "opening writes nothing";
  EXPECT_EQ(report_.getId(), id_);
  EXPECT_THAT(report_.getReportDirPath(), Holds(dir()));
  EXPECT_THAT(report_.getDeviceId(), Holds(origin_.deviceId));
}

TEST_F(ReportOpening, TakesAReadLockWithoutWaitingAndLetsItGo) {
  createAndClose();
  FlockSpy spy;
  ASSERT_THAT(openOn(report_), Succeeds());
  EXPECT_THAT(spy.take(), ElementsAre(LOCK_SH | LOCK_NB, LOCK_UN));
  EXPECT_TRUE(lockIsFree());
  EXPECT_THAT(report_.touch(), Refuses("Cannot modify report without a write lock"));
}

TEST_F(ReportOpening, IsNotHeldUpByReaders) {
  const auto reader = create();
  ASSERT_THAT(reader->acquireReadLock(true), Succeeds());
  const FakeClock clock;
  EXPECT_THAT(openOn(report_), Succeeds());
  EXPECT_THAT(log_.take(), IsEmpty());
  EXPECT_THAT(clock.sleeps(), IsEmpty());
}

TEST_F(ReportOpening, GoesOnAfterASecondOfWaitingForAWriter) {
  const auto writer = create();
  ASSERT_THAT(writer->acquireWriteLock(true), Succeeds());
  const FakeClock clock;
  EXPECT_THAT(openOn(report_), Succeeds());
  std::vector<LogLine> lines(12, errorLine(kWouldBlockLine));
  lines.push_back(
      errorLine("Unable to acquire opening read lock for report " + lockFile().string()));
  EXPECT_EQ(log_.take(), lines);
  EXPECT_EQ(clock.sleeps().size(), 11U);
  EXPECT_THAT(writer->touch(), Succeeds()) << "the writer keeps its lock";
}

TEST_F(ReportOpening, WaitsForAsLongAsTheSecondIsNotOver) {
  struct Case {
    std::chrono::microseconds oversleep;
    std::size_t pauses;
  };
  const auto writer = create();
  ASSERT_THAT(writer->acquireWriteLock(true), Succeeds());
  // Ten pauses are of 767 ms, so that with ten times these delays 999 ms or 1000 ms have gone by.
  for (const Case& wanted : {Case{23'200us, 11}, Case{23'300us, 10}}) {
    SCOPED_TRACE(wanted.oversleep.count());
    FakeClock clock;
    clock.oversleep(wanted.oversleep);
    DiagnosticReport report;
    EXPECT_THAT(openOn(report), Succeeds());
    EXPECT_EQ(clock.sleeps().size(), wanted.pauses);
  }
}

TEST_F(ReportOpening, GoesOnWhenTheWriterLetsGoInTime) {
  const auto writer = create();
  ASSERT_THAT(writer->acquireWriteLock(true), Succeeds());
  FakeClock clock;
  clock.whenSleeping([&](std::size_t count) {
    if (count == 3) {
      EXPECT_THAT(writer->releaseLock(), Succeeds());
    }
  });
  EXPECT_THAT(openOn(report_), Succeeds());
  EXPECT_EQ(log_.take(), std::vector<LogLine>(3, errorLine(kWouldBlockLine)));
  EXPECT_TRUE(lockIsFree());
}

TEST_F(ReportOpening, SucceedsWhenTheLockCannotBeReleased) {
  createAndClose();
  FlockSpy spy;
  spy.failNext({0, ENOLCK});
  EXPECT_THAT(openOn(report_), Succeeds());
  EXPECT_EQ(log_.take(),
            errorLines({"Failed to release lock for report. errno = 37 (No locks available)"}));
}

TEST_F(ReportOpening, KeepsItsDescriptorsFromExecutedPrograms) {
  createAndClose();
  ASSERT_THAT(openOn(report_), Succeeds());
  ASSERT_EQ(descriptorsBelow(lockFile()).size(), 1U);
  for (const int descriptor : descriptorsBelow(root_)) {
    EXPECT_NE(::fcntl(descriptor, F_GETFD) & FD_CLOEXEC, 0) << descriptor;
  }
}

TEST_F(ReportOpening, OpensTheLockForReadingAndWriting) {
  createAndClose();
  ASSERT_THAT(openOn(report_), Succeeds());
  const std::vector<int> descriptors = descriptorsBelow(lockFile());
  ASSERT_EQ(descriptors.size(), 1U);
  EXPECT_EQ(::fcntl(descriptors.front(), F_GETFL) & O_ACCMODE, O_RDWR);
}

TEST_F(ReportOpening, RefusesANullIdentifier) {
  id_ = ReportUuid();
  // Both paths are built before the first is looked at.
  expectRefused(noCode(), kNullIdLine,
                errorLines({kNullIdLine, kUnknownDirectoryLine, kNullIdLine, kUnknownDirectoryLine,
                            "Unable to open report with unknown lock path"}));
}

TEST_F(ReportOpening, RefusesADirectoryThatCannotBeResolved) {
  fs::create_directory(root_);
  fs::create_symlink(kIdText, dir());
  const std::string unresolved =
      "Error Too many levels of symbolic links while attempting to resolve path: " + dir().string();
  const std::string within = ", is not within report directory: " + dir().string();
  expectRefused(noCode(), "Path is not within report directory",
                errorLines({unresolved, "Path: " + lockFile().string() + within, unresolved,
                            "Path: " + metadataFile().string() + within,
                            "Unable to open report with unknown lock path"}));
}

TEST_F(ReportOpening, RefusesAMissingRootDirectoryOrLock) {
  const std::error_code missing = statusCode(lockFile());
  ASSERT_EQ(missing, std::errc::no_such_file_or_directory);
  expectRefused(missing, kNoLock, errorLines({lockLine()}));
  fs::create_directory(root_);
  expectRefused(missing, kNoLock, errorLines({lockLine()}));
  fs::create_directory(dir());
  expectRefused(missing, kNoLock, errorLines({lockLine()}));
}

TEST_F(ReportOpening, RefusesAFileInPlaceOfTheReport) {
  fs::create_directory(root_);
  writeFile(dir(), "");
  const std::error_code code = statusCode(lockFile());
  ASSERT_EQ(code, std::errc::not_a_directory);
  expectRefused(code, kNoLock, errorLines({lockLine()}));
}

TEST_F(ReportOpening, RefusesADirectoryInPlaceOfTheLock) {
  createAndClose();
  fs::remove(lockFile());
  fs::create_directory(lockFile());
  expectRefused(std::error_code(), kNoLock, errorLines({lockLine()}));
}

TEST_F(ReportOpening, RefusesAFifoInPlaceOfTheLock) {
  createAndClose();
  fs::remove(lockFile());
  ASSERT_EQ(::mkfifo(lockFile().c_str(), 0600), 0);
  expectRefused(std::error_code(), kNoLock, errorLines({lockLine()}));
}

TEST_F(ReportOpening, LooksForTheLockBeforeTheMetadata) {
  createAndClose();
  fs::remove(lockFile());
  fs::remove(metadataFile());
  expectRefused(statusCode(lockFile()), kNoLock, errorLines({lockLine()}));
}

TEST_F(ReportOpening, RefusesMissingMetadata) {
  createAndClose();
  fs::remove(metadataFile());
  expectRefused(statusCode(metadataFile()), kNoMetadata, errorLines({metadataLine()}));
}

TEST_F(ReportOpening, RefusesADirectoryInPlaceOfTheMetadata) {
  createAndClose();
  fs::remove(metadataFile());
  fs::create_directory(metadataFile());
  expectRefused(std::error_code(), kNoMetadata, errorLines({metadataLine()}));
}

TEST_F(ReportOpening, FailsWithoutPermissionForTheLock) {
  createAndClose();
  const Permissions readOnly(lockFile(), 0444);
  const Unprivileged nobody;
  expectRefused(systemCode(EACCES), "Failed to open lock file for existing report",
                errorLines({"Failed to open lock file for existing report " + lockFile().string() +
                            ". errno = 13"}));
}

TEST_F(ReportOpening, LooksForTheMetadataBeforeItOpensTheLock) {
  createAndClose();
  fs::remove(metadataFile());
  const Permissions readOnly(lockFile(), 0444);
  const Unprivileged nobody;
  expectRefused(statusCode(metadataFile()), kNoMetadata, errorLines({metadataLine()}));
}

TEST_F(ReportOpening, FailsForDamagedMetadataAfterWaitingForTheWriter) {
  const auto writer = create();
  ASSERT_THAT(writer->acquireWriteLock(true), Succeeds());
  writeFile(metadataFile(), "this is no store");
  FlockSpy spy;
  FakeClock clock;
  clock.whenSleeping([&](std::size_t) { EXPECT_THAT(writer->releaseLock(), Succeeds()); });
  expectRefused(noCode(), kNoStore, errorLines({kWouldBlockLine, kNoStore}));
  EXPECT_EQ(readFile(metadataFile()), "this is no store");
}

TEST_F(ReportOpening, NamesBothIdentifiersOfAMismatch) {
  createAndClose();
  store("report_id", kOtherIdText);
  expectRefused(noCode(), "Report id mismatch",
                {warningLine(std::string("Report id mismatch: expected ") + kIdText + ", got " +
                             kOtherIdText)});
}

TEST_F(ReportOpening, NamesAMissingIdentifierNull) {
  createAndClose();
  const std::vector<LogLine> line{
      warningLine(std::string("Report id mismatch: expected ") + kIdText + ", got null")};
  store("report_id", std::nullopt);
  expectRefused(noCode(), "Report id mismatch", line);
  store("report_id", "not an identifier");
  expectRefused(noCode(), "Report id mismatch", line);
}

TEST_F(ReportOpening, NamesTheNullIdentifierWhenItIsStored) {
  createAndClose();
  store("report_id", "00000000-0000-0000-0000-000000000000");
  expectRefused(noCode(), "Report id mismatch",
                {warningLine(std::string("Report id mismatch: expected ") + kIdText +
                             ", got 00000000-0000-0000-0000-000000000000")});
}

TEST_F(ReportOpening, AcceptsAnIdentifierStoredInUpperCase) {
  createAndClose();
  store("report_id", "0B3AD2A0-5C1E-4A8E-9F57-D2B1C3E4F5A6");
  EXPECT_THAT(openOn(report_), Succeeds());
}

TEST_F(ReportOpening, RefusesAnEmptyStoreForItsMissingIdentifier) {
  createAndClose();
  writeFile(metadataFile(), "");
  expectRefused(
      noCode(), "Report id mismatch",
      {warningLine(std::string("Report id mismatch: expected ") + kIdText + ", got null")});
}

TEST_F(ReportOpening, LeavesNoDescriptorBehindWhenItFails) {
  createAndClose();
  store("report_id", kOtherIdText);
  EXPECT_EQ(open(), nullptr);
  EXPECT_THAT(descriptorsBelow(root_), IsEmpty());
}

}  // namespace
}  // namespace KELP::Diagnostic
