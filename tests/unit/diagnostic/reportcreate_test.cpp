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
#include <filesystem>
#include <string>
#include <vector>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;
using testing::ElementsAre;
using testing::IsEmpty;
namespace fs = std::filesystem;

constexpr const char* kMetadataFailure = "Failed to to write initial metadata for report";

class ReportCreation : public ReportTest {
 protected:
  /** The first @p count of the sixteen records of a report created at the second 1700000000. */
  [[nodiscard]] std::vector<StoreRecord> initialRecords(std::size_t count = 16) const {
    std::vector<StoreRecord> records{
        {"report_id", kIdText},
        {"app_id", std::to_string(origin_.appId)},
        {"build_id", std::to_string(origin_.buildId)},
        {"user_id", std::to_string(origin_.userId)},
        {"device_id", origin_.deviceId},
        {"session_id", origin_.sessionId},
        {"report_version", "1"},
        {"created", "1700000000"},
        {"modified", "1700000000"},
        {"current_consent_level", "20"},
        {"max_consent_level", "30"},
        {"report_creation_complete", "0"},
        {"user_interaction_complete", "0"},
        {"data_collection_complete", "0"},
        {"data_policy_applied", "0"},
        {"upload_complete", "0"},
    };
    records.resize(count);
    return records;
  }

  [[nodiscard]] std::string lockLine(int number) const {
    return "Failed to create lock file for new report " + lockFile().string() +
           ". errno = " + std::to_string(number);
  }

  DiagnosticReport report_;
};

TEST_F(ReportCreation, MakesDirectoryLockAndMetadata) {
  ASSERT_FALSE(fs::exists(root_));
  ASSERT_THAT(createOn(report_), Succeeds());
  EXPECT_THAT(log_.take(), IsEmpty());
  EXPECT_THAT(namesIn(root_), ElementsAre(kIdText));
  EXPECT_THAT(namesIn(dir()), ElementsAre("lock", "metadata.db"));
  EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(lockFile())));
  EXPECT_EQ(fs::file_size(lockFile()), 0U);
  EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(metadataFile())));
  EXPECT_EQ(report_.getId(), id_);
  EXPECT_THAT(report_.getReportDirPath(), Holds(dir()));
}

TEST_F(ReportCreation, WritesSixteenKeysInOrder) {
  const FakeClock clock;
  ASSERT_THAT(createOn(report_), Succeeds());
  EXPECT_EQ(readRecords(metadataFile()), initialRecords());
}

TEST_F(ReportCreation, KeepsEveryTextAndNumberAsGiven) {
  origin_ = {2147483647, -2147483647 - 1, 0, "", std::string("\xff\0%s", 4)};
  const FakeClock clock;
  ASSERT_THAT(createOn(report_), Succeeds());
  EXPECT_EQ(readRecords(metadataFile()), initialRecords());
}

TEST_F(ReportCreation, ReadsTheTimeOnceForCreatedAndOnceForModified) {
  FakeClock clock;
  clock.advanceAtEachReading(std::chrono::seconds(1));
  ASSERT_THAT(createOn(report_), Succeeds());
  EXPECT_EQ(stored("created"), "1700000000");
  EXPECT_EQ(stored("modified"), "1700000001");
}

TEST_F(ReportCreation, LivesInALowerCaseDirectoryAndOpensByEitherCase) {
  id_ = uuid("0B3AD2A0-5C1E-4A8E-9F57-D2B1C3E4F5A6");
  ASSERT_THAT(createOn(report_), Succeeds());
  EXPECT_THAT(namesIn(root_), ElementsAre(kIdText));
  EXPECT_EQ(stored("report_id"), kIdText);
  EXPECT_NE(open(), nullptr);
  id_ = uuid(kIdText);
  EXPECT_NE(open(), nullptr);
}

TEST_F(ReportCreation, HoldsNoLockAfterwards) {
  ASSERT_THAT(createOn(report_), Succeeds());
  EXPECT_TRUE(lockIsFree());
  EXPECT_THAT(report_.touch(), Refuses("Cannot modify report without a write lock"));
}

