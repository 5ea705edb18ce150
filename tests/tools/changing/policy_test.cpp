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

TEST_F(PolicyTest, RefusesAReportWithoutContents) {
  const std::string empty = repository_.create()->getId().toString();
  refuse({"apply-policy", empty}, 1,
         "Cannot remove content property variations from report with no contents");
  refuse({"apply-policy", empty, "--dry-run"}, 1, "the report " + empty + " has no contents");
}

}  // namespace
}  // namespace KELP::Test
