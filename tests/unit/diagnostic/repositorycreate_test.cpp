#include "unit/diagnostic/reportfixture.h"

#include <diagnostic/diagnosticdata.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <string>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;
using testing::ElementsAre;
using testing::IsEmpty;
namespace fs = std::filesystem;

constexpr const char* kExists =
    "Cannot create diagnostic report because another report already exists with the same uuid";

class RepositoryCreation : public ReportTest {
 protected:
  /** Expects no report, the given lines, and that the disk is as it was. */
  void expectRefused(const ReportUuid& id, const std::vector<LogLine>& lines) {
    const Tree before = treeOf(directory_.path());
    EXPECT_EQ(create(id), nullptr);
    EXPECT_EQ(log_.take(), lines);
    EXPECT_EQ(treeOf(directory_.path()), before);
    EXPECT_THAT(descriptorsBelow(directory_.path()), IsEmpty());
  }
};

TEST_F(RepositoryCreation, ConstructorNeitherMakesNorLooksAtTheRoot) {
  EXPECT_EQ(repository_.getRootPath(), root_);
  EXPECT_FALSE(fs::exists(root_));
  const DiagnosticData nowhere{fs::path()};
  EXPECT_EQ(nowhere.getRootPath(), fs::path());
  EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(RepositoryCreation, MakesAReportOfTheGivenIdentifier) {
  const auto report = create();
  ASSERT_NE(report, nullptr);
  EXPECT_EQ(report->getId(), id_);
  EXPECT_THAT(report->getReporterAppId(), Holds(origin_.appId));
  EXPECT_THAT(report->getBuildId(), Holds(origin_.buildId));
  EXPECT_THAT(report->getUserId(), Holds(origin_.userId));
  EXPECT_THAT(report->getDeviceId(), Holds(origin_.deviceId));
  EXPECT_THAT(report->getSessionId(), Holds(origin_.sessionId));
  EXPECT_THAT(namesIn(root_), ElementsAre(kIdText));
  EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(RepositoryCreation, MakesReportsOfRandomIdentifiers) {
  std::set<std::string> names;
  for (int i = 0; i < 20; ++i) {
    const auto report = repository_.createReport(i, 2, 3, "device", "session");
    ASSERT_NE(report, nullptr);
    EXPECT_FALSE(report->getId().isNull());
    EXPECT_THAT(report->getReporterAppId(), Holds(i));
    const std::string name = report->getId().toString();
    EXPECT_EQ(name[14], '4') << "random identifiers are of version 4";
    EXPECT_TRUE(fs::is_directory(root_ / name));
    names.insert(name);
  }
  EXPECT_EQ(names.size(), 20U);
  EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(RepositoryCreation, RefusesTheNullIdentifier) {
  expectRefused(ReportUuid(), errorLines({"Cannot create diagnostic report with null uuid"}));
}

TEST_F(RepositoryCreation, RefusesTheIdentifierOfAReport) {
  createAndClose();
  expectRefused(id_, errorLines({kExists}));
}

TEST_F(RepositoryCreation, RefusesAnythingInTheReportsPlace) {
  fs::create_directory(root_);
  fs::create_directory(dir());
  expectRefused(id_, errorLines({kExists}));
  fs::remove(dir());
  writeFile(dir(), "");
  expectRefused(id_, errorLines({kExists}));
  fs::remove(dir());
  fs::create_directory_symlink(directory_.path(), dir());
  expectRefused(id_, errorLines({kExists}));
}

TEST_F(RepositoryCreation, LeavesALinkToNothingToTheReport) {
  fs::create_directory(root_);
  fs::create_symlink("nowhere", dir());
  expectRefused(id_, errorLines({"Failed to create directory for report"}));
}

TEST_F(RepositoryCreation, FailsWithTheLineOfTheReport) {
  writeFile(root_, "");
  expectRefused(id_, errorLines({"Failed to create directory for report"}));
}

TEST_F(RepositoryCreation, ReportsOutliveTheRepository) {
  auto repository = std::make_unique<DiagnosticData>(root_);
  const auto report = repository->createReport(id_, 1, 2, 3, "device", "session");
  repository.reset();
  ASSERT_NE(report, nullptr);
  EXPECT_THAT(report->acquireWriteLock(true), Succeeds());
  EXPECT_THAT(report->markCreationComplete(), Succeeds());
}

TEST_F(RepositoryCreation, OpensWhatItMade) {
  createAndClose();
  const auto report = open();
  ASSERT_NE(report, nullptr);
  EXPECT_EQ(report->getId(), id_);
  EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(RepositoryCreation, OpensNothingThatIsNotThere) {
  EXPECT_EQ(open(), nullptr);
  EXPECT_EQ(log_.take(), errorLines({"Lock file " + lockFile().string() +
                                     " does not exist for diagnostic report"}));
  EXPECT_FALSE(fs::exists(root_));
}

}  // namespace
}  // namespace KELP::Diagnostic
