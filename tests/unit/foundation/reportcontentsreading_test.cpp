// Reading stored contents that this library would not have written: each defect costs the one
// element or variation that has it, and nothing is said about it.

#include "support/logcapture.h"
#include "unit/foundation/contents.h"
#include "unit/foundation/jsonreader.h"
#include "unit/foundation/namedcase.h"

#include <diagnostic/metadataproperty.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <optional>
#include <set>
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
using Test::parseFailureLine;
using Test::Property;
using Test::property;
using Test::readAsJson;
using Test::stringVariation;
using Test::Types;
using Test::Variation;
using Contents = std::vector<Property>;

constexpr std::int32_t kLargest = std::numeric_limits<std::int32_t>::max();
constexpr std::int32_t kSmallest = std::numeric_limits<std::int32_t>::min();

const MetadataProperty<Contents> kContents("report_contents", std::nullopt);

void expectReadAs(const std::string& text, const Contents& contents) {
  const LogCapture log;
  EXPECT_EQ(kContents.unserialize(text), contents) << text;
  EXPECT_EQ(log.lines(), std::vector<LogLine>()) << text;
}

struct ContentsText : NamedCase {
  std::string text;
  Contents contents;
};

class ContentsReadingTest : public testing::TestWithParam<ContentsText> {};

TEST_P(ContentsReadingTest, ReadsAsTheseContentsWithoutALine) {
  expectReadAs(GetParam().text, GetParam().contents);
}

const Property kKept = property("kept", Types::UNKNOWN);

INSTANTIATE_TEST_SUITE_P(
    Elements, ContentsReadingTest,
    testing::Values(
        ContentsText{{"IdAlone"}, R"([{"stable_id":"kept"}])", {kKept}},
        ContentsText{{"EmptyId"}, R"([{"stable_id":""}])", {Property()}},
        ContentsText{{"NumberAsId"}, R"([{"stable_id":1}])", {}},
        ContentsText{{"NoId"}, R"([{"property_type":"FILE"},{"stable_id":"kept"}])", {kKept}},
        ContentsText{{"NullAsId"}, R"([{"stable_id":null},{"stable_id":"kept"}])", {kKept}},
        ContentsText{{"BooleanAsId"}, R"([{"stable_id":true},{"stable_id":"kept"}])", {kKept}},
        ContentsText{{"ListAsId"}, R"([{"stable_id":["a"]},{"stable_id":"kept"}])", {kKept}},
        ContentsText{{"ObjectAsId"}, R"([{"stable_id":{"a":"b"}},{"stable_id":"kept"}])", {kKept}},
        ContentsText{{"OtherCaseOfId"}, R"([{"Stable_Id":"a"},{"stable_id":"kept"}])", {kKept}},
        ContentsText{{"EmptyObject"}, R"([{},{"stable_id":"kept"}])", {kKept}},
        ContentsText{{"NullElement"}, R"([null,{"stable_id":"kept"}])", {kKept}},
        ContentsText{{"StringElement"}, R"(["stable_id",{"stable_id":"kept"}])", {kKept}},
        ContentsText{{"NumberElement"}, R"([1,-1.5,true,{"stable_id":"kept"}])", {kKept}},
        ContentsText{{"ListElement"}, R"([[{"stable_id":"inner"}],{"stable_id":"kept"}])", {kKept}},
        ContentsText{
            {"TheSameIdTwice"}, R"([{"stable_id":"kept"},{"stable_id":"kept"}])", {kKept, kKept}},
        ContentsText{
            {"UnknownMembers"}, R"([{"stable_id":"kept","more":{"stable_id":"x"}}])", {kKept}},
        ContentsText{{"NulInId"},
                     "[{\"stable_id\":\"a\\u0000b\"}]",
                     {property(std::string("a\0b", 3), Types::UNKNOWN)}}),
    CaseName());

/** One property "kept" with a member more. */
std::string withMember(const std::string& member) {
  return R"([{"stable_id":"kept",)" + member + "}]";
}

Property kept(Types type) {
  return property("kept", type);
}
Property keptWithTags(std::set<std::string> tags) {
  return property("kept", Types::UNKNOWN, {}, std::move(tags));
}
Property keptWithMediaType(std::string type) {
  return property("kept", Types::UNKNOWN, {}, {}, std::move(type));
}

