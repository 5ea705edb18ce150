#include "unit/diagnostic/limits.h"
#include "unit/diagnostic/reportfixture.h"
#include "unit/diagnostic/systemcalls.h"

#include <diagnostic/diagnosticdata.h>

#include <dirent.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;
using testing::ElementsAre;
using testing::IsEmpty;
namespace fs = std::filesystem;

class RepositoryList : public ReportTest {
 protected:
  /** The names of the root in the order in which the system gives them. */
  [[nodiscard]] std::vector<std::string> namesInDirectoryOrder() const {
    const std::unique_ptr<DIR, int (*)(DIR*)> directory(::opendir(root_.c_str()), ::closedir);
    std::vector<std::string> names;
    while (const dirent* entry = ::readdir(directory.get())) {
      if (entry->d_name[0] != '.') {
        names.emplace_back(entry->d_name);
      }
    }
    return names;
  }
  [[nodiscard]] std::vector<std::string> listedNames() const {
    std::vector<std::string> names;
    for (const ReportUuid& id : repository_.getAllReportUuids()) {
      names.push_back(id.toString());
    }
    return names;
  }
  [[nodiscard]] LogLine noLockLine(const std::string& name) const {
    return errorLine("Lock file " + (root_ / name / "lock").string() +
                     " does not exist for diagnostic report");
  }
  /** Expects these results of both, and that counting logs nothing. */
  void expectCountAndList(std::uint64_t count, const std::vector<std::string>& names) {
    EXPECT_EQ(repository_.countAllReports(), count);
    EXPECT_THAT(log_.take(), IsEmpty());
    EXPECT_EQ(listedNames(), names);
  }
};

TEST_F(RepositoryList, OfARootThatCannotBeReadIsEmptyWithoutALine) {
  expectCountAndList(0, {});
  writeFile(root_, "a file");
  expectCountAndList(0, {});
  fs::remove(root_);
  fs::create_directory(root_);
  const Permissions closed(root_, 0);
  const Unprivileged nobody;
  expectCountAndList(0, {});
  EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(RepositoryList, OfAnEmptyRootIsEmpty) {
  fs::create_directory(root_);
  expectCountAndList(0, {});
  EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(RepositoryList, HoldsAllReportsInTheOrderOfTheDirectory) {
  for (int i = 0; i < 30; ++i) {
    ASSERT_NE(repository_.createReport(i, 2, 3, "device", "session"), nullptr);
  }
  const Tree before = treeOf(root_);
  expectCountAndList(30, namesInDirectoryOrder());
  EXPECT_THAT(log_.take(), IsEmpty());
  EXPECT_EQ(treeOf(root_), before);
  EXPECT_THAT(descriptorsBelow(root_), IsEmpty());
}

TEST_F(RepositoryList, HoldsEachReportOpenNoLongerThanItTakesToFindOut) {
  constexpr std::size_t kReports = 5;
  for (std::size_t i = 0; i < kReports; ++i) {
    ASSERT_NE(repository_.createReport(1, 2, 3, "device", "session"), nullptr);
  }
  FlockSpy spy;
  std::vector<std::size_t> open;
  spy.beforeEach([&](int operation) {
    if (operation != LOCK_UN) open.push_back(descriptorsBelow(root_).size());
  });
  EXPECT_EQ(repository_.getAllReportUuids().size(), kReports);
  // The root, which is being read, and the lock file of the report that is being opened.
  EXPECT_EQ(open, std::vector<std::size_t>(kReports, 2));
}

TEST_F(RepositoryList, LeavesOutWhatIsNoReport) {
  fs::create_directories(root_ / "no-identifier");
  fs::create_directory(root_ / ".hidden");
  fs::create_directory(root_ / (std::string(".") + kIdText));
  writeFile(root_ / "a-file", "");
  expectCountAndList(1, {});
  EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(RepositoryList, LeavesOutAFileNamedLikeAReport) {
  fs::create_directory(root_);
  writeFile(dir(), "");
  expectCountAndList(0, {});
  EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(RepositoryList, LeavesOutAReportThatDoesNotOpenWithItsLine) {
  createAndClose();
  fs::create_directory(root_ / kOtherIdText);
  EXPECT_EQ(repository_.countAllReports(), 2U);
  EXPECT_THAT(listedNames(), ElementsAre(kIdText));
  EXPECT_EQ(log_.take(), std::vector<LogLine>{noLockLine(kOtherIdText)});
}

TEST_F(RepositoryList, LooksForALowerCaseDirectoryWhateverTheCaseOfTheName) {
  const std::string upper = "0B3AD2A0-5C1E-4A8E-9F57-D2B1C3E4F5A6";
  fs::create_directories(root_ / upper);
  expectCountAndList(1, {});
  EXPECT_EQ(log_.take(), std::vector<LogLine>{noLockLine(kIdText)});
  createAndClose();
  expectCountAndList(2, {kIdText, kIdText});
  EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(RepositoryList, CountsALinkToADirectoryAndListsItIfItOpens) {
  createAndClose();
  fs::create_directory_symlink(kIdText, root_ / kOtherIdText);
  fs::create_directory_symlink(kIdText, root_ / "link");
  EXPECT_EQ(repository_.countAllReports(), 3U);
  EXPECT_THAT(listedNames(), ElementsAre(kIdText));
  EXPECT_EQ(log_.take(),
            std::vector<LogLine>{warningLine(std::string("Report id mismatch: expected ") +
                                             kOtherIdText + ", got " + kIdText)});
}

/** An entry whose status cannot be taken, and the system's words for that. */
struct Unknown {
  std::string name;
  std::string target;
  std::string reason;
};

void PrintTo(const Unknown& unknown, std::ostream* out) {
  *out << unknown.name;
}

class RepositoryListUnknown : public RepositoryList, public testing::WithParamInterface<Unknown> {};

TEST_P(RepositoryListUnknown, IsSkippedWithALine) {
  createAndClose();
  fs::create_symlink(GetParam().target, root_ / kOtherIdText);
  EXPECT_EQ(repository_.countAllReports(), 1U);
  EXPECT_EQ(log_.take(),
            errorLines({"Error while counting diagnostic reports: " + GetParam().reason}));
  EXPECT_THAT(listedNames(), ElementsAre(kIdText));
  EXPECT_EQ(log_.take(),
            errorLines({"Error while enumerating diagnostic reports: " + GetParam().reason}));
}

INSTANTIATE_TEST_SUITE_P(
    All, RepositoryListUnknown,
    testing::Values(Unknown{"Loop", kOtherIdText, "Too many levels of symbolic links"},
                    Unknown{"LinkToNothing", "nowhere", "No such file or directory"}),
    [](const auto& all) { return all.param.name; });

TEST_F(RepositoryList, DoesNotLogForHiddenEntries) {
  fs::create_directory(root_);
  fs::create_symlink("nowhere", root_ / ".hidden");
  expectCountAndList(0, {});
  EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(RepositoryList, WaitsForAWriterAndThenListsTheReportAllTheSame) {
  const auto writer = create();
  ASSERT_THAT(writer->acquireWriteLock(true), Succeeds());
  const FakeClock clock;
  EXPECT_EQ(repository_.countAllReports(), 1U);
  EXPECT_THAT(clock.sleeps(), IsEmpty()) << "counting opens nothing";
  EXPECT_THAT(listedNames(), ElementsAre(kIdText));
  EXPECT_EQ(clock.sleeps().size(), 11U);
  EXPECT_EQ(log_.take().size(), 13U);
}

}  // namespace
}  // namespace KELP::Diagnostic
