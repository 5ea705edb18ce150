// The stored text of a report's contents: what is written, and that it is read back.

#include "support/logcapture.h"
#include "unit/foundation/contents.h"
#include "unit/foundation/namedcase.h"
#include "unit/foundation/randomtext.h"
#include "unit/foundation/seed.h"

#include <diagnostic/metadataproperty.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace KELP::Diagnostic {
namespace {

using Test::booleanVariation;
using Test::CaseName;
using Test::doubleVariation;
using Test::fileVariation;
using Test::integerVariation;
using Test::LogCapture;
using Test::LogLine;
using Test::NamedCase;
using Test::Property;
using Test::property;
using Test::randomNumber;
using Test::randomText;
using Test::seedNote;
using Test::stringVariation;
using Test::testSeed;
using Test::Types;
using Test::Variation;
using Test::variation;
using Contents = std::vector<Property>;

const MetadataProperty<Contents> kContents("report_contents", std::nullopt);

struct ContentsText : NamedCase {
  Contents contents;
  std::string text;
};

class ContentsFormTest : public testing::TestWithParam<ContentsText> {};

TEST_P(ContentsFormTest, IsWrittenAsThisTextAndReadBack) {
  EXPECT_EQ(MetadataProperty<Contents>::serialize(GetParam().contents), GetParam().text);
  const LogCapture log;
  EXPECT_EQ(kContents.unserialize(GetParam().text), GetParam().contents);
  EXPECT_EQ(log.lines(), std::vector<LogLine>());
}

/** The text of one property without tags and media type, with the given variations. */
std::string bare(const std::string& type, const std::string& variations) {
  return R"([{"media_type":"","property_type":")" + type + R"(","stable_id":"id","tags":null,)" +
         R"("variations":)" + variations + "}]";
}

INSTANTIATE_TEST_SUITE_P(
    Lists, ContentsFormTest,
    testing::Values(
        ContentsText{{"Empty"}, {}, "[]"},
        ContentsText{
            {"NoTagsAndNoVariationsAreNull"}, {property("id", Types::FILE)}, bare("FILE", "null")},
        ContentsText{
            {"EmptyIdAndNoType"},
            {Property()},
            R"([{"media_type":"","property_type":"UNKNOWN","stable_id":"","tags":null,"variations":null}])"},
        ContentsText{
            {"TagsAreSorted"},
            {property("id", Types::STRING, {}, {"ui", "Ui", "a b", ""}, "text/plain")},
            R"([{"media_type":"text/plain","property_type":"STRING","stable_id":"id","tags":["","Ui","a b","ui"],"variations":null}])"},
        ContentsText{
            {"TwoPropertiesInOrder"},
            {property("screenshot", Types::FILE, {fileVariation("/data/r/contentfiles/x/2/a", 2)},
                      {"ui"}, "image/png"),
             property("battery_level", Types::INTEGER,
                      {integerVariation(87, 0), integerVariation(86, 1)})},
            R"([{"media_type":"image/png","property_type":"FILE","stable_id":"screenshot","tags":["ui"],"variations":[{"relative_path":"/data/r/contentfiles/x/2/a","sensitivity_level":2}]},)"
            R"({"media_type":"","property_type":"INTEGER","stable_id":"battery_level","tags":null,"variations":[{"integer":87,"sensitivity_level":0},{"integer":86,"sensitivity_level":1}]}])"},
        ContentsText{
            {"TheSameIdTwice"},
            {property("id", Types::FILE), property("id", Types::STRING)},
            R"([{"media_type":"","property_type":"FILE","stable_id":"id","tags":null,"variations":null},)"
            R"({"media_type":"","property_type":"STRING","stable_id":"id","tags":null,"variations":null}])"},
        ContentsText{
            {"TextsThatNeedEscapes"},
            {property("a\"b", Types::STRING, {stringVariation("caf\xc3\xa9\n\\", 1)},
                      {std::string("t\0g", 3)}, "x/%s")},
            R"([{"media_type":"x/%s","property_type":"STRING","stable_id":"a\"b","tags":["t\u0000g"],"variations":[{"sensitivity_level":1,"string":"caf\u00e9\n\\"}]}])"}),
    CaseName());