INSTANTIATE_TEST_SUITE_P(
    PropertyType, ContentsReadingTest,
    testing::Values(
        ContentsText{{"File"}, withMember(R"("property_type":"FILE")"), {kept(Types::FILE)}},
        ContentsText{
            {"Boolean"}, withMember(R"("property_type":"BOOLEAN")"), {kept(Types::BOOLEAN)}},
        ContentsText{{"Unknown"}, withMember(R"("property_type":"UNKNOWN")"), {kKept}},
        ContentsText{{"Bogus"}, withMember(R"("property_type":"bogus")"), {kKept}},
        ContentsText{{"LowerCase"}, withMember(R"("property_type":"file")"), {kKept}},
        ContentsText{{"Empty"}, withMember(R"("property_type":"")"), {kKept}},
        ContentsText{{"Number"}, withMember(R"("property_type":1)"), {kKept}},
        ContentsText{{"Null"}, withMember(R"("property_type":null)"), {kKept}},
        ContentsText{{"True"}, withMember(R"("property_type":true)"), {kKept}},
        ContentsText{{"List"}, withMember(R"("property_type":["FILE"])"), {kKept}},
        ContentsText{{"Object"}, withMember(R"("property_type":{"FILE":1})"), {kKept}}),
    CaseName());

INSTANTIATE_TEST_SUITE_P(
    MediaType, ContentsReadingTest,
    testing::Values(
        ContentsText{{"String"}, withMember(R"("media_type":"a/b")"), {keptWithMediaType("a/b")}},
        ContentsText{{"Empty"}, withMember(R"("media_type":"")"), {kKept}},
        ContentsText{{"Number"}, withMember(R"("media_type":1)"), {kKept}},
        ContentsText{{"Null"}, withMember(R"("media_type":null)"), {kKept}},
        ContentsText{{"True"}, withMember(R"("media_type":true)"), {kKept}},
        ContentsText{{"List"}, withMember(R"("media_type":["a/b"])"), {kKept}},
        ContentsText{{"Object"}, withMember(R"("media_type":{"a":"b"})"), {kKept}}),
    CaseName());

INSTANTIATE_TEST_SUITE_P(
    Tags, ContentsReadingTest,
    testing::Values(
        ContentsText{{"Some"}, withMember(R"("tags":["b","a"])"), {keptWithTags({"a", "b"})}},
        ContentsText{{"Duplicates"}, withMember(R"("tags":["a","a"])"), {keptWithTags({"a"})}},
        ContentsText{{"EmptyTag"}, withMember(R"("tags":[""])"), {keptWithTags({""})}},
        ContentsText{{"OtherTypesBetween"},
                     withMember(R"("tags":["a",1,null,true,1.5,["x"],{"y":"z"},"b"])"),
                     {keptWithTags({"a", "b"})}},
        ContentsText{{"OnlyOtherTypes"}, withMember(R"("tags":[1,null])"), {kKept}},
        ContentsText{{"EmptyList"}, withMember(R"("tags":[])"), {kKept}},
        ContentsText{{"Null"}, withMember(R"("tags":null)"), {kKept}},
        ContentsText{{"String"}, withMember(R"("tags":"a")"), {kKept}},
        ContentsText{{"Number"}, withMember(R"("tags":1)"), {kKept}},
        ContentsText{{"True"}, withMember(R"("tags":true)"), {kKept}},
        ContentsText{{"Object"}, withMember(R"("tags":{"a":"b"})"), {kKept}}),
    CaseName());

/** A BOOLEAN property "kept" whose "variations" are @p json. */
std::string withVariations(const std::string& json) {
  return withMember(R"("property_type":"BOOLEAN","variations":)" + json);
}

const Property kNoVariations = kept(Types::BOOLEAN);
const Property kOneVariation = property("kept", Types::BOOLEAN, {booleanVariation(true, 1)});

