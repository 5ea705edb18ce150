// Adding variations of any kind.

#include "unit/contents/properties/typefamilies.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <optional>
#include <string>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;

class VariationAddition : public ContentsTest {
 protected:
  static auto add(const std::string& name, const Variation& variation, bool overwrite) {
    return [=](Report& r) { return r.addReportContentVariation(name, variation, overwrite); };
  }
  static Variation integer(int level, int value) {
    return variationWith(level, &Variation::integer, value);
  }
  /** A variation with all values set. */
  static Variation full(int level) { return {"contentfiles/path", "text", -7, 2.5, true, level}; }

  const Refusal exists_ = plain("Variation already exists and overwrite is not allowed");
};

TEST_F(VariationAddition, ToAMissingPropertySucceedsAndRewritesTheUnchangedList) {
  storeContents(oneOfEach({2, 1}));
  for (const bool overwrite : {false, true}) {
    for (const std::string& name :
         {std::string("missing"), std::string(), std::string("STRING"), std::string("../string")}) {
      store("modified", "1");
      expectStored(oneOfEach({2, 1}), add(name, full(1), overwrite));
    }
  }
  expectStored(oneOfEach({2, 1}),
               [](Report& r) { return r.addReportStringVariation("missing", 1, "value", false); });
}

TEST_F(VariationAddition, ToAMissingPropertyOfAnEmptyListSucceeds) {
  storeContents({});
  expectStored({}, add("missing", full(1), false));
}

TEST_F(VariationAddition, ToAMissingPropertyNeedsTheLockAllTheSame) {
  storeContents({numbered("name", {1})});
  unlock();
  expectRefused(plain(kTouchRefusal), add("missing", full(1), false));
}

TEST_F(VariationAddition, AppendsWhateverTheLevels) {
  Property expected = numbered("name", {3});
  storeContents({numbered("before", {1}), expected, numbered("after", {1})});
  for (const int level :
       {7, 0, -1, std::numeric_limits<int>::min(), std::numeric_limits<int>::max(), 9999, 2}) {
    expected.variations.push_back(integer(level, level / 2));
    expectStored({numbered("before", {1}), expected, numbered("after", {1})},
                 add("name", integer(level, level / 2), false));
  }
}

TEST_F(VariationAddition, OfALevelThatExistsIsRefusedBeforeTheLock) {
  storeContents({numbered("name", {3, 2})});
  unlock();
  for (const int level : {3, 2}) {
    expectRefused(exists_, add("name", integer(level, 5), false));
  }
  expectRefused(exists_,
                [](Report& r) { return r.addReportStringVariation("name", 3, "", false); });
}

TEST_F(VariationAddition, OverwritesInPlace) {
  Property expected = numbered("name", {3, 2, 1});
  storeContents({expected});
  expected.variations[1] = integer(2, 55);
  expectStored({expected}, add("name", integer(2, 55), true));
}

TEST_F(VariationAddition, OverwritesTheFirstOfSeveralAtALevel) {
  Property expected = numbered("name", {3, 2, 3, 2});
  storeContents({expected});
  expectRefused(exists_, add("name", integer(2, 55), false));
  expected.variations[1] = integer(2, 55);
  expectStored({expected}, add("name", integer(2, 55), true));
}

TEST_F(VariationAddition, OverwritesWithoutLeavingTheFormerValue) {
  for (const TypeFamily& family : typeFamilies()) {
    SCOPED_TRACE(family.name);
    storeContents({family.property("name", {2})});
    Property expected = family.property("name", {});
    Variation blank;
    blank.sensitivity_level = 2;
    expected.variations = {blank};
    expectStored({expected}, add("name", blank, true));
  }
}

TEST_F(VariationAddition, StoresTheValueOfThePropertysTypeOnly) {
  const Variation given = full(4);
  for (const TypeFamily& family : typeFamilies()) {
    SCOPED_TRACE(family.name);
    storeContents({family.property("name", {})});
    ASSERT_THAT(report().addReportContentVariation("name", given, false), Succeeds());
    Variation expected;
    expected.sensitivity_level = 4;
    switch (family.type) {
      case Type::FILE:
        expected.relative_path = given.relative_path;
        break;
      case Type::STRING:
        expected.string = given.string;
        break;
      case Type::INTEGER:
        expected.integer = given.integer;
        break;
      case Type::DOUBLE:
        expected.double_ = given.double_;
        break;
      default:
        expected.boolean = given.boolean;
    }
    EXPECT_THAT(report().getReportContentVariation("name", 4), testing::Optional(expected));
  }
}

TEST_F(VariationAddition, GoesToTheFirstOfSeveralPropertiesOfAName) {
  Property expected = numbered("name", {1});
  storeContents({expected, numbered("name", {2})});
  expected.variations.push_back(integer(2, 9));
  expectStored({expected, numbered("name", {2})}, add("name", integer(2, 9), false));
}

TEST_F(VariationAddition, OfAFileIsARecordAndTouchesNoFile) {
  const Property file = typeFamilies().front().property("log", {});
  plantFile("log/2/a.txt");
  for (const char* path : {"contentfiles/log/2/a.txt", "/etc/nowhere", "../../x", ""}) {
    storeContents({file});
    Property expected = file;
    expected.variations = {variationWith<std::string>(2, &Variation::relative_path, path)};
    expectStored({expected}, add("log", expected.variations[0], false));
  }
}

}  // namespace
}  // namespace KELP::Diagnostic