TEST_F(ReportCreation, WritesTheMetadataUnderTheWriteLock) {
  FlockSpy spy;
  std::vector<bool> metadataThere;
  std::size_t recordsAtRelease = 0;
  spy.beforeEach([&](int operation) {
    metadataThere.push_back(fs::exists(metadataFile()));
    if (operation == LOCK_UN) recordsAtRelease = recordCount();
  });
  ASSERT_THAT(createOn(report_), Succeeds());
  EXPECT_THAT(spy.take(), ElementsAre(LOCK_EX, LOCK_UN));
  EXPECT_THAT(metadataThere, ElementsAre(false, true));
  EXPECT_EQ(recordsAtRelease, 16U);
}

TEST_F(ReportCreation, KeepsItsDescriptorsFromExecutedPrograms) {
  ASSERT_THAT(createOn(report_), Succeeds());
  const std::vector<int> descriptors = descriptorsBelow(root_);
  ASSERT_EQ(descriptorsBelow(lockFile()).size(), 1U);
  for (const int descriptor : descriptors) {
    EXPECT_NE(::fcntl(descriptor, F_GETFD) & FD_CLOEXEC, 0) << descriptor;
  }
}

TEST_F(ReportCreation, OpensTheLockForReadingAndWriting) {
  ASSERT_THAT(createOn(report_), Succeeds());
  const std::vector<int> descriptors = descriptorsBelow(lockFile());
  ASSERT_EQ(descriptors.size(), 1U);
  EXPECT_EQ(::fcntl(descriptors.front(), F_GETFL) & O_ACCMODE, O_RDWR);
}

TEST_F(ReportCreation, MakesMissingParents) {
  root_ /= "a/b/c";
  ASSERT_THAT(createOn(report_), Succeeds());
  EXPECT_NE(DiagnosticData(root_).openReport(id_), nullptr);
}

TEST_F(ReportCreation, ReusesADirectoryWithoutALock) {
  fs::create_directories(dir() / "tmp");
  writeFile(dir() / "stray", "kept");
  ASSERT_THAT(createOn(report_), Succeeds());
  EXPECT_THAT(namesIn(dir()), ElementsAre("lock", "metadata.db", "stray", "tmp"));
  EXPECT_EQ(readFile(dir() / "stray"), "kept");
}

TEST_F(ReportCreation, FollowsALinkToADirectoryInItsPlace) {
  fs::create_directory(root_);
  fs::create_directory(root_ / "elsewhere");
  fs::create_directory_symlink("elsewhere", dir());
  EXPECT_THAT(createOn(report_), Succeeds());
  EXPECT_THAT(log_.take(), IsEmpty());
  EXPECT_THAT(namesIn(root_ / "elsewhere"), ElementsAre("lock", "metadata.db"));
}

TEST_F(ReportCreation, WritesOverMetadataThatWasLeftBehind) {
  createAndClose();
  store("app_id", "99");
  store("description", "of the former report");
  fs::remove(lockFile());
  const std::size_t before = recordCount();
  const FakeClock clock;
  ASSERT_THAT(createOn(report_), Succeeds());
  EXPECT_EQ(recordsSince(before), initialRecords());
  EXPECT_EQ(stored("description"), "of the former report");
}

TEST_F(ReportCreation, RefusesANullIdentifier) {
  id_ = ReportUuid();
  EXPECT_THAT(createOn(report_), Refuses(kNullIdLine));
  // The three paths are built before the first is looked at.
  EXPECT_EQ(log_.take(),
            errorLines({kNullIdLine, kNullIdLine, kUnknownDirectoryLine, kNullIdLine,
                        kUnknownDirectoryLine, "Unable to create report with unknown path"}));
  EXPECT_FALSE(fs::exists(root_));
}