INSTANTIATE_TEST_SUITE_P(
    VariationLists, ContentsReadingTest,
    testing::Values(
        ContentsText{{"EmptyList"}, withVariations("[]"), {kNoVariations}},
        ContentsText{{"Null"}, withVariations("null"), {kNoVariations}},
        ContentsText{{"String"}, withVariations("\"x\""), {kNoVariations}},
        ContentsText{{"Number"}, withVariations("1"), {kNoVariations}},
        ContentsText{{"True"}, withVariations("true"), {kNoVariations}},
        ContentsText{{"ObjectInPlaceOfTheList"},
                     withVariations(R"({"boolean":true,"sensitivity_level":1})"),
                     {kNoVariations}},
        ContentsText{{"ObjectOfObjects"},
                     withVariations(R"({"0":{"boolean":true,"sensitivity_level":1}})"),
                     {kNoVariations}},
        ContentsText{
            {"OtherTypesBetween"},
            withVariations(R"([null,1,"x",true,[],[{"boolean":true,"sensitivity_level":1}],)"
                           R"({},{"boolean":true,"sensitivity_level":1}])"),
            {kOneVariation}},
        ContentsText{{"MembersInAnyOrder"},
                     R"([{"variations":[{"sensitivity_level":1,"boolean":true}],)"
                     R"("property_type":"BOOLEAN","stable_id":"kept"}])",
                     {kOneVariation}}),
    CaseName());

/** How a property of a type reads the value member of its variations. */
struct MemberText : NamedCase {
  Types type;
  /** The variation's members, "sensitivity_level" aside. */
  std::string members;
  /** What is read; empty when the variation is skipped. */
  std::optional<Variation> read;
};

class VariationMemberTest : public testing::TestWithParam<MemberText> {};

TEST_P(VariationMemberTest, ReadsAsThisVariationOrIsSkippedAloneWithoutALine) {
  const MemberText& row = GetParam();
  const std::string name(DiagnosticReportContentPropertyTypesToString(row.type));
  Property expected = property("kept", row.type);
  if (row.read) expected.variations = {*row.read};
  expectReadAs(R"([{"stable_id":"kept","property_type":")" + name + R"(","variations":[{)" +
                   row.members + R"("sensitivity_level":1}]},{"stable_id":"next"}])",
               {expected, property("next", Types::UNKNOWN)});
}

/** Rows for @p member of @p type with each JSON text that is not of its type. */
std::vector<MemberText> wrongTypes(Types type, const std::string& member,
                                   const std::vector<std::pair<std::string, std::string>>& texts) {
  std::vector<MemberText> rows{{{"Missing"}, type, "", std::nullopt}};
  for (const auto& [name, json] : texts) {
    rows.push_back({{name}, type, "\"" + member + "\":" + json + ",", std::nullopt});
  }
  return rows;
}

const std::vector<std::pair<std::string, std::string>> kNoStrings{
    {"Number", "1"},  {"Real", "1.5"},     {"True", "true"},
    {"Null", "null"}, {"List", "[\"a\"]"}, {"Object", R"({"a":"b"})"}};
const std::vector<std::pair<std::string, std::string>> kNoNumbers{
    {"String", "\"7\""}, {"EmptyString", "\"\""}, {"True", "true"}, {"False", "false"},
    {"Null", "null"},    {"List", "[7]"},         {"Object", "{}"}};
const std::vector<std::pair<std::string, std::string>> kNoBooleans{
    {"One", "1"},     {"Zero", "0"},      {"Real", "1.0"}, {"String", "\"true\""},
    {"Null", "null"}, {"List", "[true]"}, {"Object", "{}"}};
const std::vector<std::pair<std::string, std::string>> kNo32BitIntegers{
    {"Fraction", "7.5"},
    {"JustAbove", "2147483648"},
    {"JustBelow", "-2147483649"},
    {"RealJustAbove", "2147483648.0"},
    {"RealJustBelow", "-2147483649.0"},
    {"RealBetweenTheLargestAndTheNext", "2147483647.5"},
    {"Unsigned32", "4294967295"},
    {"WrappedToOne", "4294967297"},
    {"Large64", "9223372036854775807"},
    {"Small64", "-9223372036854775808"},
    {"Unsigned64", "18446744073709551615"},
    {"Beyond64", "99999999999999999999999999"},
    {"Exponent", "1e20"},
    {"NegativeExponent", "-1e300"},
    {"TinyFraction", "1e-300"}};

INSTANTIATE_TEST_SUITE_P(NoPath, VariationMemberTest,
                         testing::ValuesIn(wrongTypes(Types::FILE, "relative_path", kNoStrings)),
                         CaseName());
INSTANTIATE_TEST_SUITE_P(NoString, VariationMemberTest,
                         testing::ValuesIn(wrongTypes(Types::STRING, "string", kNoStrings)),
                         CaseName());
