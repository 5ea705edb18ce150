#include "unit/foundation/contents.h"
#include "unit/foundation/namedcase.h"

#include <diagnostic/reportcontentproperties.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <set>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace KELP::Diagnostic {
namespace {

using Test::CaseName;
using Test::doubleVariation;
using Test::fileVariation;
using Test::integerVariation;
using Test::NamedCase;
using Test::Property;
using Test::property;
using Test::stringVariation;
using Test::Types;
using Test::Variation;

static_assert(std::is_same_v<std::underlying_type_t<Types>, std::int32_t>);
static_assert(static_cast<int>(Types::UNKNOWN) == 0);
static_assert(static_cast<int>(Types::FILE) == 1);
static_assert(static_cast<int>(Types::STRING) == 2);
static_assert(static_cast<int>(Types::INTEGER) == 3);
static_assert(static_cast<int>(Types::DOUBLE) == 4);
static_assert(static_cast<int>(Types::BOOLEAN) == 5);

static_assert(std::is_same_v<decltype(Variation::integer), std::int32_t>);
static_assert(std::is_same_v<decltype(Variation::sensitivity_level), std::int32_t>);
static_assert(std::is_same_v<decltype(Variation::double_), double>);
static_assert(!std::is_polymorphic_v<Variation> && !std::is_polymorphic_v<Property>);
static_assert(std::is_nothrow_move_constructible_v<Variation>);
static_assert(std::is_copy_assignable_v<Property> && std::is_move_assignable_v<Property>);

const std::vector<std::pair<Types, std::string_view>> kNames{
    {Types::UNKNOWN, "UNKNOWN"}, {Types::FILE, "FILE"},     {Types::STRING, "STRING"},
    {Types::INTEGER, "INTEGER"}, {Types::DOUBLE, "DOUBLE"}, {Types::BOOLEAN, "BOOLEAN"}};

TEST(ContentPropertyTypesTest, EveryTypeHasAName) {
  for (const auto& [type, name] : kNames) {
    EXPECT_EQ(DiagnosticReportContentPropertyTypesToString(type), name);
    EXPECT_EQ(StringToDiagnosticReportContentPropertyTypes(name), type);
  }
}

TEST(ContentPropertyTypesTest, AValueThatIsNoTypeIsCalledUnknown) {
  for (const int value :
       {6, -1, 7, 256, 0x10001, std::numeric_limits<int>::max(), std::numeric_limits<int>::min()}) {
    EXPECT_EQ(DiagnosticReportContentPropertyTypesToString(static_cast<Types>(value)), "UNKNOWN");
  }
}

TEST(ContentPropertyTypesTest, AnyOtherTextIsUnknown) {
  for (const std::string_view text :
       {std::string_view(), std::string_view(""), std::string_view("string"),
        std::string_view("file"), std::string_view("File"), std::string_view("FILE "),
        std::string_view(" FILE"), std::string_view("FIL"), std::string_view("FILES"),
        std::string_view("FILE\0", 5), std::string_view("bogus"), std::string_view("1")}) {
    EXPECT_EQ(StringToDiagnosticReportContentPropertyTypes(text), Types::UNKNOWN) << text;
  }
}

TEST(ContentPropertyTypesTest, ANameNeedNotEndInANul) {
  EXPECT_EQ(StringToDiagnosticReportContentPropertyTypes(std::string_view("DOUBLET").substr(0, 6)),
            Types::DOUBLE);
}

TEST(ContentVariationTest, HasItsInitialValues) {
  const Variation initial;
  EXPECT_EQ(initial.relative_path, "");
  EXPECT_EQ(initial.string, "");
  EXPECT_EQ(initial.integer, 0);
  EXPECT_EQ(initial.double_, 0.0);
  EXPECT_FALSE(initial.boolean);
  EXPECT_EQ(initial.sensitivity_level, 9999);
}

TEST(ContentVariationTest, HasItsFieldsInTheirOrder) {
  const Variation made{"path", "string", 3, 4.5, true, 6};
  EXPECT_EQ(made.relative_path, "path");
  EXPECT_EQ(made.string, "string");
  EXPECT_EQ(made.integer, 3);
  EXPECT_EQ(made.double_, 4.5);
  EXPECT_TRUE(made.boolean);
  EXPECT_EQ(made.sensitivity_level, 6);
}

TEST(ContentPropertyTest, HasItsInitialValues) {
  const Property initial;
  EXPECT_EQ(initial.stable_id, "");
  EXPECT_EQ(initial.property_type, Types::UNKNOWN);
  EXPECT_EQ(initial.media_type, "");
  EXPECT_TRUE(initial.tags.empty());
  EXPECT_TRUE(initial.variations.empty());
}

TEST(ContentPropertyTest, HasItsFieldsInTheirOrder) {
  const Property made{"id", Types::FILE, "image/png", {"b", "a", "b"}, {fileVariation("f", 1)}};
  EXPECT_EQ(made.stable_id, "id");
  EXPECT_EQ(made.property_type, Types::FILE);
  EXPECT_EQ(made.media_type, "image/png");
  EXPECT_EQ(made.tags, (std::set<std::string>{"a", "b"}));
  EXPECT_EQ(made.variations, std::vector{fileVariation("f", 1)});
}

TEST(ContentPropertyTest, OnlyAFilePropertyIsOne) {
  for (int value = -1; value <= 6; ++value) {
    EXPECT_EQ(property("id", static_cast<Types>(value)).isFileProperty(), value == 1) << value;
  }
}

TEST(ContentPropertyTest, CopiesAreEqualAndIndependentAndMovesTakeTheContent) {
  const Property original =
      property("id", Types::STRING, {stringVariation("s", 1)}, {"tag"}, "text/plain");
  Property copy(original);
  EXPECT_EQ(copy, original);
  copy.variations[0].string = "other";
  EXPECT_EQ(original.variations[0].string, "s");
  copy = original;
  const Property moved(std::move(copy));
  EXPECT_EQ(moved, original);
  Property assigned;
  assigned = Property(original);
  EXPECT_EQ(assigned, original);
}

template <typename Record>
void expectEqual(const Record& a, const Record& b, bool equal) {
  EXPECT_EQ(a == b, equal);
  EXPECT_EQ(b == a, equal);
  EXPECT_EQ(a != b, !equal);
  EXPECT_EQ(b != a, !equal);
}

/** A record is unequal to the original after a change, and equal to one that changed alike. */
template <typename Record>
void expectChangeCounts(const Record& original, void (*change)(Record&)) {
  Record changed = original;
  expectEqual(original, changed, true);
  change(changed);
  expectEqual(original, changed, false);
  Record changedToo = original;
  change(changedToo);
  expectEqual(changedToo, changed, true);
}

struct VariationChange : NamedCase {
  void (*apply)(Variation&);
};

class VariationEqualityTest : public testing::TestWithParam<VariationChange> {};

TEST_P(VariationEqualityTest, IsLostByTheChangeAndBackWithTheSameChange) {
  const Variation original{"path", "string", 3, 4.5, true, 6};
  expectChangeCounts(original, GetParam().apply);

  Variation changed = original;
  GetParam().apply(changed);
  expectEqual(property("id", Types::STRING, {original}), property("id", Types::STRING, {changed}),
              false);
}

INSTANTIATE_TEST_SUITE_P(
    Members, VariationEqualityTest,
    testing::Values(
        VariationChange{{"RelativePath"}, [](Variation& v) { v.relative_path = "Path"; }},
        VariationChange{{"RelativePathAfterNul"},
                        [](Variation& v) { v.relative_path.append("\0x", 2); }},
        VariationChange{{"String"}, [](Variation& v) { v.string += ' '; }},
        VariationChange{{"StringAfterNul"}, [](Variation& v) { v.string.append("\0x", 2); }},
        VariationChange{{"Integer"}, [](Variation& v) { v.integer = -3; }},
        VariationChange{{"Double"}, [](Variation& v) { v.double_ = 4.5000000000000009; }},
        VariationChange{{"Boolean"}, [](Variation& v) { v.boolean = false; }},
        VariationChange{{"SensitivityLevel"}, [](Variation& v) { v.sensitivity_level = 7; }}),
    CaseName());

TEST(ContentVariationTest, DoublesAreComparedAsNumbers) {
  expectEqual(doubleVariation(0.0, 1), doubleVariation(-0.0, 1), true);
  const double infinity = std::numeric_limits<double>::infinity();
  expectEqual(doubleVariation(infinity, 1), doubleVariation(infinity, 1), true);
  expectEqual(doubleVariation(infinity, 1), doubleVariation(-infinity, 1), false);
}

TEST(ContentVariationTest, ANanEqualsNothingNotEvenItself) {
  const Variation nan = doubleVariation(std::numeric_limits<double>::quiet_NaN(), 1);
  expectEqual(nan, nan, false);
  const Property holder = property("id", Types::DOUBLE, {nan});
  const Property copy = holder;
  expectEqual(holder, copy, false);
}

TEST(ContentVariationTest, ANanCountsInAnyVariationWhateverTheTypeOfItsProperty) {
  Variation odd = stringVariation("s", 1);
  odd.double_ = std::numeric_limits<double>::quiet_NaN();
  const Property holder = property("id", Types::STRING, {odd});
  expectEqual(holder, Property(holder), false);
}

struct PropertyChange : NamedCase {
  void (*apply)(Property&);
};

class PropertyEqualityTest : public testing::TestWithParam<PropertyChange> {};

TEST_P(PropertyEqualityTest, IsLostByTheChangeAndBackWithTheSameChange) {
  expectChangeCounts(
      property("id", Types::INTEGER, {integerVariation(1, 10), integerVariation(2, 20)},
               {"tag", "label"}, "text/plain"),
      GetParam().apply);
}

INSTANTIATE_TEST_SUITE_P(
    Members, PropertyEqualityTest,
    testing::Values(
        PropertyChange{{"StableId"}, [](Property& p) { p.stable_id = "ID"; }},
        PropertyChange{{"StableIdAfterNul"}, [](Property& p) { p.stable_id.append("\0x", 2); }},
        PropertyChange{{"Type"}, [](Property& p) { p.property_type = Types::DOUBLE; }},
        PropertyChange{{"MediaType"}, [](Property& p) { p.media_type = "Text/plain"; }},
        PropertyChange{{"MediaTypeAfterNul"}, [](Property& p) { p.media_type.append("\0x", 2); }},
        PropertyChange{{"OneTagMore"}, [](Property& p) { p.tags.insert("more"); }},
        PropertyChange{{"OneTagLess"}, [](Property& p) { p.tags.erase("tag"); }},
        PropertyChange{{"OtherTags"},
                       [](Property& p) {
                         p.tags = {"tag", "Label"};
                       }},
        PropertyChange{{"OneVariationMore"},
                       [](Property& p) { p.variations.push_back(integerVariation(3, 30)); }},
        PropertyChange{{"OneVariationLess"}, [](Property& p) { p.variations.pop_back(); }},
        PropertyChange{{"VariationsInOtherOrder"},
                       [](Property& p) { std::swap(p.variations[0], p.variations[1]); }},
        PropertyChange{{"OtherVariation"}, [](Property& p) { p.variations[1].integer = 3; }}),
    CaseName());

TEST(ContentPropertyTest, TheOrderInWhichTagsWereAddedDoesNotCount) {
  Property one = property("id", Types::FILE);
  one.tags.insert("a");
  one.tags.insert("b");
  Property other = property("id", Types::FILE);
  other.tags.insert("b");
  other.tags.insert("a");
  other.tags.insert("b");
  expectEqual(one, other, true);
}

}  // namespace
}  // namespace KELP::Diagnostic
