#include "tools/changing/changingtest.h"

#include <cmath>
#include <set>

namespace KELP::Test {
namespace {

using testing::ElementsAre;
using Types = Diagnostic::DiagnosticReportContentPropertyTypes;

class ContentsTest : public ChangingTest {
 protected:
  ContentsTest() {
    const auto report = locked();
    EXPECT_TRUE(report->createReportStringProperty("text", {}));
    EXPECT_TRUE(report->createReportIntegerProperty("whole", {}));
    EXPECT_TRUE(report->createReportDoubleProperty("real", {}));
    EXPECT_TRUE(report->createReportBooleanProperty("truth", {}));
    EXPECT_TRUE(report->createReportFileProperty("log", "", {}));
  }

  [[nodiscard]] std::set<std::string> tagsOf(const std::string& name) const {
    return report()->getReportContentProperty(name).value().tags;
  }
};

struct NamedType {
  std::string name;
  Types type;
};

const NamedType kTypes[] = {
    {"file", Types::FILE},     {"string", Types::STRING},   {"integer", Types::INTEGER},
    {"double", Types::DOUBLE}, {"boolean", Types::BOOLEAN},
};

TEST_F(ContentsTest, AddsAPropertyOfEachType) {
  for (const NamedType& type : kTypes) {
    perform({"property", "add", "--tag", "b", "--media-type", "m/t", "--tag", "a", id_,
             "new-" + type.name, type.name});
    const auto property = report()->getReportContentProperty("new-" + type.name);
    ASSERT_TRUE(property);
    EXPECT_EQ(property->property_type, type.type);
    EXPECT_EQ(property->media_type, "m/t");
    EXPECT_THAT(property->tags, ElementsAre("a", "b"));
    EXPECT_THAT(property->variations, ElementsAre());
  }
}

TEST_F(ContentsTest, TakesNamesTagsAndValuesAsTheyAre) {
  for (const std::string& text : difficultTexts()) {
    SCOPED_TRACE(text);
    perform({"property", "add", "--tag", text, "--media-type", text, id_, "--", text, "string"});
    perform({"property", "tag", id_, "--", text, "more", text});
    perform({"variation", "add", id_, "--", text, "-3", text});
    const auto property = report()->getReportStringProperty(text);
    ASSERT_TRUE(property);
    EXPECT_EQ(property->media_type, text);
    EXPECT_EQ(property->tags, (std::set<std::string>{"more", text}));
    EXPECT_EQ(report()->getReportStringVariationValue(text, -3).value(), text);
    perform({"variation", "remove", id_, "--", text, "-3"});
    EXPECT_FALSE(report()->hasReportContentVariation(text, -3));
    perform({"property", "remove", id_, "--", text});
    EXPECT_FALSE(report()->hasReportContentProperty(text));
  }
}

TEST_F(ContentsTest, RefusesAPropertyThatIsThere) {
  const ToolResult result = run({"property", "add", id_, "text", "integer"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.errors,
            "kelp-diagnostics: Report content property to be created already exists\n");
  EXPECT_TRUE(report()->hasReportStringProperty("text"));
}

TEST_F(ContentsTest, RemovesAPropertyWithItsFiles) {
  writeFile(files_ / "f", "content");
  ASSERT_TRUE(locked()->copyFileToFileProperty("log", 0, files_ / "f", "", false));
  perform({"property", "remove", id_, "log"});
  EXPECT_FALSE(report()->hasReportContentProperty("log"));
  EXPECT_FALSE(std::filesystem::exists(directory() / "contentfiles/log"));
}

TEST_F(ContentsTest, AddsTagsToThoseThatAreThere) {
  perform({"property", "tag", id_, "text", "b", "a"});
  perform({"property", "tag", id_, "text", "c", "a"});
  EXPECT_THAT(tagsOf("text"), ElementsAre("a", "b", "c"));
}

TEST_F(ContentsTest, ClosesForPropertiesAndTagsWithDataCollection) {
  completeCollection();
  refuse({"property", "add", id_, "new", "string"}, 1,
         "Report status does not allow creation of new content properties");
  refuse({"property", "tag", id_, "text", "a"}, 1,
         "Adding tags to report after collection is completed is not allowed");
  perform({"variation", "add", id_, "whole", "0", "1"});
  perform({"property", "remove", id_, "whole"});
}

TEST_F(ContentsTest, SaysWhatIsNotThere) {
  const std::string absent = "there is no property \"no\\x1b[0m\"";
  const std::string name = "no\033[0m";
  refuse({"property", "remove", id_, name}, 3, absent);
  refuse({"property", "tag", id_, name, "a"}, 3, absent);
  refuse({"variation", "add", id_, name, "0", "v"}, 3, absent);
  refuse({"variation", "add", id_, name, "0", "-"}, 3, absent);
  refuse({"variation", "remove", id_, name, "0"}, 3, absent);
  refuse({"variation", "remove", id_, "text", "-1"}, 3,
         "the property \"text\" has no variation of level -1");
}

TEST_F(ContentsTest, AReportWithoutContentsHasNoProperty) {
  id_ = repository_.create()->getId().toString();
  refuse({"property", "remove", id_, "text"}, 3, "there is no property \"text\"");
  refuse({"property", "tag", id_, "text", "a"}, 3, "there is no property \"text\"");
  refuse({"variation", "add", id_, "text", "0", "v"}, 3, "there is no property \"text\"");
  refuse({"variation", "remove", id_, "text", "0"}, 3, "there is no property \"text\"");
  perform({"property", "add", id_, "text", "string"});
  EXPECT_TRUE(report()->hasReportStringProperty("text"));
}

TEST_F(ContentsTest, ReadsIntegers) {
  perform({"variation", "add", id_, "whole", "-2147483648", "-2147483648"});
  perform({"variation", "add", id_, "whole", "2147483647", "007"});
  EXPECT_EQ(report()->getReportIntegerVariationValue("whole", -2147483648).value(), -2147483648);
  EXPECT_EQ(report()->getReportIntegerVariationValue("whole", 2147483647).value(), 7);
}

TEST_F(ContentsTest, ReadsDoubles) {
  const std::vector<std::pair<std::string, double>> cases{
      {"0.1", 0.1},
      {"-2e10", -2e10},
      {"5", 5.0},
      {"1.7976931348623157e308", 0x1.fffffffffffffp1023}};
  ToolSetting setting;
  setting.environment = {{"LC_ALL", "de_DE.UTF-8"}};
  for (const auto& [text, value] : cases) {
    perform({"variation", "add", id_, "real", "0", "--overwrite", "--", text}, setting);
    EXPECT_EQ(report()->getReportDoubleVariationValue("real", 0).value(), value);
  }
}

TEST_F(ContentsTest, ReadsBooleans) {
  perform({"variation", "add", id_, "truth", "0", "true"});
  perform({"variation", "add", id_, "truth", "1", "false"});
  EXPECT_TRUE(report()->getReportBooleanVariationValue("truth", 0).value());
  EXPECT_FALSE(report()->getReportBooleanVariationValue("truth", 1).value());
}

TEST_F(ContentsTest, ReadsAStringFromTheStandardInput) {
  std::string text(3'000'000, 'x');
  text += "\n\033[31m \"✓\"\n\n";
  perform({"variation", "add", id_, "text", "0", "-"}, withInput(text));
  EXPECT_EQ(report()->getReportStringVariationValue("text", 0).value(), text);
  perform({"variation", "add", id_, "text", "1", "-"});
  EXPECT_EQ(report()->getReportStringVariationValue("text", 1).value(), "");
}

TEST_F(ContentsTest, RefusesWhatIsNoText) {
  for (const std::string& input : {std::string("\xff"), std::string("a\0b", 3)}) {
    const ToolResult result = run({"variation", "add", id_, "text", "0", "-"}, withInput(input));
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.errors, "kelp-diagnostics: the value is not UTF-8, or has a NUL in it\n");
    EXPECT_FALSE(report()->hasReportContentVariation("text", 0));
  }
  refuse({"property", "add", id_, "\xff", "string"}, 2,
         "the name is not UTF-8, or has a NUL in it");
  refuse({"property", "add", id_, "n", "string", "--tag", "\xc3"}, 2,
         "a tag is not UTF-8, or has a NUL in it");
  refuse({"property", "tag", id_, "text", "\xc3"}, 2, "a tag is not UTF-8, or has a NUL in it");
}

struct WrongValue {
  std::string name;
  std::string value;
  std::string complaint;
};

TEST_F(ContentsTest, RefusesValuesOfAnotherType) {
  const std::string integer = "an integer from -2147483648 to 2147483647";
  const std::string number = "a finite number such as 0.5 or -2e10";
  const std::string truth = "\"true\" or \"false\"";
  const std::vector<WrongValue> cases{
      {"whole", "2147483648", integer}, {"whole", "1.0", integer},
      {"whole", "0x10", integer},       {"whole", "", integer},
      {"whole", " 1", integer},         {"whole", "-", integer},
      {"real", "inf", number},          {"real", "-inf", number},
      {"real", "nan", number},          {"real", "infinity", number},
      {"real", "1e999", number},        {"real", "1,5", number},
      {"real", "1x", number},           {"real", "", number},
      {"real", "0x1p3", number},        {"truth", "1", truth},
      {"truth", "TRUE", truth},         {"truth", "", truth},
  };
  for (const WrongValue& wrong : cases) {
    refuse({"variation", "add", id_, wrong.name, "0", "--", wrong.value}, 2,
           "\"" + wrong.value + "\" is not " + wrong.complaint);
  }
  refuse({"variation", "add", id_, "log", "0", "v"}, 2,
         "the property \"log\" holds files; see \"attach\"");
}

TEST_F(ContentsTest, ReplacesAVariationOnlyWhenAsked) {
  perform({"variation", "add", id_, "text", "5", "old"});
  refuse({"variation", "add", id_, "text", "5", "new"}, 1,
         "Variation already exists and overwrite is not allowed");
  EXPECT_EQ(report()->getReportStringVariationValue("text", 5).value(), "old");
  perform({"variation", "add", id_, "text", "5", "new", "--overwrite"});
  EXPECT_EQ(report()->getReportStringVariationValue("text", 5).value(), "new");
}

TEST_F(ContentsTest, RemovesAVariationWithItsFile) {
  writeFile(files_ / "f", "content");
  ASSERT_TRUE(locked()->copyFileToFileProperty("log", 3, files_ / "f", "", false));
  perform({"variation", "remove", id_, "log", "3"});
  EXPECT_FALSE(report()->hasReportFileVariation("log", 3));
  EXPECT_FALSE(std::filesystem::exists(directory() / "contentfiles/log/3/log"));
}

}  // namespace
}  // namespace KELP::Test
