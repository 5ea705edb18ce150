// Which files `check` counts as named by a record.

#include "damage.h"

#include <gmock/gmock.h>

namespace KELP::Test {
namespace {

namespace fs = std::filesystem;

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
