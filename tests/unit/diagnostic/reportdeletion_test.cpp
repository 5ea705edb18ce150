#include "unit/diagnostic/limits.h"
#include "unit/diagnostic/reportfixture.h"
#include "unit/diagnostic/systemcalls.h"

#include <diagnostic/diagnosticreport.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>

#include <cerrno>
#include <filesystem>
#include <string>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;
using testing::ElementsAre;
using testing::IsEmpty;
namespace fs = std::filesystem;

constexpr const char* kNoWriteLockToDelete = "Cannot delete report without a write lock";

class ReportDeletion : public ReportTest {
 protected:
  /** Expects a refusal with the given lines that leaves the disk as it is. */
  void expectRefused(DiagnosticReport& report, const std::string& message,
                     const std::vector<LogLine>& lines) {
    const Tree before = treeOf(root_);
    EXPECT_THAT(report.deleteReport(), Refuses(message));
    EXPECT_EQ(log_.take(), lines);
    EXPECT_EQ(treeOf(root_), before);
  }
  /** Expects that the object refers to no report, has no lock, and kept nothing open. */
  void expectDetached(DiagnosticReport& report) {
    EXPECT_TRUE(report.getId().isNull());
    EXPECT_THAT(descriptorsBelow(root_), IsEmpty());
    EXPECT_EQ(report.getCurrentConsentLevel(), 0) << "there is no store";
    EXPECT_THAT(report.acquireReadLock(false),
                Refuses("Unable to acquire read lock for report with no valid lock file "
                        "descriptor"));
    EXPECT_THAT(report.releaseLock(), Succeeds());
    EXPECT_THAT(log_.take(), IsEmpty());
    expectRefused(report, kNoWriteLockToDelete, errorLines({kNoWriteLockToDelete}));
  }

  ReportPtr report_ = create();
};

TEST_F(ReportDeletion, NeedsALock) {
  expectRefused(*report_, kNoWriteLockToDelete, errorLines({kNoWriteLockToDelete}));
  EXPECT_EQ(report_->getId(), id_);
  DiagnosticReport nothing;
  expectRefused(nothing, kNoWriteLockToDelete, errorLines({kNoWriteLockToDelete}));
}

TEST_F(ReportDeletion, IsNotSatisfiedWithAReadLockAndKeepsIt) {
  ASSERT_THAT(report_->acquireReadLock(true), Succeeds());
  expectRefused(*report_, kNoWriteLockToDelete, errorLines({kNoWriteLockToDelete}));
  EXPECT_FALSE(lockIsFree());
  EXPECT_EQ(report_->getId(), id_);
  EXPECT_THAT(report_->getDeviceId(), Holds(origin_.deviceId));
  EXPECT_THAT(report_->acquireWriteLock(false), Succeeds());
}

TEST_F(ReportDeletion, RemovesEverythingAndDetachesTheObject) {
  fs::create_directories(dir() / "contentfiles/log/30");
  writeFile(dir() / "contentfiles/log/30/a.txt", "content");
  fs::create_directory(dir() / "tmp");
  writeFile(dir() / "tmp/scratch", "content");
  writeFile(directory_ / "outside", "kept");
  fs::create_symlink(directory_ / "outside", dir() / "contentfiles/link");
  ASSERT_THAT(report_->acquireWriteLock(true), Succeeds());
  EXPECT_THAT(report_->deleteReport(), Succeeds());
  EXPECT_THAT(log_.take(), IsEmpty());
  EXPECT_THAT(namesIn(root_), IsEmpty());
  EXPECT_EQ(readFile(directory_ / "outside"), "kept") << "links are not followed";
  expectDetached(*report_);
}

TEST_F(ReportDeletion, LeavesOtherReportsAlone) {
  const auto other = create(uuid(kOtherIdText));
  ASSERT_THAT(report_->acquireWriteLock(true), Succeeds());
  ASSERT_THAT(report_->deleteReport(), Succeeds());
  EXPECT_THAT(namesIn(root_), ElementsAre(kOtherIdText));
  EXPECT_THAT(namesIn(root_ / kOtherIdText), ElementsAre("lock", "metadata.db"));
}

TEST_F(ReportDeletion, SucceedsWhenTheDirectoryIsGone) {
  ASSERT_THAT(report_->acquireWriteLock(true), Succeeds());
  fs::remove_all(dir());
  EXPECT_THAT(report_->deleteReport(), Succeeds());
  expectDetached(*report_);
}

TEST_F(ReportDeletion, GivesUpTheLockBeforeItRemovesFiles) {
  ASSERT_THAT(report_->acquireWriteLock(true), Succeeds());
  FlockSpy spy;
  std::vector<std::string> namesAtRelease;
  spy.beforeEach([&](int) { namesAtRelease = namesIn(dir()); });
  ASSERT_THAT(report_->deleteReport(), Succeeds());
  EXPECT_THAT(spy.take(), ElementsAre(LOCK_UN));
  EXPECT_THAT(namesAtRelease, ElementsAre("lock", "metadata.db"));
}

TEST_F(ReportDeletion, GoesOnWhenTheLockCannotBeReleased) {
  ASSERT_THAT(report_->acquireWriteLock(true), Succeeds());
  FlockSpy spy;
  spy.failNext({ENOLCK});
  EXPECT_THAT(report_->deleteReport(), Succeeds());
  EXPECT_EQ(log_.take(),
            errorLines({"Failed to release lock for report. errno = 37 (No locks available)"}));
  EXPECT_THAT(namesIn(root_), IsEmpty());
  expectDetached(*report_);
}

TEST_F(ReportDeletion, DetachesTheObjectWhenRemovalFailsToo) {
  ASSERT_THAT(report_->acquireWriteLock(true), Succeeds());
  const Permissions readOnly(dir(), 0555);
  const auto result = [&] {
    const Unprivileged nobody;
    return report_->deleteReport();
  }();
  ASSERT_FALSE(result.has_value());
  EXPECT_EQ(result.error().code, std::errc::permission_denied);
  EXPECT_EQ(result.error().message, "Encountered errors while removing report files");
  EXPECT_EQ(log_.take(),
            errorLines({"Encountered errors while removing report files: Permission denied"}));
  EXPECT_THAT(namesIn(dir()), ElementsAre("lock", "metadata.db"));
  EXPECT_TRUE(lockIsFree());
  expectDetached(*report_);
}

TEST_F(ReportDeletion, WithoutAnIdentifierChangesNothing) {
  ASSERT_THAT(report_->acquireWriteLock(true), Succeeds());
  ASSERT_FALSE(report_->_open(root_, ReportUuid()).has_value());
  static_cast<void>(log_.take());
  expectRefused(*report_, kNullIdLine,
                errorLines({kNullIdLine, "Unable to determine directory to delete for report"}));
  EXPECT_FALSE(lockIsFree()) << "the lock is kept";
  EXPECT_THAT(report_->getDeviceId(), Holds(origin_.deviceId)) << "and so is the store";
}

TEST_F(ReportDeletion, LooksForTheLockBeforeTheIdentifier) {
  ASSERT_FALSE(report_->_open(root_, ReportUuid()).has_value());
  static_cast<void>(log_.take());
  expectRefused(*report_, kNoWriteLockToDelete, errorLines({kNoWriteLockToDelete}));
}

}  // namespace
}  // namespace KELP::Diagnostic
