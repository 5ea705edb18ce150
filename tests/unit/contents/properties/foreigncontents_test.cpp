// Contents that somebody else wrote: damaged, of other shapes, or nested deeply.

#include "unit/contents/properties/contentmutators.h"
#include "unit/contents/properties/contentqueries.h"
#include "unit/contents/properties/typefamilies.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Optional;

std::string repeated(const std::string& text, std::size_t times) {
  std::string all;
  for (std::size_t i = 0; i < times; ++i) {
    all += text;
  }
  return all;
}

std::string nestedArrays(std::size_t depth) {
  return repeated("[", depth) + repeated("]", depth);
}

struct Damage {
  std::string name;
  std::string text;
};

std::ostream& operator<<(std::ostream& out, const Damage& damage) {
  return out << damage.name;
}

std::vector<Damage> damages() {
  return {
      {"Words", "not json"},
      {"Nothing", ""},
      {"Object", "{}"},
      {"PropertyWithoutList", R"({"stable_id":"string","property_type":"STRING"})"},
      {"Null", "null"},
      {"Number", "42"},
      {"String", R"("string")"},
      {"Unfinished", R"([{"stable_id":"string","property_type":"STRING"})"},
      {"UnfinishedString", R"([{"stable_id":"string)"},
      {"Formats", "[%s%n%d"},
      {"Binary", "\xff\xfe\x01"},
      {"DeepArrays", nestedArrays(100'000)},
      {"DeepObjects", repeated(R"([{"a":)", 5000) + "1" + repeated("}]", 5000)},
  };
}

class DamagedContents : public ContentsTest, public testing::WithParamInterface<Damage> {
 protected:
  DamagedContents() { storeContentsText(GetParam().text); }

  /** Expects one line about the damage and, after it, @p line unless that is empty. */
  void expectLines(const std::string& line) {
    std::vector<LogLine> lines = log_.take();
    if (!line.empty()) {
      ASSERT_FALSE(lines.empty());
      EXPECT_EQ(lines.back(), errorLine(line));
      lines.pop_back();
    }
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0], errorLine(lines[0].text));
    EXPECT_THAT(lines[0].text,
                testing::StartsWith("Failed to parse json data: " + GetParam().text + ", error: "));
  }
};

TEST_P(DamagedContents, AreNoContentsToQueries) {
  unlock();
  const Snapshot before = snapshot();
  EXPECT_EQ(report().getReportContents(), std::nullopt);
  expectLines("");
  for (const ContentQuery& query : allQueries()) {
    SCOPED_TRACE(query.name);
    EXPECT_FALSE(query.finds(report(), "string"));
    expectLines(query.line);
  }
  expectSame(before);
}

TEST_P(DamagedContents, AreRefusedByChangesOfWhatIsThere) {
  unlock();
  for (const ContentMutator& mutator : contentMutators()) {
    if (!mutator.withoutContents) {
      continue;
    }
    SCOPED_TRACE(mutator.name);
    const Snapshot before = snapshot();
    EXPECT_THAT(mutator.call(report()), Refuses(mutator.withoutContents->message));
    expectLines(mutator.withoutContents->line);
    expectSame(before);
  }
}

TEST_P(DamagedContents, AreReplacedByANewProperty) {
  for (const ContentMutator& mutator : contentMutators()) {
    if (mutator.withoutContents) {
      continue;
    }
    SCOPED_TRACE(mutator.name);
    storeContentsText(GetParam().text);
    Contents expected;
    mutator.change(expected);
    EXPECT_THAT(mutator.call(report()), Succeeds());
    expectLines("");
    EXPECT_EQ(stored(kContentsKey), textOf(expected));
  }
}

TEST_P(DamagedContents, AreReadAfterTheStampOfACreation) {
  unlock();
  expectRefused(plain(kTouchRefusal),
                [](Report& r) { return r.createReportStringProperty("new", {}); });
}

INSTANTIATE_TEST_SUITE_P(All, DamagedContents, testing::ValuesIn(damages()),
                         [](const auto& all) { return all.param.name; });

class ForeignContents : public ContentsTest {
 protected:
  /** Expects @p text to read as @p expected, without a word. */
  void expectRead(const std::string& text, const Contents& expected) {
    storeContentsText(text);
    EXPECT_THAT(report().getReportContents(), Optional(expected)) << text;
    EXPECT_THAT(log_.take(), IsEmpty());
    EXPECT_EQ(stored(kContentsKey), text);
  }
};

TEST_F(ForeignContents, MayBeFormattedAndOrderedDifferently) {
  Property expected{"name", Type::STRING, "type", {"a", "b"}, {}};
  expected.variations = {variationWith<std::string>(1, &Variation::string, "v")};
  expectRead(R"( [ // a comment
    { "variations": [ {"sensitivity_level": 1, "more": [], "string": "v"} ],
      "tags": ["b", "a", "b"], "media_type": "type", "more": {},
      "property_type": "STRING", "stable_id": "name" } ]
)",
             {expected});
}

