// A process that is killed anywhere in an operation on files leaves a report that opens, in which
// each recorded file exists, and with which another process carries on.

#include "integration/contents/files/fileoperations.h"
#include "support/strace.h"
#include "support/tracedrun.h"
#include "unit/diagnostic/reportfixture.h"

#include <diagnostic/diagnosticreport.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;
using testing::IsEmpty;
namespace fs = std::filesystem;

using Contents = std::vector<DiagnosticReportContentProperties>;

/** What a report holds: its contents, and the files that are recorded in them. */
struct Holding {
  Contents contents;
  std::map<std::string, std::string> files;
  Tree tree;
};

class KilledOperation : public ReportTest, public testing::WithParamInterface<FileOperation> {
 protected:
  void SetUp() override {
    if (const std::string why = whyNoStrace(); !why.empty()) GTEST_SKIP() << why;
    makeOutside(outside_);
    const ReportPtr report = create();
    ASSERT_THAT(report->acquireWriteLock(false), Succeeds());
    GetParam().prepare(*report, outside_);
    before_ = holdingOf(*report);
    fs::copy(dir(), template_, fs::copy_options::recursive | fs::copy_options::copy_symlinks);
    untouched_ = treeOf(outside_);
  }

  /** Puts the report back into the state before the operation. */
  void restore() {
    fs::remove_all(dir());
    fs::copy(template_, dir(), fs::copy_options::recursive | fs::copy_options::copy_symlinks);
  }

  [[nodiscard]] Holding holdingOf(const Report& report) const {
    Holding holding;
    holding.contents = report.getReportContents().value_or(Contents());
    for (const auto& property : holding.contents) {
      for (const auto& variation : property.variations) {
        if (property.isFileProperty()) {
          holding.files[variation.relative_path] = readFile(variation.relative_path);
        }
      }
    }
    holding.tree = treeOf(dir());
    return holding;
  }

  /** Whether a file has the content that it had before, or that it has in the end. */
  [[nodiscard]] bool isWhole(const std::string& path, const std::string& content) const {
    const auto former = before_.files.find(path);
    const auto later = after_.files.find(path);
    return (former != before_.files.end() && former->second == content) ||
           (later != after_.files.end() && later->second == content);
  }
  /** Whether a file has the beginning of the content that it has in the end. */
  [[nodiscard]] bool isBegun(const std::string& path, const std::string& content) const {
    const auto later = after_.files.find(path);
    return later != after_.files.end() && later->second.starts_with(content);
  }

  /** Checks what a killed process left. */
  void expectSound(const Holding& left) const {
    EXPECT_TRUE(left.contents == before_.contents || left.contents == after_.contents);
    for (const auto& [path, content] : left.files) {
      EXPECT_TRUE(fs::is_regular_file(path)) << "a record whose file is missing: " << path;
      EXPECT_TRUE(isWhole(path, content) || isBegun(path, content)) << path;
    }
    for (const auto& [name, description] : left.tree) {
      EXPECT_TRUE(before_.tree.contains(name) || after_.tree.contains(name) ||
                  fs::path(name).begin()->string() == "tmp" || name.starts_with("contentfiles/"))
          << "neither a scratch file nor an orphan: " << name << " is " << description;
    }
    EXPECT_EQ(treeOf(outside_), untouched_);
  }

  /** Whether what was left does not tell any more what the operation was to start from. */
  [[nodiscard]] bool isBeyondRepetition(const Holding& left) const {
    return GetParam().readsStoredFile && !std::ranges::all_of(left.files, [&](const auto& file) {
             return isWhole(file.first, file.second);
           });
  }

  /** Checks that another process can do what was not done, and that it comes to the same. */
  void expectCarriesOn(Report& report, const Holding& left) {
    ASSERT_THAT(report.acquireWriteLock(false), Succeeds()) << "the lock ended with the process";
    if (left.contents != after_.contents || before_.contents == after_.contents) {
      EXPECT_THAT(GetParam().run(report, outside_), Succeeds());
    }
    const Holding found = holdingOf(report);
    EXPECT_EQ(found.contents, after_.contents);
    if (isBeyondRepetition(left)) {
      EXPECT_TRUE(std::ranges::all_of(
          found.files, [&](const auto& file) { return isBegun(file.first, file.second); }));
    } else {
      EXPECT_TRUE(found.files == after_.files);
    }
    EXPECT_EQ(treeOf(outside_), untouched_);
    EXPECT_THAT(report.purgeReportTemporaryFiles(), Succeeds());
    EXPECT_THAT(report.setDescription("goes on"), Succeeds());
    EXPECT_THAT(log_.take(), IsEmpty());
  }

  const fs::path outside_ = directory_ / "outside";
  const fs::path template_ = directory_ / "template";
  Tree untouched_;
  Holding before_;
  Holding after_;
};

TEST_P(KilledOperation, LeavesAReportThatAnotherProcessCarriesOn) {
  const TracedRun run({FILES_ACTOR, root_, kIdText, GetParam().name, outside_});
  const std::vector<CountedCall> calls = run.calls(directory_ / "trace");
  ASSERT_GT(calls.size(), 10U);
  after_ = holdingOf(*open());
  for (const CountedCall& call : callsToKillAt(calls)) {
    SCOPED_TRACE("killed at " + call.name + " " + std::to_string(call.count));
    restore();
    ASSERT_EQ(run.lastWordsWhenKilledAt(call), "begin");
    const ReportPtr report = open();
    ASSERT_NE(report, nullptr);
    EXPECT_THAT(log_.take(), IsEmpty());
    const Holding left = holdingOf(*report);
    expectSound(left);
    ASSERT_NO_FATAL_FAILURE(expectCarriesOn(*report, left));
    if (HasFailure()) break;
  }
  RecordProperty("calls", std::to_string(calls.size()));
}

INSTANTIATE_TEST_SUITE_P(All, KilledOperation, testing::ValuesIn(fileOperations()),
                         [](const auto& all) { return all.param.name; });

}  // namespace
}  // namespace KELP::Diagnostic