INSTANTIATE_TEST_SUITE_P(
    Variations, ContentsFormTest,
    testing::Values(
        ContentsText{{"File"},
                     {property("id", Types::FILE, {fileVariation("a/b", 2)})},
                     bare("FILE", R"([{"relative_path":"a/b","sensitivity_level":2}])")},
        ContentsText{{"FileWithoutPath"},
                     {property("id", Types::FILE, {fileVariation("", 2)})},
                     bare("FILE", R"([{"relative_path":"","sensitivity_level":2}])")},
        ContentsText{{"String"},
                     {property("id", Types::STRING, {stringVariation("text", -1)})},
                     bare("STRING", R"([{"sensitivity_level":-1,"string":"text"}])")},
        ContentsText{{"EmptyString"},
                     {property("id", Types::STRING, {stringVariation("", 0)})},
                     bare("STRING", R"([{"sensitivity_level":0,"string":""}])")},
        ContentsText{
            {"IntegerLimits"},
            {property("id", Types::INTEGER,
                      {integerVariation(2147483647, 1), integerVariation(-2147483647 - 1, 2)})},
            bare("INTEGER", R"([{"integer":2147483647,"sensitivity_level":1},)"
                            R"({"integer":-2147483648,"sensitivity_level":2}])")},
        ContentsText{{"LevelLimits"},
                     {property("id", Types::BOOLEAN,
                               {booleanVariation(true, 2147483647),
                                booleanVariation(false, -2147483647 - 1)})},
                     bare("BOOLEAN", R"([{"boolean":true,"sensitivity_level":2147483647},)"
                                     R"({"boolean":false,"sensitivity_level":-2147483648}])")},
        ContentsText{
            {"TheSameLevelTwiceInOrder"},
            {property("id", Types::INTEGER, {integerVariation(2, 5), integerVariation(1, 5)})},
            bare("INTEGER", R"([{"integer":2,"sensitivity_level":5},)"
                            R"({"integer":1,"sensitivity_level":5}])")},
        ContentsText{{"TheInitialLevelIsStoredLikeAnyOther"},
                     {property("id", Types::INTEGER, {integerVariation(1, 9999)})},
                     bare("INTEGER", R"([{"integer":1,"sensitivity_level":9999}])")}),
    CaseName());

struct DoubleText : NamedCase {
  double value;
  std::string text;
};

class DoubleFormTest : public testing::TestWithParam<DoubleText> {};

TEST_P(DoubleFormTest, IsWrittenAsThisNumberAndReadBackToTheLastBit) {
  const Contents contents{property("id", Types::DOUBLE, {doubleVariation(GetParam().value, 1)})};
  const std::string text =
      bare("DOUBLE", R"([{"double":)" + GetParam().text + R"(,"sensitivity_level":1}])");
  EXPECT_EQ(MetadataProperty<Contents>::serialize(contents), text);
  EXPECT_EQ(kContents.unserialize(text), contents);
}

INSTANTIATE_TEST_SUITE_P(
    Numbers, DoubleFormTest,
    testing::Values(
        DoubleText{{"Zero"}, 0.0, "0.0"}, DoubleText{{"NegativeZero"}, -0.0, "-0.0"},
        DoubleText{{"Whole"}, 3.0, "3.0"}, DoubleText{{"Half"}, -0.5, "-0.5"},
        DoubleText{{"Tenth"}, 0.1, "0.10000000000000001"},
        DoubleText{{"Large"}, 1e300, "1.0000000000000001e+300"},
        DoubleText{{"Largest"}, std::numeric_limits<double>::max(), "1.7976931348623157e+308"},
        DoubleText{
            {"SmallestNormal"}, std::numeric_limits<double>::min(), "2.2250738585072014e-308"}),
    CaseName());

TEST(ReportContentsFormatTest, AVariationIsWrittenWithTheMemberOfItsPropertysTypeOnly) {
  const Variation full{"path", "string", 3, 4.5, true, 6};
  const std::vector<std::pair<Types, std::string>> forms{
      {Types::FILE, R"([{"relative_path":"path","sensitivity_level":6}])"},
      {Types::STRING, R"([{"sensitivity_level":6,"string":"string"}])"},
      {Types::INTEGER, R"([{"integer":3,"sensitivity_level":6}])"},
      {Types::DOUBLE, R"([{"double":4.5,"sensitivity_level":6}])"},
      {Types::BOOLEAN, R"([{"boolean":true,"sensitivity_level":6}])"},
      {Types::UNKNOWN, R"([{"sensitivity_level":6}])"}};
  for (const auto& [type, variations] : forms) {
    const std::string name(DiagnosticReportContentPropertyTypesToString(type));
    EXPECT_EQ(MetadataProperty<Contents>::serialize({property("id", type, {full})}),
              bare(name, variations));
  }
}

