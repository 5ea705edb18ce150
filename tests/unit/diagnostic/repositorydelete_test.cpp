#include "unit/diagnostic/limits.h"
#include "unit/diagnostic/reportfixture.h"
#include "unit/diagnostic/systemcalls.h"

#include <diagnostic/diagnosticdata.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <functional>
#include <string>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;
using testing::ElementsAre;
using testing::IsEmpty;
namespace fs = std::filesystem;

constexpr const char* kLockRemains = "Failed to remove lock file from report while force deleting";
constexpr const char* kMetadataRemains =
    "Failed to remove metadata file from report while force deleting";
constexpr const char* kWriteLockLine =
    "Failed acquire write lock for report. errno = 11 (Resource temporarily unavailable)";
constexpr const char* kReadLockLine =
    "Failed acquire read lock for report. errno = 11 (Resource temporarily unavailable)";
constexpr const char* kRemovalLine =
    "Encountered errors while removing report files: Permission denied";

class RepositoryDeletion : public ReportTest {
 protected:
  /** Expects that deletion fails so and writes these lines. The code is compared as a condition,
   *  since the file system's codes are not of the system's category. */
  void expectFailure(bool force, const std::error_condition& code, const std::string& message,
                     const std::vector<LogLine>& lines) {
    const auto result = remove(force);
    ASSERT_FALSE(result.has_value());
    EXPECT_EQ(result.error().code, code);
    EXPECT_EQ(result.error().message, message);
    EXPECT_EQ(log_.take(), lines);
    EXPECT_THAT(descriptorsBelow(dir()), IsEmpty());
  }
  [[nodiscard]] DiagnosticReport::Result remove(bool force) {
    if (!unprivileged_) {
      return repository_.deleteReport(id_, force);
    }
    const Unprivileged nobody;
    return repository_.deleteReport(id_, force);
  }
  /** From now on deletes without special rights, of a report that everyone may lock. */
  void giveUpRights() {
    unprivileged_ = true;
    if (fs::exists(lockFile())) {
      fs::permissions(lockFile(), fs::perms(0666));
    }
  }
  [[nodiscard]] LogLine noLockLine() const {
    return errorLine("Lock file " + lockFile().string() + " does not exist for diagnostic report");
  }
  [[nodiscard]] LogLine noMetadataLine() const {
    return errorLine("Metadata file " + metadataFile().string() +
                     " does not exist for diagnostic report");
  }

  bool unprivileged_ = false;
};

class RepositoryDeletionForceOrNot : public RepositoryDeletion,
                                     public testing::WithParamInterface<bool> {};

TEST_P(RepositoryDeletionForceOrNot, RemovesAReportWithAllItsFiles) {
  const auto other = create(uuid(kOtherIdText));
  createAndClose();
  fs::create_directories(dir() / "contentfiles/log/2");
  writeFile(dir() / "contentfiles/log/2/a.txt", "a");
  EXPECT_THAT(remove(GetParam()), Succeeds());
  EXPECT_THAT(log_.take(), IsEmpty());
  EXPECT_THAT(namesIn(root_), ElementsAre(kOtherIdText));
  EXPECT_THAT(descriptorsBelow(dir()), IsEmpty());
}

TEST_P(RepositoryDeletionForceOrNot, RefusesAtOnceWhatAReaderHolds) {
  const auto reader = create();
  ASSERT_THAT(reader->acquireReadLock(true), Succeeds());
  const FakeClock clock;
  const Tree before = treeOf(root_);
  EXPECT_THAT(remove(GetParam()), Refuses("Unable to acquire write lock on report"));
  EXPECT_EQ(log_.take(), errorLines({kWriteLockLine}));
  EXPECT_THAT(clock.sleeps(), IsEmpty());
  EXPECT_EQ(treeOf(root_), before);
}

TEST_P(RepositoryDeletionForceOrNot, RefusesWhatAWriterHoldsAfterTheWaitOfOpening) {
  const auto writer = create();
  ASSERT_THAT(writer->acquireWriteLock(true), Succeeds());
  const FakeClock clock;
  const Tree before = treeOf(root_);
  EXPECT_THAT(remove(GetParam()), Refuses("Unable to acquire write lock on report"));
  std::vector<LogLine> lines(12, errorLine(kReadLockLine));
  lines.push_back(
      errorLine("Unable to acquire opening read lock for report " + lockFile().string()));
  lines.push_back(errorLine(kWriteLockLine));
  EXPECT_EQ(log_.take(), lines);
  EXPECT_EQ(clock.sleeps().size(), 11U);
  EXPECT_EQ(treeOf(root_), before);
}

