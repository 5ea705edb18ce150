// When nothing is exported, nothing is left behind.

#include "support/smalldisk.h"
#include "tools/watching/exporttest.h"

#include <gmock/gmock.h>

#include <chrono>
#include <iterator>

namespace KELP::Test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

namespace fs = std::filesystem;

class ExportRefusalTest : public ExportTest {
 protected:
  /** Expects that neither a new archive nor anything else is made, and that an old one stays. */
  void expectRefused(const std::vector<std::string>& more, int status) const {
    const ToolResult result = exportTo("a.zip", more);
    EXPECT_EQ(result.status, status);
    EXPECT_THAT(result.errors, StartsWith("kelp-diagnostics: "));
    EXPECT_EQ(result.output, "");
    EXPECT_THAT(outputs(), IsEmpty());

    writeFile(pathOf("a.zip"), "old");
    std::vector<std::string> forced = more;
    forced.emplace_back("--force");
    EXPECT_EQ(exportTo("a.zip", forced).status, status);
    EXPECT_THAT(outputs(), ElementsAre("a.zip"));
    EXPECT_EQ(readFile(pathOf("a.zip")), "old");
  }
};

TEST_F(ExportRefusalTest, AnUnknownReportIsNotFound) {
  createUsual();
  expectRefused({kId, "2222"}, 3);
}

TEST_F(ExportRefusalTest, ABeginningOfSeveralIsWrongUsage) {
  createUsual();
  createUsual("11111111-2222-4222-8222-222222222222");
  expectRefused({"1111"}, 2);
}

TEST_F(ExportRefusalTest, WithoutReportsItIsWrongUsage) {
  expectRefused({}, 2);
}

TEST_F(ExportRefusalTest, ADamagedOneAmongSoundOnesIsDamage) {
  createUsual();
  createUsual("22222222-2222-4222-8222-222222222222");
  writeFile(repository_.root() / "22222222-2222-4222-8222-222222222222" / "metadata.db",
            "nonsense");
  expectRefused({kId, "2222"}, 5);
}

TEST_F(ExportRefusalTest, AHalfMadeOneIsDamage) {
  createUsual();
  fs::remove(repository_.root() / kId / "lock");
  expectRefused({kId}, 5);
}

TEST_F(ExportRefusalTest, OneThatIsBeingWrittenIsBusy) {
  const auto report = repository_.create(kId);
  expectRefused({kId}, 4);
}

TEST_F(ExportRefusalTest, OneThatIsBeingReadIsExported) {
  createUsual();
  Diagnostic::ReportUuid id;
  id.parse(kId);
  const auto reader = repository_.data().openReport(id);
  ASSERT_TRUE(reader->acquireReadLock(true));
  EXPECT_EQ(exportTo("a.zip").status, 0);
}

TEST_F(ExportRefusalTest, OneThatIsBeingWrittenIsWaitedForAsLongAsIsWanted) {
  const auto report = repository_.create(kId);
  const auto before = std::chrono::steady_clock::now();
  EXPECT_EQ(exportTo("a.zip", {kId, "--wait", "1s"}).status, 4);
  EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::seconds(1));
  EXPECT_THAT(outputs(), IsEmpty());
}

TEST_F(ExportRefusalTest, AnExistingFileIsReplacedByForceAlone) {
  createUsual();
  writeFile(pathOf("a.zip"), "old");
  const ToolResult refused = exportTo("a.zip");
  EXPECT_EQ(refused.status, 1);
  EXPECT_THAT(refused.errors, HasSubstr("exists already; --force replaces it"));
  EXPECT_EQ(readFile(pathOf("a.zip")), "old");
  EXPECT_EQ(exportTo("a.zip", {kId, "--force"}).status, 0);
  EXPECT_THAT(outputs(), ElementsAre("a.zip"));
  EXPECT_EQ(unpack("a.zip").members.size(), 3U);
}

TEST_F(ExportRefusalTest, ADirectoryIsNotReplaced) {
  createUsual();
  fs::create_directory(pathOf("a.zip"));
  EXPECT_EQ(exportTo("a.zip", {kId, "--force"}).status, 1);
  EXPECT_TRUE(fs::is_directory(pathOf("a.zip")));
  EXPECT_THAT(outputs(), ElementsAre("a.zip"));
}

TEST_F(ExportRefusalTest, ADirectoryThatIsNotThereIsNotMade) {
  createUsual();
  const ToolResult result = exportTo("no\nwhere/a.zip");
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.errors, HasSubstr("no\\nwhere/a.zip: No such file or directory"));
  EXPECT_THAT(outputs(), IsEmpty());
}

TEST_F(ExportRefusalTest, ANameWithoutADirectoryIsInTheWorkingDirectory) {
  createUsual();
  ToolSetting setting;
  setting.directory = work_ / "out";
  EXPECT_EQ(runTool(repository_.arguments({"export", kId, "-o", "a.zip"}), setting).status, 0);
  EXPECT_THAT(outputs(), ElementsAre("a.zip"));
}

TEST_F(ExportRefusalTest, AFullDiskLeavesNothingBehind) {
  const SmallDisk disk(work_ / "disk");
  if (!disk.unavailable().empty()) GTEST_SKIP() << disk.unavailable();
  createUsual();
  disk.fill(0);
  for (const char* const name : {"a.zip", "a.tar.gz", "a.tar.zst"}) {
    const std::string archive = (disk.path() / name).native();
    const ToolResult result = runTool(repository_.arguments({"export", kId, "-o", archive}));
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.errors, HasSubstr("No space left on device"));
    EXPECT_EQ(std::distance(fs::directory_iterator(disk.path()), fs::directory_iterator()), 1);
  }
}

TEST_F(ExportRefusalTest, AnotherEndingIsWrongUsage) {
  createUsual();
  for (const char* const name : {"a.rar", "a.tar", "a", "a.zip.bak"}) {
    const ToolResult result = exportTo(name);
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.errors, HasSubstr(".tar.zst, .tar.gz, .tgz or .zip")) << name;
  }
  EXPECT_THAT(outputs(), IsEmpty());
}

class ExportFullDiskTest : public ExportRefusalTest,
                           public testing::WithParamInterface<const char*> {};

TEST_P(ExportFullDiskTest, LeavesNothing) {
  createUsual();
  ASSERT_EQ(shell(R"(head -c 1000000 /dev/urandom > "$0")",
                  {(repository_.root() / kId / "contentfiles/log/10/short.txt").native()}),
            "");
  writeFile(pathOf(GetParam()), "old");
  std::vector<std::string> command = arguments(GetParam(), {kId, "--force"});
  command.insert(command.begin(), toolPath());
  const std::string result =
      shell(R"(prlimit --fsize=200000 "$0" "$@" 2>&1 || echo "status $?")", command);
  EXPECT_THAT(result, HasSubstr(": File too large\nstatus 1\n"));
  EXPECT_THAT(outputs(), ElementsAre(GetParam()));
  EXPECT_EQ(readFile(pathOf(GetParam())), "old");
}

INSTANTIATE_TEST_SUITE_P(Formats, ExportFullDiskTest,
                         testing::Values("a.tar.zst", "a.tar.gz", "a.zip"));

}  // namespace
}  // namespace KELP::Test
