// What is in the archive, and what is kept out of it.

#include "support/childprocess.h"
#include "support/startedby.h"
#include "support/strace.h"
#include "tools/watching/exporttest.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

namespace KELP::Test {
namespace {

using testing::HasSubstr;
using testing::Not;
using testing::SizeIs;

namespace fs = std::filesystem;

/** The contents of one file property with one variation at level 10, as the store has them. */
std::string contentsWith(const std::string& path) {
  return R"([{"stable_id":"log","property_type":"FILE","media_type":"","tags":null,)"
         R"("variations":[{"relative_path":")" +
         path + R"(","sensitivity_level":10}]}])";
}

class ExportContentsTest : public ExportTest {
 protected:
  [[nodiscard]] fs::path storedFile() const {
    return repository_.root() / kId / "contentfiles/log/10/short.txt";
  }

  /** Exports, and expects that the file at level 10 is left out for @p reason. */
  void expectLeftOut(const std::string& reason) const {
    const ToolResult result = exportTo("a.zip");
    EXPECT_EQ(result.status, 5);
    EXPECT_THAT(result.errors, HasSubstr("\"log\" at level 10: left out, the file is " + reason));
    const Unpacked unpacked = unpack("a.zip");
    EXPECT_THAT(unpacked.members, SizeIs(2));
    bool isNoted = false;
    for (const Json::Value& left : unpacked.manifest["reports"][0]["left_out"]) {
      isNoted =
          isNoted || (left["property"] == "log" && left["level"] == 10 && left["reason"] == reason);
    }
    EXPECT_TRUE(isNoted) << unpacked.manifest.toStyledString();
  }
};

TEST_F(ExportContentsTest, NothingAboveThePermittedLevelIsInIt) {
  createUsual();
  ASSERT_EQ(exportTo("a.zip").status, 0);
  const Unpacked unpacked = unpack("a.zip");
  for (const auto& [name, file] : unpacked.members) {
    EXPECT_THAT(name + readFile(file), Not(HasSubstr("secret")));
  }
  const Json::Value& report = unpacked.manifest["reports"][0];
  EXPECT_EQ(report["permitted_level"], 20);
  ASSERT_THAT(report["left_out"], SizeIs(2));
  EXPECT_EQ(report["left_out"][0]["property"], "mode");
  EXPECT_EQ(report["left_out"][1]["property"], "log");
  for (const Json::Value& left : report["left_out"]) {
    EXPECT_EQ(left["level"], 30);
    EXPECT_EQ(left["reason"], "level");
  }
}

TEST_F(ExportContentsTest, AllLevelsAreInItWhenThatIsWanted) {
  createUsual();
  ASSERT_EQ(exportTo("a.zip", {kId, "--all-levels"}).status, 0);
  const Unpacked unpacked = unpack("a.zip");
  EXPECT_EQ(unpacked.content(std::string(kId) + "/files/log/30/secret.txt"), "secret text\n");
  EXPECT_THAT(unpacked.content(std::string(kId) + "/report.json"), HasSubstr("secret mode"));
  EXPECT_EQ(unpacked.manifest["all_levels"], true);
  EXPECT_THAT(unpacked.manifest["reports"][0]["left_out"], SizeIs(0));
}

TEST_F(ExportContentsTest, ALevelAtThePermittedOneAndANegativeOneArePermitted) {
  {
    const auto report = repository_.create(kId);
    for (const int level : {-1, 20, 21}) {
      attach(*report, "log", level, "file", "");
    }
  }
  ASSERT_EQ(exportTo("a.zip").status, 0);
  const Unpacked unpacked = unpack("a.zip");
  const std::string folder = std::string(kId) + "/files/log/";
  EXPECT_EQ(unpacked.members.count(folder + "-1/file"), 1U);
  EXPECT_EQ(unpacked.members.count(folder + "20/file"), 1U);
  EXPECT_THAT(unpacked.members, SizeIs(4));
}

TEST_F(ExportContentsTest, TheReportIsDescribedAsShowDoes) {
  createUsual();
  for (const bool all : {false, true}) {
    std::vector<std::string> show{"show", kId, "--json", "--utc"};
    std::vector<std::string> more{kId, "--force"};
    if (all) {
      show.emplace_back("--all-levels");
      more.emplace_back("--all-levels");
    }
    ASSERT_EQ(exportTo("a.zip", more).status, 0);
    const Json::Value described = unpack("a.zip").json(std::string(kId) + "/report.json");
    const Json::Value shown = runTool(repository_.arguments(show)).json();
    EXPECT_EQ(described["schema"], 1);
    EXPECT_EQ(described["report"]["process"], "camera");
    for (const std::string& member : described["report"].getMemberNames()) {
      EXPECT_EQ(described["report"][member], shown["report"][member]) << member;
    }
  }
}

