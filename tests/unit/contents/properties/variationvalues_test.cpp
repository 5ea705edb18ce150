// The values of variations: adding them and taking them out.

#include "unit/contents/properties/typefamilies.h"
#include "unit/contents/properties/valuefamilies.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;
using testing::IsEmpty;
using testing::Optional;

template <typename Family>
class VariationValues : public ContentsTest {
 protected:
  using Value = typename Family::Value;

  Result add(int level, const Value& value, bool overwrite = false) {
    return (report().*Family::kAdd)("name", level, value, overwrite);
  }
  auto value(const std::string& name, int level) const {
    return (*report_.*Family::kGet)(name, level);
  }
  auto best(const std::string& name) const { return (*report_.*Family::kGetBest)(name); }
  static Variation variation(int level, const Value& value) {
    return variationWith<Value>(level, Family::kMember, value);
  }
  static std::string message(const std::string& wanted) {
    return "Unable to get " + wanted + " for report " + Family::kWord +
           " variation that does not exist";
  }
  /** Expects that neither by level nor as the best there is a value. */
  void expectNone(const std::string& name, int level) {
    EXPECT_THAT(value(name, level), Refuses(message("value")));
    EXPECT_EQ(log_.take(), errorLines({message("value")}));
    EXPECT_THAT(best(name), Refuses(message("path")));
    EXPECT_EQ(log_.take(), errorLines({message("path")}));
  }
};

TYPED_TEST_SUITE(VariationValues, ValueFamilies, ValueFamilyNames);

TYPED_TEST(VariationValues, ComeBackAsTheyWere) {
  for (const auto& value : TypeParam::values()) {
    this->storeContents({{"name", TypeParam::kType, "", {}, {}}});
    this->expectStored({{"name", TypeParam::kType, "", {}, {this->variation(3, value)}}},
                       [&](auto&) { return this->add(3, value); });
    EXPECT_THAT(this->value("name", 3), Holds(value));
    EXPECT_THAT(this->best("name"), Holds(value));
    EXPECT_THAT(this->report().getReportContentVariation("name", 3),
                Optional(this->variation(3, value)));
  }
  EXPECT_THAT(this->log_.take(), IsEmpty());
}

TYPED_TEST(VariationValues, AreFoundByTheirLevels) {
  const auto values = TypeParam::values();
  this->storeContents({{"name", TypeParam::kType, "", {}, {}}});
  ASSERT_THAT(this->add(5, values[0]), Succeeds());
  ASSERT_THAT(this->add(-5, values[1]), Succeeds());
  EXPECT_THAT(this->value("name", 5), Holds(values[0]));
  EXPECT_THAT(this->value("name", -5), Holds(values[1]));
  EXPECT_THAT(this->best("name"), Holds(values[0]));
}

TYPED_TEST(VariationValues, AreAbsentWithoutTheirVariation) {
  this->expectNone("name", 1);
  this->storeContents({{"name", TypeParam::kType, "", {}, {}}});
  this->expectNone("name", 1);
  this->expectNone("missing", 1);
  this->expectNone("", 0);
}

TYPED_TEST(VariationValues, AreAbsentForOtherTypes) {
  this->storeContents(oneOfEach({1}));
  forOtherTypes(TypeParam::kType,
                [&](const TypeFamily& other) { this->expectNone(other.word, 1); });
}

TYPED_TEST(VariationValues, AreNeverTheBestBelowLevelZero) {
  this->storeContents({{"name", TypeParam::kType, "", {}, {}}});
  ASSERT_THAT(this->add(-1, TypeParam::values()[0]), Succeeds());
  EXPECT_THAT(this->best("name"), Refuses(this->message("path")));
  EXPECT_EQ(this->log_.take(), errorLines({this->message("path")}));
  EXPECT_THAT(this->value("name", -1), Holds(TypeParam::values()[0]));
}

TYPED_TEST(VariationValues, AreReplacedInTheirPlaceOnlyWhenThatIsAllowed) {
  const auto values = TypeParam::values();
  Property property{"name", TypeParam::kType, "", {}, {}};
  property.variations = {this->variation(3, values[0]), this->variation(1, values[0])};
  this->storeContents({property});
  this->expectRefused(plain("Variation already exists and overwrite is not allowed"),
                      [&](auto&) { return this->add(3, values[1], false); });
  property.variations[0] = this->variation(3, values[1]);
  this->expectStored({property}, [&](auto&) { return this->add(3, values[1], true); });
  EXPECT_THAT(this->value("name", 3), Holds(values[1]));
}

TYPED_TEST(VariationValues, AreAppendedWhenReplacingIsAllowedButTheLevelIsNew) {
  const auto values = TypeParam::values();
  Property property{"name", TypeParam::kType, "", {}, {this->variation(3, values[0])}};
  this->storeContents({property});
  property.variations.push_back(this->variation(2, values[1]));
  this->expectStored({property}, [&](auto&) { return this->add(2, values[1], true); });
}

TYPED_TEST(VariationValues, OfAnotherTypeLeaveThePropertysOwnValueInitial) {
  for (const TypeFamily& family : typeFamilies()) {
    SCOPED_TRACE(family.name);
    this->storeContents({family.property(family.word, {})});
    const auto value = TypeParam::values()[0];
    ASSERT_THAT((this->report().*TypeParam::kAdd)(family.word, 4, value, false), Succeeds());
    Variation expected;
    expected.sensitivity_level = 4;
    if (family.type == TypeParam::kType) {
      expected.*TypeParam::kMember = value;
    }
    EXPECT_THAT(this->report().getReportContentVariation(family.word, 4), Optional(expected));
  }
}

TYPED_TEST(VariationValues, OfAnUnknownTypeAreStoredButNotReadBack) {
  this->storeContents({{"name", Type::UNKNOWN, "", {}, {}}});
  ASSERT_THAT(this->add(4, TypeParam::values()[0]), Succeeds());
  EXPECT_THAT(*this->stored(kContentsKey),
              testing::HasSubstr(R"("variations":[{"sensitivity_level":4}])"));
  EXPECT_FALSE(this->report().hasReportContentVariation("name", 4));
}

}  // namespace
}  // namespace KELP::Diagnostic
