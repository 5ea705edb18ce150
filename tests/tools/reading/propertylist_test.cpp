// `property list`.

#include "tools/reading/readingfixture.h"

namespace KELP::Test {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;

class PropertyList : public ReadingTest {
 protected:
  PropertyList() { make(kFirst); }

  void addText(const std::string& name, const std::string& value, int level) const {
    const auto report = open(kFirst);
    EXPECT_TRUE(report->createReportStringProperty(name, {"tag"}));
    EXPECT_TRUE(report->addReportStringVariation(name, level, value, false));
  }
};

TEST_F(PropertyList, PrintsANameOnEachLine) {
  addText("plain", "value", 0);
  addText(kHostile, "value", 0);
  addText("a\\b", "value", 0);
  const ToolResult result = run({"property", "list", "1a1"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.output, std::string("plain\n") + kHarmless + "\na\\\\b\n");
  EXPECT_EQ(result.errors, "");
}

TEST_F(PropertyList, PrintsNamesAsTheyAreWithNullBehindEach) {
  addText("plain", "value", 0);
  addText(kHostile, "value", 0);
  addText("a\\b", "value", 0);
  for (const char* const option : {"-0", "--null"}) {
    const ToolResult result = run({"property", "list", option, "1a1"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, std::string("plain\0", 6) + kHostile + std::string("\0a\\b\0", 5));
  }
}

TEST_F(PropertyList, PrintsADocumentWithThePropertiesAsShowHasThem) {
  addText("plain", "public", 0);
  addText("secret", "a secret value", 1000);
  {
    const auto report = open(kFirst);
    addFile(*report, "log", "hello", {0, 1000});
  }
  const ToolResult result = run({"property", "list", "1a1", "--json"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.json()["schema"], 1);
  const Json::Value properties = result.json()["properties"];
  ASSERT_EQ(properties.size(), 3U);
  EXPECT_EQ(properties[0]["name"], "plain");
  EXPECT_EQ(properties[0]["type"], "string");
  EXPECT_EQ(properties[0]["tags"][0], "tag");
  EXPECT_EQ(properties[0]["variations"][0]["value"], "public");
  EXPECT_EQ(properties[1]["variations"][0]["hidden"], true);
  EXPECT_EQ(properties[2]["type"], "file");
  EXPECT_EQ(properties, run({"show", "1a1", "--json"}).json()["report"]["contents"]);
  EXPECT_THAT(result.output, testing::Not(HasSubstr("a secret value")));
}

TEST_F(PropertyList, IsEmptyWhereThereIsNothing) {
  const ToolResult lines = run({"property", "list", "1a1"});
  EXPECT_EQ(lines.status, 0);
  EXPECT_THAT(lines.output, IsEmpty());
  EXPECT_THAT(run({"property", "list", "-0", "1a1"}).output, IsEmpty());
  const ToolResult document = run({"property", "list", "1a1", "--json"});
  EXPECT_EQ(document.status, 0);
  EXPECT_EQ(document.json()["properties"], Json::Value(Json::arrayValue));
}

TEST_F(PropertyList, IsOneOrTheOther) {
  const ToolResult result = run({"property", "list", "1a1", "--json", "-0"});
  EXPECT_EQ(result.status, 2);
  EXPECT_THAT(result.output, IsEmpty());
  EXPECT_THAT(result.errors, HasSubstr("--null excludes --json"));
}

TEST_F(PropertyList, FailsAsTheOthersThatRead) {
  makeDamaged(kSecond);
  EXPECT_EQ(run({"property", "list", "2b2"}).status, 5);
  EXPECT_EQ(run({"property", "list", "2b2", "--json"}).status, 5);
  EXPECT_EQ(run({"property", "list", "9"}).status, 3);
  EXPECT_EQ(run({"property", "list"}).status, 2);
}

TEST_F(PropertyList, ReadsAReportThatIsHeldAndChangesNothing) {
  addText("plain", "value", 0);
  const auto holder = open(kFirst);
  const auto before = repository_.snapshot();
  EXPECT_EQ(run({"property", "list", "1a1"}).output, "plain\n");
  EXPECT_EQ(run({"property", "list", "-0", "1a1"}).output, std::string("plain\0", 6));
  EXPECT_EQ(repository_.snapshot(), before);
}

}  // namespace
}  // namespace KELP::Test