INSTANTIATE_TEST_SUITE_P(NoInteger, VariationMemberTest,
                         testing::ValuesIn(wrongTypes(Types::INTEGER, "integer", kNoNumbers)),
                         CaseName());
INSTANTIATE_TEST_SUITE_P(IntegerOutOfRange, VariationMemberTest,
                         testing::ValuesIn(wrongTypes(Types::INTEGER, "integer", kNo32BitIntegers)),
                         CaseName());
INSTANTIATE_TEST_SUITE_P(NoDouble, VariationMemberTest,
                         testing::ValuesIn(wrongTypes(Types::DOUBLE, "double", kNoNumbers)),
                         CaseName());
INSTANTIATE_TEST_SUITE_P(NoBoolean, VariationMemberTest,
                         testing::ValuesIn(wrongTypes(Types::BOOLEAN, "boolean", kNoBooleans)),
                         CaseName());

constexpr const char* kAllMembers =
    R"("relative_path":"p","string":"s","integer":3,"double":4.5,"boolean":true,)";

INSTANTIATE_TEST_SUITE_P(
    OnlyTheMemberOfTheType, VariationMemberTest,
    testing::Values(MemberText{{"File"}, Types::FILE, kAllMembers, fileVariation("p", 1)},
                    MemberText{{"String"}, Types::STRING, kAllMembers, stringVariation("s", 1)},
                    MemberText{{"Integer"}, Types::INTEGER, kAllMembers, integerVariation(3, 1)},
                    MemberText{{"Double"}, Types::DOUBLE, kAllMembers, doubleVariation(4.5, 1)},
                    MemberText{{"Boolean"}, Types::BOOLEAN, kAllMembers, booleanVariation(true, 1)},
                    MemberText{{"Unknown"}, Types::UNKNOWN, kAllMembers, std::nullopt},
                    MemberText{{"UnknownWithout"}, Types::UNKNOWN, "", std::nullopt}),
    CaseName());

MemberText integerText(const char* name, const std::string& json, std::int32_t value) {
  return {{name}, Types::INTEGER, R"("integer":)" + json + ",", integerVariation(value, 1)};
}

INSTANTIATE_TEST_SUITE_P(Integer, VariationMemberTest,
                         testing::Values(integerText("Zero", "0", 0),
                                         integerText("Negative", "-7", -7),
                                         integerText("Largest", "2147483647", kLargest),
                                         integerText("Smallest", "-2147483648", kSmallest),
                                         integerText("WholeReal", "7.0", 7),
                                         integerText("NegativeWholeReal", "-7.0", -7),
                                         integerText("Exponent", "12e2", 1200),
                                         integerText("RealLargest", "2147483647.0", kLargest),
                                         integerText("RealSmallest", "-2147483648.0", kSmallest),
                                         integerText("NegativeZero", "-0", 0),
                                         integerText("RealNegativeZero", "-0.0", 0)),
                         CaseName());

MemberText doubleText(const char* name, const std::string& json, double value) {
  return {{name}, Types::DOUBLE, R"("double":)" + json + ",", doubleVariation(value, 1)};
}

INSTANTIATE_TEST_SUITE_P(
    Double, VariationMemberTest,
    testing::Values(doubleText("Integer", "3", 3.0), doubleText("NegativeInteger", "-3", -3.0),
                    doubleText("Large64", "9223372036854775807", 9223372036854775807.0),
                    doubleText("Unsigned64", "18446744073709551615", 18446744073709551615.0),
                    doubleText("Beyond64", "100000000000000000000", 1e20),
                    doubleText("Exponent", "1e300", 1e300), doubleText("Real", "0.1", 0.1)),
    CaseName());

INSTANTIATE_TEST_SUITE_P(
    Text, VariationMemberTest,
    testing::Values(
        MemberText{{"EmptyPath"}, Types::FILE, R"("relative_path":"",)", fileVariation("", 1)},
        MemberText{{"EmptyString"}, Types::STRING, R"("string":"",)", stringVariation("", 1)},
        MemberText{{"NulInString"},
                   Types::STRING,
                   "\"string\":\"a\\u0000b\",",
                   stringVariation(std::string("a\0b", 3), 1)},
        MemberText{{"False"}, Types::BOOLEAN, R"("boolean":false,)", booleanVariation(false, 1)},
        MemberText{{"UnknownMembers"},
                   Types::STRING,
                   R"("string":"s","more":[{}],)",
                   stringVariation("s", 1)}),
    CaseName());

