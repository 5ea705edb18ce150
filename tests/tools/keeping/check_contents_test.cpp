// Which files `check` counts as named by a record.

#include "damage.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

namespace KELP::Test {
namespace {

namespace fs = std::filesystem;

/** A directory, however long its path is. */
int openPath(const fs::path& path) {
  int descriptor = ::open("/", O_PATH | O_CLOEXEC);
  for (const fs::path& name : path.relative_path()) {
    const int next = ::openat(descriptor, name.c_str(), O_PATH | O_CLOEXEC);
    ::close(descriptor);
    descriptor = next;
  }
  return descriptor;
}

class CheckContents : public KeepingTest {
 protected:
  CheckContents() { makeReport(repository_, idOf(1)); }

  [[nodiscard]] fs::path report() const { return repository_.root() / idOf(1); }

  void addFile(const fs::path& name) const {
    fs::create_directories((report() / name).parent_path());
    writeFile(report() / name, "data");
  }

  /** The findings' kinds and paths, from the report on. */
  [[nodiscard]] std::vector<std::string> findings() const {
    std::vector<std::string> found;
    const Json::Value document = run({"check", "--json"}).json();
    for (const Json::Value& finding : document["findings"]) {
      const fs::path path = finding["path"].asString();
      found.push_back(finding["kind"].asString() + " " +
                      path.lexically_relative(report()).native());
    }
    return found;
  }
};

TEST_F(CheckContents, FilesThatARecordNamesByARelativePathAreNone) {
  addFile("contentfiles/other/here");
  addRecord(repository_, idOf(1), 5, "contentfiles/other/here");
  EXPECT_THAT(findings(), ::testing::IsEmpty());
}

TEST_F(CheckContents, FilesThatARecordNamesByDetoursAreNone) {
  addFile("contentfiles/log/5/here");
  addRecord(repository_, idOf(1), 5, "contentfiles/log/../../tmp/..//contentfiles/./log/5/here");
  EXPECT_THAT(findings(), ::testing::IsEmpty());
}

TEST_F(CheckContents, FilesThatARecordNamesThroughALinkToTheRootAreNone) {
  const TemporaryDirectory elsewhere;
  fs::create_directory_symlink(repository_.root(), elsewhere / "link");
  addFile("contentfiles/log/5/here");
  addRecord(repository_, idOf(1), 5, elsewhere / "link" / idOf(1) / "contentfiles/log/5/here");
  EXPECT_THAT(findings(), ::testing::IsEmpty());
  const ToolResult throughLink = runTool({"-C", elsewhere / "link", "check"});
  EXPECT_EQ(throughLink.status, 0) << throughLink.output;
}

TEST_F(CheckContents, ALinkOnTheWayOfARecordIsNone) {
  addFile("contentfiles/other/place/here");
  fs::create_directory_symlink("other", report() / "contentfiles/first");
  fs::create_directory_symlink("../contentfiles/first/place", report() / "contentfiles/second");
  addRecord(repository_, idOf(1), 5, "contentfiles/second/here");
  EXPECT_THAT(findings(), ::testing::IsEmpty());
}

TEST_F(CheckContents, FilesThatWereRecordedUnderAnotherRootAreNone) {
  const TemporaryDirectory elsewhere;
  const fs::path other = elsewhere / "copy" / "of it";
  fs::create_directories(other.parent_path());
  const auto recorded = [](const fs::path& root) {
    return (root / idOf(1) / "contentfiles/log/0/log").native();
  };
  fs::copy(repository_.root(), other, fs::copy_options::recursive);
  EXPECT_THAT(findings(), ::testing::IsEmpty());
  const Json::Value found = runTool({"-C", other, "check", "--json"}).json()["findings"];
  ASSERT_EQ(found.size(), 1U);
  EXPECT_EQ(found[0]["kind"], "missing-file");
  EXPECT_EQ(found[0]["detail"].asString(),
            "\"log\" at level 0: \"" + recorded(repository_.root()) +
                "\" is not in the report: it is recorded under another root, and there");
  fs::remove(recorded(other));
  const Json::Value gone = runTool({"-C", other, "check", "--json"}).json()["findings"];
  ASSERT_EQ(gone.size(), 1U);
  EXPECT_EQ(gone[0]["detail"].asString(),
            "\"log\" at level 0: \"" + recorded(repository_.root()) + "\" is not in the report");
}

TEST_F(CheckContents, WhatIsTooDeepToBeLookedAtIsNotKnown) {
  fs::path deep = report() / "contentfiles";
  for (int level = 0; level < 25; ++level) {
    const int parent = openPath(deep);
    deep /= std::string(200, 'd');
    ASSERT_EQ(::mkdirat(parent, std::string(200, 'd').c_str(), 0755), 0);
    ::close(parent);
  }
  const ToolResult result = run({"check"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.output, "");
  EXPECT_EQ(result.errors, "kelp-diagnostics: " + idOf(1) + ": File name too long, not checked\n");
}

TEST_F(CheckContents, ARecordOfANameThatNothingCanHaveHasNoFile) {
  addRecord(repository_, idOf(1), 5, "contentfiles/" + std::string(300, 'n'));
  EXPECT_THAT(findings(),
              ::testing::ElementsAre("missing-file contentfiles/" + std::string(300, 'n')));
}

TEST_F(CheckContents, FilesBelowADirectoryThatARecordNamesAreNone) {
  addFile("contentfiles/whole/tree/of/files");
  addRecord(repository_, idOf(1), 5, "contentfiles/whole/");
  EXPECT_THAT(findings(), ::testing::ElementsAre("missing-file contentfiles/whole/"));
}

TEST_F(CheckContents, AnotherNameOfAFileThatARecordNamesIsAnOrphan) {
  fs::create_hard_link(report() / "contentfiles/log/0/log", report() / "contentfiles/log/0/copy");
  EXPECT_THAT(findings(), ::testing::ElementsAre("orphan-file contentfiles/log/0/copy"));
}

TEST_F(CheckContents, AFileThatARecordsPathOnlyBeginsWithIsAnOrphan) {
  addFile("contentfiles/log/0/lo");
  EXPECT_THAT(findings(), ::testing::ElementsAre("orphan-file contentfiles/log/0/lo"));
}

TEST_F(CheckContents, ALinkIsAnOrphanAndNotFollowed) {
  const TemporaryDirectory elsewhere;
  writeFile(elsewhere / "file", "");
  fs::create_directory_symlink(elsewhere.path(), report() / "contentfiles/log/link");
  EXPECT_THAT(findings(), ::testing::ElementsAre("orphan-file contentfiles/log/link"));
}

TEST_F(CheckContents, ARecordThatLeadsOutThroughALinkHasNoFile) {
  const TemporaryDirectory elsewhere;
  writeFile(elsewhere / "file", "");
  fs::create_directory_symlink(elsewhere.path(), report() / "out");
  addRecord(repository_, idOf(1), 5, "out/file");
  EXPECT_THAT(findings(), ::testing::ElementsAre("missing-file out/file"));
}

TEST_F(CheckContents, OnlyTheTopmostEmptyDirectoryIsTold) {
  fs::create_directories(report() / "contentfiles/gone/1/2/3");
  addFile("contentfiles/used/file");
  fs::create_directories(report() / "contentfiles/used/empty/deep");
  EXPECT_THAT(findings(), ::testing::ElementsAre("orphan-file contentfiles/gone",
                                                 "orphan-file contentfiles/used/empty",
                                                 "orphan-file contentfiles/used/file"));
}

TEST_F(CheckContents, EmptyDirectoriesOfAPropertyAreNothing) {
  const auto report = hold(repository_, idOf(1));
  ASSERT_TRUE(report->createReportFileProperty("deep/name", "", {}));
  fs::create_directories(this->report() / "contentfiles/deep/name/3");
  report->releaseLock();
  EXPECT_THAT(findings(), ::testing::IsEmpty());
  fs::create_directories(this->report() / "contentfiles/deep/names");
  EXPECT_THAT(findings(), ::testing::ElementsAre("orphan-file contentfiles/deep/names"));
}

TEST_F(CheckContents, APropertyWithoutANameOwnsAllDirectories) {
  const auto report = hold(repository_, idOf(1));
  ASSERT_TRUE(report->createReportFileProperty("", "", {}));
  report->releaseLock();
  fs::create_directories(this->report() / "contentfiles/empty");
  EXPECT_THAT(findings(), ::testing::IsEmpty());
}

TEST_F(CheckContents, WithoutAListAllFilesAreOrphans) {
  static_cast<void>(repository_.create(idOf(2)));
  const fs::path bare = repository_.root() / idOf(2);
  fs::create_directories(bare / "contentfiles/log/0");
  writeFile(bare / "contentfiles/log/0/log", "");
  const Json::Value found = run({"check", "--json", idOf(2)}).json()["findings"];
  ASSERT_EQ(found.size(), 1U);
  EXPECT_EQ(found[0]["kind"], "orphan-file");
}

TEST_F(CheckContents, NoDepthIsTooMuch) {
  fs::path deep = report() / "contentfiles";
  for (int level = 0; level < 300; ++level) {
    deep /= "d";
  }
  fs::create_directories(deep);
  writeFile(deep / "file", "");
  const Json::Value found = run({"check", "--json"}).json()["findings"];
  ASSERT_EQ(found.size(), 1U);
  EXPECT_EQ(found[0]["path"], (deep / "file").native());
}

}  // namespace
}  // namespace KELP::Test
