// What the repository's deletion does about a report that others make anew while it is removed.

#include "unit/diagnostic/removals.h"
#include "unit/diagnostic/reportfixture.h"

#include <diagnostic/diagnosticdata.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;
using testing::ElementsAre;
using testing::IsEmpty;
namespace fs = std::filesystem;

class RepositoryCleanup : public ReportTest {
 protected:
  RepositoryCleanup() {
    spy_.afterEach([this](const std::string& name) {
      if (name == dir() && ++removals_ <= returns_) {
        fs::create_directory(dir());
        writeFile(dir() / "stray", "stray");
      }
    });
  }
  /** From now on the directory is there again after each of its next @p times removals, with a file
   *  in it. */
  void letTheDirectoryReturn(int times) { returns_ = times; }

  RemovalSpy spy_;
  /** How often the report's directory was removed. */
  int removals_ = 0;

 private:
  int returns_ = 0;
};

class RepositoryCleanupForceOrNot : public RepositoryCleanup,
                                    public testing::WithParamInterface<bool> {};

TEST_P(RepositoryCleanupForceOrNot, FollowsASuccessfulDeletionToo) {
  createAndClose();
  letTheDirectoryReturn(1);
  EXPECT_THAT(repository_.deleteReport(id_, GetParam()), Succeeds());
  EXPECT_EQ(removals_, 2);
  EXPECT_THAT(namesIn(root_), IsEmpty());
  EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_P(RepositoryCleanupForceOrNot, FailsWhenTheDirectoryIsThereInTheEnd) {
  createAndClose();
  letTheDirectoryReturn(2);
  EXPECT_THAT(repository_.deleteReport(id_, GetParam()),
              Refuses("Failed to force remove report directory"));
  EXPECT_EQ(removals_, 2);
  EXPECT_EQ(log_.take(), errorLines({"Failed to force remove report directory"}));
  EXPECT_THAT(namesIn(dir()), ElementsAre("stray"));
}

INSTANTIATE_TEST_SUITE_P(Force, RepositoryCleanupForceOrNot, testing::Bool(),
                         [](const auto& all) { return all.param ? "Force" : "NoForce"; });

TEST_F(RepositoryCleanup, GoesOnWhenAnEmptyDirectoryReturnsFilled) {
  fs::create_directories(dir());
  letTheDirectoryReturn(1);
  EXPECT_THAT(repository_.deleteReport(id_, true), Succeeds());
  EXPECT_EQ(removals_, 2);
  EXPECT_THAT(namesIn(root_), IsEmpty());
}

TEST_F(RepositoryCleanup, EndsWithAnEmptyDirectoryThatIsGone) {
  fs::create_directories(dir());
  EXPECT_THAT(repository_.deleteReport(id_, true), Succeeds());
  EXPECT_EQ(removals_, 1);
  EXPECT_THAT(namesIn(root_), IsEmpty());
}

}  // namespace
}  // namespace KELP::Diagnostic
