// Removing variations.

#include "unit/contents/properties/typefamilies.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;

Refusal missing(const std::string& name, int level) {
  const std::string start = "Content property variation to remove ";
  return {start + "(" + name + ", " + std::to_string(level) + ") does not exist in report",
          start + "does not exist in report"};
}

class VariationRemoval : public ContentsTest {
 protected:
  static auto remove(const std::string& name, int level) {
    return [=](Report& r) { return r.removeContentPropertyVariation(name, level); };
  }
};

TEST_F(VariationRemoval, KeepsTheOrderOfTheOthers) {
  Property expected = numbered("name", {3, 1, 2});
  storeContents({numbered("other", {1}), expected});
  expected.variations.erase(expected.variations.begin() + 1);
  expectStored({numbered("other", {1}), expected}, remove("name", 1));
}

TEST_F(VariationRemoval, OfTheLastLeavesThePropertyWithNone) {
  storeContents({numbered("name", {1})});
  expectStored({numbered("name", {})}, remove("name", 1));
  EXPECT_TRUE(report().hasReportIntegerProperty("name"));
  expectRefused(missing("name", 1), remove("name", 1));
}

TEST_F(VariationRemoval, TakesTheFirstOfSeveralAtALevel) {
  Property expected = numbered("name", {3, 2, 3});
  storeContents({expected});
  expected.variations.erase(expected.variations.begin());
  expectStored({expected}, remove("name", 3));
}

TEST_F(VariationRemoval, LooksAtTheFirstPropertyOfANameOnly) {
  storeContents({numbered("name", {1}), numbered("name", {2})});
  expectRefused(missing("name", 2), remove("name", 2));
}

TEST_F(VariationRemoval, OfWhatIsMissingIsRefusedBeforeTheLock) {
  storeContents({numbered("name", {1})});
  unlock();
  for (const int level :
       {0, -1, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()}) {
    expectRefused(missing("name", level), remove("name", level));
  }
  for (const std::string& name : {std::string(), std::string("Name"), std::string("%s%n%d"),
                                  std::string("two\nlines"), std::string(3000, 'n')}) {
    expectRefused(missing(name, 1), remove(name, 1));
  }
  storeContents({});
  expectRefused(missing("name", 1), remove("name", 1));
}

class TypedVariationRemoval : public ContentsTest, public testing::WithParamInterface<TypeFamily> {
 protected:
  auto remove(const std::string& name, int level) {
    return [=, this](Report& r) { return family_.removeVariation(r, name, level); };
  }
  const TypeFamily& family_ = GetParam();
};

TEST_P(TypedVariationRemoval, TakesTheVariationAlone) {
  Contents expected = oneOfEach({2, -1, 3});
  storeContents(expected);
  for (Property& property : expected) {
    if (property.property_type == family_.type) {
      property.variations.erase(property.variations.begin() + 1);
    }
  }
  expectStored(expected, remove(family_.word, -1));
}

TEST_P(TypedVariationRemoval, RefusesOtherTypesBeforeTheLock) {
  storeContents(oneOfEach({1}));
  unlock();
  forOtherTypes(family_.type, [&](const TypeFamily& other) {
    expectRefused(family_.noVariation(other.word, 1), remove(other.word, 1));
  });
}

TEST_P(TypedVariationRemoval, RefusesMissingNamesAndLevels) {
  storeContents({family_.property("name", {1})});
  for (const int level :
       {0, -1, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()}) {
    expectRefused(family_.noVariation("name", level), remove("name", level));
  }
  for (const char* name : {"", "missing", "%s%n%d"}) {
    expectRefused(family_.noVariation(name, 1), remove(name, 1));
  }
  storeContents({});
  expectRefused(family_.noVariation("name", 1), remove("name", 1));
}

INSTANTIATE_TEST_SUITE_P(All, TypedVariationRemoval, testing::ValuesIn(typeFamilies()), familyName);

}  // namespace
}  // namespace KELP::Diagnostic