/** How "sensitivity_level" is read. */
struct LevelText : NamedCase {
  /** The member with its comma, or nothing. */
  std::string member;
  std::optional<std::int32_t> level;
};

class SensitivityLevelTest : public testing::TestWithParam<LevelText> {};

TEST_P(SensitivityLevelTest, ReadsAsThisLevelOrTheVariationIsSkippedAloneWithoutALine) {
  const std::vector<std::pair<std::string, Variation>> forms{
      {R"("property_type":"FILE","variations":[{MEMBER"relative_path":"p"},)",
       fileVariation("p", 0)},
      {R"("property_type":"STRING","variations":[{MEMBER"string":"s"},)", stringVariation("s", 0)},
      {R"("property_type":"INTEGER","variations":[{MEMBER"integer":3},)", integerVariation(3, 0)},
      {R"("property_type":"DOUBLE","variations":[{MEMBER"double":4.5},)", doubleVariation(4.5, 0)},
      {R"("property_type":"BOOLEAN","variations":[{MEMBER"boolean":true},)",
       booleanVariation(true, 0)}};
  for (std::size_t i = 0; i < forms.size(); ++i) {
    auto [text, read] = forms[i];
    text.replace(text.find("MEMBER"), 6, GetParam().member);
    Property expected = property("kept", static_cast<Types>(i + 1));
    if (GetParam().level) {
      read.sensitivity_level = *GetParam().level;
      expected.variations = {read};
    }
    expectReadAs(withMember(text + "null]"), {expected});
  }
}

LevelText levelText(const char* name, const std::string& json, std::optional<std::int32_t> level) {
  return {{name}, R"("sensitivity_level":)" + json + ",", level};
}

std::vector<LevelText> noLevels() {
  std::vector<LevelText> rows{{{"Missing"}, "", std::nullopt},
                              levelText("WholeReal", "2.0", std::nullopt),
                              levelText("RealZero", "0.0", std::nullopt),
                              levelText("WholeExponent", "1e3", std::nullopt)};
  for (const auto* texts : {&kNoNumbers, &kNo32BitIntegers}) {
    for (const auto& [name, json] : *texts) {
      rows.push_back(levelText(name.c_str(), json, std::nullopt));
    }
  }
  return rows;
}

INSTANTIATE_TEST_SUITE_P(NoLevels, SensitivityLevelTest, testing::ValuesIn(noLevels()), CaseName());

INSTANTIATE_TEST_SUITE_P(Levels, SensitivityLevelTest,
                         testing::Values(levelText("Zero", "0", 0), levelText("Two", "2", 2),
                                         levelText("Negative", "-1", -1),
                                         levelText("NegativeZero", "-0", 0),
                                         levelText("Initial", "9999", 9999),
                                         levelText("Largest", "2147483647", kLargest),
                                         levelText("Smallest", "-2147483648", kSmallest)),
                         CaseName());

TEST(ReportContentsReadingTest, ANumberThatNoDoubleHoldsIsLeftToTheJsonLibrary) {
  const std::string text = withMember(
      R"("property_type":"DOUBLE","variations":[{"double":1e+9999,"sensitivity_level":1}])");
  const auto reading = readAsJson(text);
  if (reading.root) {
    expectReadAs(text, {property("kept", Types::DOUBLE,
                                 {doubleVariation(std::numeric_limits<double>::infinity(), 1)})});
  } else {
    const LogCapture log;
    EXPECT_EQ(kContents.unserialize(text), std::nullopt);
    EXPECT_EQ(log.lines(), std::vector{parseFailureLine(text, reading.words)});
  }
}

TEST(ReportContentsReadingTest, OfAMemberThatComesTwiceTheLastOneCounts) {
  expectReadAs(R"([{"stable_id":"lost","stable_id":"kept"}])", {kKept});
}

TEST(ReportContentsReadingTest, DeepJsonWithinAnElementIsSkippedUpToTheLimitOfTheReader) {
  const std::string deep = std::string(990, '[') + std::string(990, ']');
  expectReadAs(withMember("\"more\":" + deep), {kKept});
  expectReadAs(withMember("\"tags\":" + deep), {kKept});
  expectReadAs(withMember("\"variations\":" + deep), {kKept});
}

}  // namespace
}  // namespace KELP::Diagnostic