TEST(ReportContentsFormatTest, AValueThatIsNoTypeIsWrittenAsUnknown) {
  EXPECT_EQ(MetadataProperty<Contents>::serialize(
                {property("id", static_cast<Types>(6), {stringVariation("lost", 1)})}),
            bare("UNKNOWN", R"([{"sensitivity_level":1}])"));
}

TEST(ReportContentsFormatTest, VariationsOfAnUnknownPropertyAreWrittenAndNeverReadBack) {
  const std::string text = MetadataProperty<Contents>::serialize(
      {property("id", Types::UNKNOWN, {variation(1), variation(2)}, {"tag"})});
  EXPECT_EQ(kContents.unserialize(text), Contents{property("id", Types::UNKNOWN, {}, {"tag"})});
}

TEST(ReportContentsFormatTest, ANanIsWrittenAsNullAndItsVariationIsNotReadBack) {
  const std::string text = MetadataProperty<Contents>::serialize({property(
      "id", Types::DOUBLE,
      {doubleVariation(std::numeric_limits<double>::quiet_NaN(), 1), doubleVariation(2.5, 2)})});
  EXPECT_EQ(text, bare("DOUBLE", R"([{"double":null,"sensitivity_level":1},)"
                                 R"({"double":2.5,"sensitivity_level":2}])"));
  EXPECT_EQ(kContents.unserialize(text),
            Contents{property("id", Types::DOUBLE, {doubleVariation(2.5, 2)})});
}

TEST(ReportContentsFormatTest, InfinitiesAreWrittenAsNumbersThatNoDoubleHolds) {
  const double infinity = std::numeric_limits<double>::infinity();
  EXPECT_EQ(
      MetadataProperty<Contents>::serialize({property(
          "id", Types::DOUBLE, {doubleVariation(infinity, 1), doubleVariation(-infinity, 2)})}),
      bare("DOUBLE", R"([{"double":1e+9999,"sensitivity_level":1},)"
                     R"({"double":-1e+9999,"sensitivity_level":2}])"));
}

Variation randomVariation(std::mt19937& random, Types type) {
  const int level =
      randomNumber(random, std::numeric_limits<int>::min(), std::numeric_limits<int>::max());
  switch (type) {
    case Types::FILE:
      return fileVariation(randomText(random, 12), level);
    case Types::STRING:
      return stringVariation(randomText(random, 12), level);
    case Types::INTEGER:
      return integerVariation(
          randomNumber(random, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()),
          level);
    case Types::DOUBLE:
      return doubleVariation(std::ldexp(std::uniform_real_distribution<>(-1, 1)(random),
                                        randomNumber(random, -900, 900)),
                             level);
    default:
      return booleanVariation(randomNumber(random, 0, 1) == 1, level);
  }
}

Property randomProperty(std::mt19937& random) {
  Property made = property(randomText(random, 8), static_cast<Types>(randomNumber(random, 0, 5)));
  made.media_type = randomText(random, 6);
  for (int i = randomNumber(random, 0, 3); i > 0; --i)
    made.tags.insert(randomText(random, 4));
  if (made.property_type != Types::UNKNOWN) {
    for (int i = randomNumber(random, 0, 4); i > 0; --i) {
      made.variations.push_back(randomVariation(random, made.property_type));
    }
  }
  return made;
}

TEST(ReportContentsFormatTest, RandomContentsComeBackAsTheyWere) {
  SCOPED_TRACE(seedNote());
  std::mt19937 random(testSeed());
  const LogCapture log;
  for (int i = 0; i < 2000; ++i) {
    Contents contents;
    for (int j = randomNumber(random, 0, 5); j > 0; --j)
      contents.push_back(randomProperty(random));
    const std::string text = MetadataProperty<Contents>::serialize(contents);
    ASSERT_EQ(text.find_first_of("\n\t"), std::string::npos);
    ASSERT_EQ(kContents.unserialize(text), contents) << text;
  }
  EXPECT_EQ(log.lines(), std::vector<LogLine>());
}

}  // namespace
}  // namespace KELP::Diagnostic