TEST_P(RepositoryDeletionForceOrNot, RemovesWhatNobodyHoldsThoughItIsOpen) {
  const auto report = create();
  EXPECT_THAT(remove(GetParam()), Succeeds());
  EXPECT_THAT(namesIn(root_), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Force, RepositoryDeletionForceOrNot, testing::Bool(),
                         [](const auto& all) { return all.param ? "Force" : "NoForce"; });

TEST_F(RepositoryDeletion, OfNothingFailsUnlessForced) {
  expectFailure(false, std::errc::no_such_file_or_directory,
                "Lock file does not exist for diagnostic report", {noLockLine()});
  EXPECT_THAT(remove(true), Succeeds());
  EXPECT_EQ(log_.take(), std::vector<LogLine>{noLockLine()});
  EXPECT_FALSE(fs::exists(root_));
}

TEST_F(RepositoryDeletion, OfTheNullIdentifierFailsUnlessForced) {
  createAndClose();
  const Tree before = treeOf(root_);
  id_ = ReportUuid();
  EXPECT_THAT(remove(false), Refuses("Unable to get report path for report with null UUID"));
  EXPECT_THAT(remove(true), Succeeds()) << "nothing stands in its place";
  EXPECT_EQ(treeOf(root_), before);
}

/** A way in which a report is damaged, the error it gives and its line. */
struct Damage {
  std::string name;
  std::function<void(const RepositoryDeletion&)> apply;
  std::string message;
};

void PrintTo(const Damage& damage, std::ostream* out) {
  *out << damage.name;
}

std::vector<Damage> damages() {
  using T = RepositoryDeletion;
  const std::string noLock = "Lock file does not exist for diagnostic report";
  const std::string noMetadata = "Metadata file does not exist for diagnostic report";
  const std::string noStore = "Failed to initialize metadata kv store for report";
  const std::string mismatch = "Report id mismatch";
  const auto replaceDir = [](const T& t) { fs::remove_all(t.dir()); };
  return {
      {"NoLock", [](const T& t) { fs::remove(t.lockFile()); }, noLock},
      {"NoMetadata", [](const T& t) { fs::remove(t.metadataFile()); }, noMetadata},
      {"DamagedMetadata", [](const T& t) { writeFile(t.metadataFile(), "no store"); }, noStore},
      {"EmptyMetadata", [](const T& t) { writeFile(t.metadataFile(), ""); }, mismatch},
      {"MismatchedIdentifier", [](const T& t) { t.store("report_id", kOtherIdText); }, mismatch},
      {"NoIdentifier", [](const T& t) { t.store("report_id", std::nullopt); }, mismatch},
      {"OnlyLockAndStrayFiles",
       [](const T& t) {
         fs::remove(t.metadataFile());
         writeFile(t.dir() / "stray", "stray");
         fs::create_directories(t.dir() / "tmp/deep");
         writeFile(t.dir() / "tmp/deep/stray", "stray");
       },
       noMetadata},
      {"OnlyStrayFiles",
       [](const T& t) {
         fs::remove(t.metadataFile());
         fs::remove(t.lockFile());
         writeFile(t.dir() / "stray", "stray");
       },
       noLock},
      {"EmptyDirectory",
       [replaceDir](const T& t) {
         replaceDir(t);
         fs::create_directory(t.dir());
       },
       noLock},
      {"EmptyDirectoriesForBothFiles",
       [replaceDir](const T& t) {
         replaceDir(t);
         fs::create_directories(t.lockFile());
         fs::create_directories(t.metadataFile());
       },
       noLock},
      {"EmptyFileInItsPlace",
       [replaceDir](const T& t) {
         replaceDir(t);
         writeFile(t.dir(), "");
       },
       noLock},
      {"FileInItsPlace",
       [replaceDir](const T& t) {
         replaceDir(t);
         writeFile(t.dir(), "a file");
       },
       noLock},
      {"FifoInItsPlace",
       [replaceDir](const T& t) {
         replaceDir(t);
         ::mkfifo(t.dir().c_str(), 0600);
       },
       noLock},
  };
}

class RepositoryDeletionOfDamaged : public RepositoryDeletion,
                                    public testing::WithParamInterface<Damage> {
 protected:
  RepositoryDeletionOfDamaged() {
    createAndClose();
    GetParam().apply(*this);
  }
};

TEST_P(RepositoryDeletionOfDamaged, FailsUnlessForced) {
  const Tree before = treeOf(root_);
  const auto result = remove(false);
  ASSERT_FALSE(result.has_value());
  EXPECT_EQ(result.error().message, GetParam().message);
  EXPECT_EQ(log_.take().size(), 1U);
  EXPECT_EQ(treeOf(root_), before);
}

TEST_P(RepositoryDeletionOfDamaged, RemovesAllWhenForced) {
  static_cast<void>(remove(false));
  const std::vector<LogLine> lines = log_.take();
  EXPECT_THAT(remove(true), Succeeds());
  EXPECT_EQ(log_.take(), lines) << "only opening has something to say";
  EXPECT_THAT(namesIn(root_), IsEmpty());
  EXPECT_THAT(descriptorsBelow(root_), IsEmpty());
}

TEST_P(RepositoryDeletionOfDamaged, LeavesRoomForANewReport) {
  ASSERT_THAT(remove(true), Succeeds());
  EXPECT_NE(create(), nullptr);
  EXPECT_NE(open(), nullptr);
}

INSTANTIATE_TEST_SUITE_P(All, RepositoryDeletionOfDamaged, testing::ValuesIn(damages()),
                         [](const auto& all) { return all.param.name; });

TEST_F(RepositoryDeletion, FailsForALockThatCannotBeRemoved) {
  createAndClose();
  fs::remove(lockFile());
  fs::create_directories(lockFile() / "full");
  expectFailure(true, std::errc::directory_not_empty, kLockRemains,
                {noLockLine(), errorLine(kLockRemains)});
  EXPECT_THAT(namesIn(dir()), ElementsAre("lock", "metadata.db"));
}

TEST_F(RepositoryDeletion, FailsForMetadataThatCannotBeRemovedAfterTheLockWas) {
  createAndClose();
  fs::remove(metadataFile());
  fs::create_directories(metadataFile() / "full");
  expectFailure(true, std::errc::directory_not_empty, kMetadataRemains,
                {noMetadataLine(), errorLine(kMetadataRemains)});
  EXPECT_THAT(namesIn(dir()), ElementsAre("metadata.db")) << "the lock was removed before";
}

TEST_F(RepositoryDeletion, FailsForADirectoryThatCannotBeRemoved) {
  createAndClose();
  fs::create_directory(dir() / "locked");
  writeFile(dir() / "locked/file", "kept");
  fs::remove(metadataFile());
  const Permissions open(dir(), 0777);
  const Permissions readOnly(dir() / "locked", 0555);
  giveUpRights();
  expectFailure(true, std::errc::permission_denied, kMetadataRemains,
                {noMetadataLine(), errorLine(kMetadataRemains)});
  EXPECT_THAT(namesIn(dir()), ElementsAre("locked"));
}

TEST_F(RepositoryDeletion, FailsForAnEmptyDirectoryThatCannotBeRemoved) {
  fs::create_directories(dir());
  const Permissions readOnly(root_, 0555);
  giveUpRights();
  expectFailure(true, std::errc::permission_denied, "Failed to remove empty report",
                {noLockLine(), errorLine("Failed to remove empty report")});
  EXPECT_TRUE(fs::exists(dir()));
}

TEST_F(RepositoryDeletion, ReturnsTheReportsOwnErrorUnlessForced) {
  createAndClose();
  const Permissions readOnly(dir(), 0555);
  giveUpRights();
  expectFailure(false, std::errc::permission_denied,
                "Encountered errors while removing report files", errorLines({kRemovalLine}));
  EXPECT_THAT(namesIn(dir()), ElementsAre("lock", "metadata.db"));
}

TEST_F(RepositoryDeletion, CleansUpAfterTheReportsOwnErrorWhenForced) {
  createAndClose();
  const Permissions readOnly(dir(), 0555);
  giveUpRights();
  expectFailure(true, std::errc::permission_denied, kLockRemains,
                errorLines({kRemovalLine, kLockRemains}));
  EXPECT_THAT(namesIn(dir()), ElementsAre("lock", "metadata.db"));
}

TEST_F(RepositoryDeletion, MessagesOfTheEmptyDirectoryComeAfterTheReportsOwnErrorToo) {
  createAndClose();
  const Permissions open(dir(), 0777);
  const Permissions readOnly(root_, 0555);
  giveUpRights();
  // Its own removal takes the files away and fails for the directory, which is then empty.
  expectFailure(true, std::errc::permission_denied, "Failed to remove empty report",
                errorLines({kRemovalLine, "Failed to remove empty report"}));
  EXPECT_THAT(namesIn(dir()), IsEmpty());
}

TEST_F(RepositoryDeletion, IsFinishedByALaterForcedOne) {
  createAndClose();
  {
    const Permissions open(dir(), 0777);
    const Permissions readOnly(root_, 0555);
    giveUpRights();
    ASSERT_FALSE(remove(false).has_value());
  }
  unprivileged_ = false;
  EXPECT_FALSE(remove(false).has_value()) << "what is left does not open";
  EXPECT_THAT(remove(true), Succeeds());
  EXPECT_THAT(namesIn(root_), IsEmpty());
}

}  // namespace
}  // namespace KELP::Diagnostic
