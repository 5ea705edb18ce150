#include "tools/changing/changingtest.h"

namespace KELP::Test {
namespace {

using testing::ElementsAre;
using testing::MatchesRegex;

class CreateTest : public ChangingTest {
 protected:
  /** Opens the report that @p result says was created. */
  [[nodiscard]] std::unique_ptr<Diagnostic::DiagnosticReport> created(
      const ToolResult& result) const {
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(result.lines().size(), 1U);
    Diagnostic::ReportUuid id;
    EXPECT_TRUE(id.parse(result.lines().at(0).c_str()));
    return repository_.data().openReport(id);
  }

  static constexpr const char* kId = "8c5f2e1a-3b7d-4f60-9a1e-d2c4b6a80f13";
};

TEST_F(CreateTest, PrintsTheIdentifierAlone) {
  const ToolResult result = run({"create"});
  EXPECT_THAT(result.output, MatchesRegex("[0-9a-f]{8}(-[0-9a-f]{4}){3}-[0-9a-f]{12}\n"));
  EXPECT_EQ(result.errors, "");
  const auto report = created(result);
  ASSERT_TRUE(report);
  EXPECT_EQ(report->getReporterAppId().value(), 0);
  EXPECT_EQ(report->getBuildId().value(), 0);
  EXPECT_EQ(report->getUserId().value(), 0);
  EXPECT_EQ(report->getDeviceId().value(), "");
  EXPECT_EQ(report->getSessionId().value(), "");
  EXPECT_FALSE(report->getDescription());
  EXPECT_FALSE(report->getPID());
  EXPECT_FALSE(report->getProcessName());
  EXPECT_FALSE(report->getLoadedLibraries());
}

TEST_F(CreateTest, StoresEveryField) {
  const auto report = created(run({"create",
                                   "--id",
                                   "8C5F2E1A-3b7d-4f60-9a1e-d2c4b6a80f13",
                                   "--app",
                                   "-7",
                                   "--build",
                                   "010",
                                   "--user",
                                   "2147483647",
                                   "--device",
                                   "d\nevice",
                                   "--session",
                                   "",
                                   "--description=-text",
                                   "--pid",
                                   "4711",
                                   "--process",
                                   "[p]",
                                   "--library",
                                   "b.so",
                                   "--library",
                                   "[a,b]",
                                   "--library",
                                   "b.so"}));
  ASSERT_TRUE(report);
  EXPECT_EQ(report->getId().toString(), kId);
  EXPECT_EQ(report->getReporterAppId().value(), -7);
  EXPECT_EQ(report->getBuildId().value(), 10);
  EXPECT_EQ(report->getUserId().value(), 2147483647);
  EXPECT_EQ(report->getDeviceId().value(), "d\nevice");
  EXPECT_EQ(report->getSessionId().value(), "");
  EXPECT_EQ(report->getDescription(), "-text");
  EXPECT_EQ(report->getPID(), 4711);
  EXPECT_EQ(report->getProcessName(), "[p]");
  EXPECT_THAT(report->getLoadedLibraries().value(), ElementsAre("b.so", "[a,b]", "b.so"));
  EXPECT_FALSE(report->isCreationComplete());
}

TEST_F(CreateTest, PrintsADocument) {
  const ToolResult result = run({"create", "--id", kId, "--json"});
  EXPECT_EQ(result.status, 0);
  const Json::Value document = result.json();
  EXPECT_THAT(document.getMemberNames(), ElementsAre("id", "schema"));
  EXPECT_EQ(document["schema"], 1);
  EXPECT_EQ(document["id"], kId);
}

TEST_F(CreateTest, MakesTheRoot) {
  const std::filesystem::path root = files_ / "a/b";
  EXPECT_EQ(runTool({"-C", root, "create", "--id", kId}).status, 0);
  EXPECT_TRUE(std::filesystem::is_directory(root / kId));
}

TEST_F(CreateTest, TakesTheRootFromTheEnvironment) {
  ToolSetting setting;
  setting.environment = {{"KELP_DIAGNOSTICS_ROOT", repository_.root().native()}};
  const ToolResult result = runTool({"create", "--id", kId}, setting);
  EXPECT_EQ(result.output, std::string(kId) + "\n");
  EXPECT_TRUE(std::filesystem::is_directory(repository_.root() / kId));
}

TEST_F(CreateTest, RefusesWhatIsThere) {
  refuse({"create", "--id", id_}, 1,
         "Cannot create diagnostic report because another report already exists with the same "
         "uuid");
}

TEST_F(CreateTest, RefusesTheNullIdentifier) {
  refuse({"create", "--id", "00000000-0000-0000-0000-000000000000"}, 1,
         "Cannot create diagnostic report with null uuid");
}

TEST_F(CreateTest, RefusesARootThatIsAFile) {
  writeFile(files_ / "file", "");
  const ToolResult result = runTool({"-C", files_ / "file", "create"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.output, "");
  EXPECT_EQ(result.errors, "kelp-diagnostics: Failed to create directory for report\n");
}

TEST_F(CreateTest, LeavesNothingOfWrongUsage) {
  const std::vector<std::pair<std::vector<std::string>, std::string>> cases{
      {{"create", "--id", "\033[1m8c"},
       "\"\\x1b[1m8c\" is not an identifier such as 8c5f2e1a-3b7d-4f60-9a1e-d2c4b6a80f13"},
      {{"create", "--app", "2147483648"},
       "\"2147483648\" is not an integer from -2147483648 to 2147483647"},
      {{"create", "--pid", "5x"}, "\"5x\" is not an integer from -2147483648 to 2147483647"},
      {{"create", "--user", ""}, "\"\" is not an integer from -2147483648 to 2147483647"},
      {{"create", "--library", "\xff"}, "the name of a library is not UTF-8, or has a NUL in it"},
      {{"create", "--wait", "soon"}, "\"soon\" is not a span of time such as 90s, 12h or 7d"},
  };
  for (const auto& [arguments, message] : cases) {
    refuse(arguments, 2, message);
  }
}

}  // namespace
}  // namespace KELP::Test