TEST_F(ExportContentsTest, TheManifestSaysWhatItIsAndCanBePrinted) {
  createUsual();
  const ToolResult result = exportTo("a.zip", {kId, "--json"});
  const Unpacked unpacked = unpack("a.zip");
  EXPECT_EQ(result.json(), unpacked.manifest);
  EXPECT_EQ(unpacked.manifest["schema"], 1);
  EXPECT_EQ(unpacked.manifest["all_levels"], false);
  EXPECT_THAT(unpacked.manifest["created"].asString(), testing::EndsWith("Z"));
  const Json::Value& report = unpacked.manifest["reports"][0];
  EXPECT_EQ(report["id"], kId);
  EXPECT_EQ(report["changed_while_read"], false);
  const Json::Value& file = report["members"][1];
  EXPECT_EQ(file["name"], std::string(kId) + "/files/log/10/short.txt");
  EXPECT_EQ(file["property"], "log");
  EXPECT_EQ(file["level"], 10);
  EXPECT_EQ(file["file"], "short.txt");
  EXPECT_EQ(file["changed_while_read"], false);
}

TEST_F(ExportContentsTest, AReportWithNothingInItIsExported) {
  static_cast<void>(repository_.create(kId));
  ASSERT_EQ(exportTo("a.tar.zst").status, 0);
  EXPECT_THAT(unpack("a.tar.zst").members, SizeIs(2));
}

TEST_F(ExportContentsTest, AMissingFileIsLeftOut) {
  createUsual();
  fs::remove(storedFile());
  expectLeftOut("missing");
}

TEST_F(ExportContentsTest, ALinkIsNotFollowed) {
  createUsual();
  fs::remove(storedFile());
  fs::create_symlink(repository_.root() / kId / "contentfiles/log/30/secret.txt", storedFile());
  expectLeftOut("irregular");
}

TEST_F(ExportContentsTest, APipeIsNotWaitedFor) {
  createUsual();
  fs::remove(storedFile());
  ASSERT_EQ(::mkfifo(storedFile().c_str(), 0600), 0);
  expectLeftOut("irregular");
}

TEST_F(ExportContentsTest, ADirectoryIsLeftOut) {
  createUsual();
  fs::remove(storedFile());
  fs::create_directory(storedFile());
  expectLeftOut("irregular");
}

TEST_F(ExportContentsTest, AFileOutsideOfTheReportIsLeftOut) {
  createUsual();
  repository_.writeKey(kId, "report_contents", contentsWith("/etc/hostname"));
  expectLeftOut("outside");
}

TEST_F(ExportContentsTest, ADirectoryThatLeadsOutOfTheReportIsNotFollowed) {
  createUsual();
  const fs::path level = storedFile().parent_path();
  fs::remove_all(level);
  fs::create_directory_symlink(work_ / "sources", level);
  writeFile(work_ / "sources" / "short.txt", "elsewhere");
  expectLeftOut("outside");
}

TEST_F(ExportContentsTest, TheStoreIsNoContent) {
  createUsual();
  repository_.writeKey(kId, "report_contents",
                       contentsWith((repository_.root() / kId / "metadata.db").native()));
  expectLeftOut("protected");
}

TEST_F(ExportContentsTest, AFileAboveThePermittedLevelDoesNotGetInByAnotherName) {
  createUsual();
  fs::remove(storedFile());
  fs::create_hard_link(repository_.root() / kId / "contentfiles/log/30/secret.txt", storedFile());
  expectLeftOut("protected");
}

TEST_F(ExportContentsTest, OfTwoPropertiesWithOneNameBothAreInIt) {
  createUsual();
  const std::string one = contentsWith(storedFile().native());
  repository_.writeKey(kId, "report_contents", one.substr(0, one.size() - 1) + "," + one.substr(1));
  ASSERT_EQ(exportTo("a.zip").status, 0);
  const Unpacked unpacked = unpack("a.zip");
  const std::string file = std::string(kId) + "/files/log/10/short.txt";
  EXPECT_EQ(unpacked.content(file), "short text\n");
  EXPECT_EQ(unpacked.content(file + "%~2"), "short text\n");
}

TEST_F(ExportContentsTest, NothingIsChangedAndNoLockIsTaken) {
  createUsual();
  const auto before = repository_.snapshot();
  const fs::path trace = work_ / "trace";
  std::vector<std::string> command = arguments("a.zip");
  command.insert(command.begin(), toolPath());
  ChildProcess run(
      startedBy(tracer({"-e", "trace=flock,fcntl,openat", "-o", trace.native()}), command));
  EXPECT_EQ(run.wait(), 0);
  EXPECT_EQ(repository_.snapshot(), before);
  const std::string calls = readFile(trace);
  EXPECT_THAT(calls, HasSubstr("short.txt\", O_RDONLY"));
  EXPECT_THAT(calls, Not(HasSubstr("flock(")));
  EXPECT_THAT(calls, Not(HasSubstr("F_SETLK")));
}

}  // namespace
}  // namespace KELP::Test
