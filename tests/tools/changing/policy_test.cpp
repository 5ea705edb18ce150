#include "tools/changing/changingtest.h"

namespace KELP::Test {
namespace {

class PolicyTest : public ChangingTest {
 protected:
  PolicyTest() {
    const auto report = locked();
    EXPECT_TRUE(report->setCurrentConsentLevel(40));
    EXPECT_TRUE(report->setMaxConsentLevel(10));
    EXPECT_TRUE(report->createReportFileProperty("log", "", {}));
    EXPECT_TRUE(report->createReportStringProperty("na\033me\n", {}));
    writeFile(files_ / "f", "content");
    for (const int level : {-1, 10, 11, 30}) {
      EXPECT_TRUE(report->copyFileToFileProperty("log", level, files_ / "f", "", false));
    }
    for (const int level : {50, 0}) {
      EXPECT_TRUE(report->addReportStringVariation("na\033me\n", level, "v", false));
    }
  }

  [[nodiscard]] std::vector<int> levelsOf(const std::string& name) const {
    const auto property = report()->getReportContentProperty(name).value();
    std::vector<int> levels;
    for (const auto& variation : property.variations) {
      levels.push_back(variation.sensitivity_level);
    }
    return levels;
  }
};

TEST_F(PolicyTest, DropsWhatIsNotPermittedAndSaysSo) {
  const ToolResult result = run({"apply-policy", id_});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.output,
            "dropped level 11 of \"log\"\n"
            "dropped level 30 of \"log\"\n"
            "dropped level 50 of \"na\\x1bme\\n\"\n");
  EXPECT_EQ(result.errors, "");
  EXPECT_THAT(levelsOf("log"), testing::ElementsAre(-1, 10));
  EXPECT_THAT(levelsOf("na\033me\n"), testing::ElementsAre(0));
  EXPECT_FALSE(std::filesystem::exists(directory() / "contentfiles/log/11/log"));
  EXPECT_FALSE(std::filesystem::exists(directory() / "contentfiles/log/30/log"));
  EXPECT_EQ(readFile(directory() / "contentfiles/log/10/log"), "content");
  EXPECT_FALSE(report()->isDataPolicyApplied());
}

TEST_F(PolicyTest, HasNothingToSayTheSecondTime) {
  static_cast<void>(run({"apply-policy", id_}));
  perform({"apply-policy", id_});
}

TEST_F(PolicyTest, OnlySaysWhatItWouldDrop) {
  const auto writer = locked();  // Who only looks does not wait for anybody.
  const auto before = repository_.snapshot();
  const ToolResult result = run({"apply-policy", "--dry-run", id_});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.output,
            "would drop level 11 of \"log\"\n"
            "would drop level 30 of \"log\"\n"
            "would drop level 50 of \"na\\x1bme\\n\"\n");
  EXPECT_EQ(repository_.snapshot(), before);
}

TEST_F(PolicyTest, HasNothingToDropFromAReportWithoutContents) {
  const std::string empty = repository_.create()->getId().toString();
  perform({"apply-policy", empty});
  perform({"apply-policy", empty, "--dry-run"});
}

TEST_F(PolicyTest, PrintsOneDocument) {
  for (const bool dryRun : {true, false}) {
    std::vector<std::string> arguments{"apply-policy", id_, "--json"};
    if (dryRun) {
      arguments.emplace_back("--dry-run");
    }
    const Json::Value document = run(arguments).json();
    EXPECT_EQ(document["schema"], 1);
    EXPECT_EQ(document["dry_run"], dryRun);
    ASSERT_EQ(document["dropped"].size(), 3U);
    EXPECT_EQ(document["dropped"][0]["property"], "log");
    EXPECT_EQ(document["dropped"][0]["level"], 11);
    EXPECT_EQ(document["dropped"][2]["property"], "na\033me\n");
  }
  const Json::Value nothing = run({"apply-policy", id_, "--json"}).json();
  EXPECT_TRUE(nothing["dropped"].isArray());
  EXPECT_EQ(nothing["dropped"].size(), 0U);
}

}  // namespace
}  // namespace KELP::Test