TEST_F(ReportCreation, RefusesADirectoryThatCannotBeResolved) {
  fs::create_directory(root_);
  fs::create_symlink(kIdText, dir());
  const Tree before = treeOf(root_);
  EXPECT_THAT(createOn(report_), Refuses("Path is not within report directory"));
  const std::string unresolved =
      "Error Too many levels of symbolic links while attempting to resolve path: " + dir().string();
  const std::string within = ", is not within report directory: " + dir().string();
  EXPECT_EQ(log_.take(), errorLines({unresolved, "Path: " + lockFile().string() + within,
                                     unresolved, "Path: " + metadataFile().string() + within,
                                     "Unable to create report with unknown lock path"}));
  EXPECT_EQ(treeOf(root_), before);
  EXPECT_EQ(report_.getId(), id_);
}

/** What stands where the directory should be made. */
struct Obstacle {
  const char* name;
  void (*place)(const fs::path& root, const fs::path& dir);
};

void PrintTo(const Obstacle& obstacle, std::ostream* out) {
  *out << obstacle.name;
}

class ReportCreationObstacles : public ReportCreation,
                                public testing::WithParamInterface<Obstacle> {};

TEST_P(ReportCreationObstacles, FailWithTheCodeOfTheDirectory) {
  GetParam().place(root_, dir());
  const Tree before = treeOf(directory_.path());
  std::error_code code;
  fs::create_directories(dir(), code);
  ASSERT_NE(code, std::error_code());
  EXPECT_THAT(createOn(report_), FailsWith(code, "Failed to create directory for report"));
  EXPECT_EQ(log_.take(), errorLines({"Failed to create directory for report"}));
  EXPECT_EQ(treeOf(directory_.path()), before);
  EXPECT_THAT(descriptorsBelow(directory_.path()), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(All, ReportCreationObstacles,
                         testing::Values(Obstacle{"RootIsAFile",
                                                  [](const fs::path& root, const fs::path&) {
                                                    writeFile(root, "");
                                                  }},
                                         Obstacle{"DirectoryIsAFile",
                                                  [](const fs::path& root, const fs::path& dir) {
                                                    fs::create_directory(root);
                                                    writeFile(dir, "");
                                                  }},
                                         Obstacle{"DirectoryIsADanglingLink",
                                                  [](const fs::path& root, const fs::path& dir) {
                                                    fs::create_directory(root);
                                                    fs::create_symlink("nowhere", dir);
                                                  }}),
                         [](const auto& all) { return all.param.name; });

TEST_F(ReportCreation, FailsWithoutPermissionToMakeTheDirectory) {
  fs::create_directory(root_);
  const Permissions readOnly(root_, 0555);
  const auto result = [&] {
    const Unprivileged nobody;
    return createOn(report_);
  }();
  EXPECT_FALSE(result.has_value());
  EXPECT_EQ(result.error().code, std::errc::permission_denied);
  EXPECT_EQ(result.error().message, "Failed to create directory for report");
  EXPECT_EQ(log_.take(), errorLines({"Failed to create directory for report"}));
  EXPECT_THAT(namesIn(root_), IsEmpty());
}

TEST_F(ReportCreation, FailsWhenALockFileExists) {
  createAndClose();
  const Tree before = treeOf(root_);
  EXPECT_THAT(createOn(report_),
              FailsWith(systemCode(EEXIST), "Failed to create lock file for new report"));
  EXPECT_EQ(log_.take(), errorLines({lockLine(EEXIST)}));
  EXPECT_EQ(treeOf(root_), before);
  EXPECT_THAT(descriptorsBelow(root_), IsEmpty());
}

TEST_F(ReportCreation, FailsWhenTheLockIsADanglingLink) {
  fs::create_directories(dir());
  fs::create_symlink(directory_ / "elsewhere", lockFile());
  EXPECT_THAT(createOn(report_),
              FailsWith(systemCode(EEXIST), "Failed to create lock file for new report"));
  EXPECT_EQ(log_.take(), errorLines({lockLine(EEXIST)}));
  EXPECT_FALSE(fs::exists(directory_ / "elsewhere"));
  EXPECT_THAT(namesIn(dir()), ElementsAre("lock"));
}

TEST_F(ReportCreation, FailsWithoutPermissionToMakeTheLockAndLeavesTheDirectory) {
  fs::create_directories(dir());
  const Permissions readOnly(dir(), 0555);
  const auto result = [&] {
    const Unprivileged nobody;
    return createOn(report_);
  }();
  EXPECT_THAT(result, FailsWith(systemCode(EACCES), "Failed to create lock file for new report"));
  EXPECT_EQ(log_.take(), errorLines({lockLine(EACCES)}));
  EXPECT_THAT(namesIn(dir()), IsEmpty());
}

TEST_F(ReportCreation, PassesTheLockErrorOnAndLeavesDirectoryAndLock) {
  FlockSpy spy;
  spy.failNext({ENOLCK});
  EXPECT_THAT(createOn(report_),
              FailsWith(systemCode(ENOLCK), "Failed acquire write lock for report"));
  EXPECT_EQ(log_.take(),
            errorLines({"Failed acquire write lock for report. errno = 37 (No locks available)",
                        "Unable to acquire write lock for new report " + lockFile().string()}));
  EXPECT_THAT(spy.take(), ElementsAre(LOCK_EX));
  EXPECT_THAT(namesIn(dir()), ElementsAre("lock"));
}

TEST_F(ReportCreation, SucceedsWhenTheLockCannotBeReleased) {
  FlockSpy spy;
  spy.failNext({0, ENOLCK});
  EXPECT_THAT(createOn(report_), Succeeds());
  EXPECT_EQ(log_.take(),
            errorLines({"Failed to release lock for report. errno = 37 (No locks available)"}));
  EXPECT_EQ(recordCount(), 16U);
}

TEST_F(ReportCreation, FailsWhenTheStoreCannotBeMade) {
  fs::create_directories(metadataFile());
  EXPECT_THAT(createOn(report_), Refuses(kMetadataFailure));
  EXPECT_EQ(log_.take(), errorLines({kMetadataFailure}));
  EXPECT_THAT(namesIn(dir()), ElementsAre("lock", "metadata.db"));
  EXPECT_TRUE(lockIsFree()) << "the lock is given up in every case";
}

TEST_F(ReportCreation, StopsAtTheFirstWriteThatFailsAndKeepsTheOthers) {
  origin_.deviceId = std::string(500, 'd');
  const std::vector<StoreRecord> four = initialRecords(4);
  std::size_t limit = 8;
  for (const StoreRecord& record : four) {
    limit += recordSize(record);
  }
  FlockSpy spy;
  const auto result = [&] {
    // Room for the session's record, but not for the device's before it.
    const FileSizeLimit full(limit + 100);
    return createOn(report_);
  }();
  EXPECT_THAT(result, Refuses(kMetadataFailure));
  EXPECT_EQ(log_.take(), errorLines({kMetadataFailure}));
  EXPECT_THAT(spy.take(), ElementsAre(LOCK_EX, LOCK_UN));
  EXPECT_TRUE(lockIsFree());
  for (const StoreRecord& record : four) {
    EXPECT_EQ(stored(record.key), record.value) << record.key;
  }
  for (const char* key :
       {"device_id", "session_id", "report_version", "created", "upload_complete"}) {
    EXPECT_EQ(stored(key), std::nullopt) << key;
  }
}

class ReportLockPermissions : public ReportCreation,
                              public testing::WithParamInterface<unsigned> {};

TEST_P(ReportLockPermissions, AreThoseOf0644LessTheUmask) {
  const unsigned mask = GetParam();
  fs::create_directories(dir());
  const Umask umask(mask);
  ASSERT_THAT(createOn(report_), Succeeds());
  EXPECT_EQ(static_cast<unsigned>(fs::status(lockFile()).permissions()), 0644U & ~mask);
}

INSTANTIATE_TEST_SUITE_P(Masks, ReportLockPermissions, testing::Values(0U, 022U, 027U, 077U));

}  // namespace
}  // namespace KELP::Diagnostic
