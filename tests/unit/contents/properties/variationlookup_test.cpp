// Finding variations by level.

#include "unit/contents/properties/typefamilies.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <optional>
#include <string>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;
using testing::IsEmpty;
using testing::Optional;

constexpr int kLowest = std::numeric_limits<int>::min();
constexpr int kHighest = std::numeric_limits<int>::max();

class VariationLookup : public ContentsTest {};

TEST_F(VariationLookup, TakesAnyLevel) {
  const Property property = numbered("name", {kHighest, 0, kLowest, -1, 9999});
  storeContents({property});
  for (const Variation& wanted : property.variations) {
    const int level = wanted.sensitivity_level;
    EXPECT_THAT(report().getReportContentVariation("name", level), Optional(wanted));
    EXPECT_TRUE(report().hasReportContentVariation("name", level));
  }
  for (const int level : {1, kHighest - 1, kLowest + 1}) {
    EXPECT_EQ(report().getReportContentVariation("name", level), std::nullopt);
    EXPECT_FALSE(report().hasReportContentVariation("name", level));
  }
}

TEST_F(VariationLookup, FirstOfSeveralAtALevelCounts) {
  const Property property = numbered("name", {3, 2, 3, 2});
  storeContents({property});
  EXPECT_THAT(report().getReportContentVariation("name", 3), Optional(property.variations[0]));
  EXPECT_THAT(report().getReportContentVariation("name", 2), Optional(property.variations[1]));
  EXPECT_THAT(report().getReportIntegerVariationValue("name", 2), Holds(1));
}

TEST_F(VariationLookup, LooksAtTheFirstPropertyOfANameOnly) {
  storeContents({numbered("name", {1}), numbered("name", {2})});
  EXPECT_FALSE(report().hasReportContentVariation("name", 2));
  EXPECT_FALSE(report().hasReportIntegerVariation("name", 2));
}

TEST_F(VariationLookup, FindsNothingWithoutContentsOrProperty) {
  EXPECT_EQ(report().getReportContentVariation("name", 1), std::nullopt);
  EXPECT_EQ(report().getReportContentBestVariation("name"), std::nullopt);
  storeContents({numbered("other", {1})});
  EXPECT_FALSE(report().hasReportContentVariation("name", 1));
  EXPECT_EQ(report().getReportContentBestVariation("name", Type::INTEGER), std::nullopt);
  EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(VariationLookup, FindsNothingInAReportOfNothing) {
  const Report nothing;
  EXPECT_EQ(nothing.getReportContentVariation("", 0), std::nullopt);
  EXPECT_FALSE(nothing.hasReportStringVariation("", 0));
  EXPECT_EQ(nothing.getReportFileBestVariation(""), std::nullopt);
  EXPECT_THAT(log_.take(), IsEmpty());
}

class TypedVariationLookup : public ContentsTest, public testing::WithParamInterface<TypeFamily> {
 protected:
  const TypeFamily& family_ = GetParam();
};

TEST_P(TypedVariationLookup, FindsVariationsOfItsType) {
  storeContents(oneOfEach({-5, 2, 1}));
  for (const int level : {-5, 2, 1}) {
    const Variation wanted = family_.variation(level);
    EXPECT_THAT(family_.getVariation(report(), family_.word, level), Optional(wanted));
    EXPECT_TRUE(family_.hasVariation(report(), family_.word, level));
    EXPECT_THAT(report().getReportContentVariation(family_.word, family_.type, level),
                Optional(wanted));
    EXPECT_THAT(report().getReportContentVariation(family_.word, level), Optional(wanted));
  }
  EXPECT_THAT(family_.getBestVariation(report(), family_.word), Optional(family_.variation(2)));
  EXPECT_THAT(report().getReportContentBestVariation(family_.word, family_.type),
              Optional(family_.variation(2)));
  EXPECT_THAT(report().getReportContentBestVariation(family_.word), Optional(family_.variation(2)));
  EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_P(TypedVariationLookup, TakesOtherTypesForAbsent) {
  storeContents(oneOfEach({1}));
  forOtherTypes(family_.type, [&](const TypeFamily& other) {
    EXPECT_EQ(family_.getVariation(report(), other.word, 1), std::nullopt);
    EXPECT_FALSE(family_.hasVariation(report(), other.word, 1));
    EXPECT_EQ(family_.getBestVariation(report(), other.word), std::nullopt);
    EXPECT_EQ(report().getReportContentVariation(other.word, family_.type, 1), std::nullopt);
    EXPECT_EQ(report().getReportContentBestVariation(other.word, family_.type), std::nullopt);
    EXPECT_TRUE(report().hasReportContentVariation(other.word, 1));
  });
  EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_P(TypedVariationLookup, FindsNothingAtOtherLevels) {
  storeContents(oneOfEach({1}));
  EXPECT_FALSE(family_.hasVariation(report(), family_.word, 0));
  EXPECT_FALSE(family_.hasVariation(report(), family_.word, -1));
  EXPECT_EQ(family_.getVariation(report(), "missing", 1), std::nullopt);
}

TEST_P(TypedVariationLookup, NeedsNoLockAndChangesNothing) {
  storeContents(oneOfEach({1}));
  unlock();
  const Snapshot before = snapshot();
  EXPECT_TRUE(family_.hasVariation(report(), family_.word, 1));
  EXPECT_TRUE(family_.getVariation(report(), family_.word, 1).has_value());
  EXPECT_TRUE(family_.getBestVariation(report(), family_.word).has_value());
  expectSame(before);
  EXPECT_TRUE(lockIsFree());
}

INSTANTIATE_TEST_SUITE_P(All, TypedVariationLookup, testing::ValuesIn(typeFamilies()), familyName);

}  // namespace
}  // namespace KELP::Diagnostic