TEST_F(ForeignContents, ElementsThatAreNoPropertiesAreSkipped) {
  expectRead(R"([null, 1, "name", [], {}, {"stable_id":1}, {"stable_id":null}, {"Stable_id":"x"},
                 {"stable_id":["x"]}, {"stable_id":"name"}, true])",
             {{"name", Type::UNKNOWN, "", {}, {}}});
  expectRead(R"([{"stable_id":1}])", {});
  expectRead("[]", {});
}

TEST_F(ForeignContents, TypesAreReadByTheirExactNames) {
  for (const char* type : {R"("string")", R"("String")", R"("bogus")", R"("UNKNOWN")", R"("")", "2",
                           "null", R"(["STRING"])", R"("STRING ")"}) {
    expectRead(std::string(R"([{"stable_id":"n","property_type":)") + type +
                   R"(,"variations":[{"string":"v","sensitivity_level":1}]}])",
               {{"n", Type::UNKNOWN, "", {}, {}}});
  }
}

TEST_F(ForeignContents, MembersOfOtherTypesAreAbsent) {
  for (const char* value : {"null", "7", "true", "{}", R"({"a":"b"})"}) {
    const std::string v = value;
    expectRead(R"([{"stable_id":"n","property_type":"FILE","media_type":)" + v + R"(,"tags":)" + v +
                   R"(,"variations":)" + v + "}]",
               {{"n", Type::FILE, "", {}, {}}});
  }
  expectRead(R"([{"stable_id":"n","property_type":"FILE","media_type":[],"tags":"a",)"
             R"("variations":"b"}])",
             {{"n", Type::FILE, "", {}, {}}});
}

TEST_F(ForeignContents, TagsThatAreNoStringsAreSkipped) {
  expectRead(R"([{"stable_id":"n","tags":["b",1,null,["c"],"a",true,"b",""]}])",
             {{"n", Type::UNKNOWN, "", {"", "a", "b"}, {}}});
}

TEST_F(ForeignContents, VariationsWithoutTheTypesValueAreSkipped) {
  const std::string all =
      R"("variations":[1,null,"v",[],{},{"sensitivity_level":1},)"
      R"({"relative_path":"p","sensitivity_level":2},{"string":"s","sensitivity_level":3},)"
      R"({"integer":4,"sensitivity_level":4},{"double":0.5,"sensitivity_level":5},)"
      R"({"boolean":true,"sensitivity_level":6},)"
      R"({"relative_path":1,"string":null,"integer":"1","double":"0.5","boolean":1,)"
      R"("sensitivity_level":7}]}])";
  const auto read = [&](const std::string& type, Type expectedType,
                        const std::vector<Variation>& expected) {
    expectRead(R"([{"stable_id":"n","property_type":")" + type + "\"," + all,
               {{"n", expectedType, "", {}, expected}});
  };
  read("FILE", Type::FILE, {variationWith<std::string>(2, &Variation::relative_path, "p")});
  read("STRING", Type::STRING, {variationWith<std::string>(3, &Variation::string, "s")});
  read("INTEGER", Type::INTEGER, {variationWith(4, &Variation::integer, 4)});
  read("DOUBLE", Type::DOUBLE, {variationWith(5, &Variation::double_, 0.5)});
  read("BOOLEAN", Type::BOOLEAN, {variationWith(6, &Variation::boolean, true)});
}

TEST_F(ForeignContents, WhatIsSkippedIsGoneWithTheNextChange) {
  storeContentsText(R"([null,{"stable_id":"n","property_type":"STRING","more":1,)"
                    R"("variations":[{"string":1,"sensitivity_level":1}]},{"stable_id":2}])");
  expectStored({{"n", Type::STRING, "", {"tag"}, {}}},
               [](Report& r) { return r.addTagToContentProperty("n", "tag"); });
}

TEST_F(ForeignContents, SkippedVariationsDoNotOccupyTheirLevel) {
  storeContentsText(R"([{"stable_id":"n","property_type":"STRING",)"
                    R"("variations":[{"integer":1,"sensitivity_level":1}]}])");
  const Property expected{
      "n", Type::STRING, "", {}, {variationWith<std::string>(1, &Variation::string, "v")}};
  expectStored({expected},
               [](Report& r) { return r.addReportStringVariation("n", 1, "v", false); });
}

TEST_F(ForeignContents, AreReadAsDeepAsTheJsonLibraryGoes) {
  // The list and the property are the first two of a thousand.
  const auto property = [](std::size_t depth) {
    return R"([{"stable_id":"n","media_type":)" + nestedArrays(depth) + "}]";
  };
  expectRead(property(998), {{"n", Type::UNKNOWN, "", {}, {}}});
  storeContentsText(property(999));
  EXPECT_EQ(report().getReportContents(), std::nullopt);
  const std::string start = "Failed to parse json data: " + property(999) + ", error: ";
  EXPECT_THAT(log_.take(), ElementsAre(testing::AllOf(
                               testing::Field(&LogLine::priority, kError),
                               testing::Field(&LogLine::text, testing::StartsWith(start)))));
}

}  // namespace
}  // namespace KELP::Diagnostic
