// Contents far larger than anybody needs.

#include "unit/contents/properties/contentqueries.h"
#include "unit/contents/properties/typefamilies.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <string>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;

constexpr std::size_t kCount = 10'000;
/** Far more than any single operation may take. */
constexpr std::chrono::seconds kLimit{20};

class ManyProperties : public ContentsTest {
 protected:
  ManyProperties() {
    const auto& families = typeFamilies();
    for (std::size_t i = 0; i < kCount; ++i) {
      const TypeFamily& family = families[i % families.size()];
      all_.push_back(family.property("property " + std::to_string(i), {1}));
      all_.back().tags = {"tag " + std::to_string(i)};
    }
    storeContents(all_);
  }

  /** Expects that @p change succeeds, and leaves @p all_. */
  void expectLeavesAll(const std::function<Result(Report&)>& change) {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_THAT(change(report()), Succeeds());
    EXPECT_LT(std::chrono::steady_clock::now() - start, kLimit);
    EXPECT_TRUE(contents() == all_);
    EXPECT_EQ(stored("modified"), stamp().value);
    EXPECT_THAT(log_.take(), testing::IsEmpty());
    store("modified", "1");
  }

  Contents all_;
};

TEST_F(ManyProperties, AreAllFound) {
  EXPECT_TRUE(contents() == all_);
  for (const std::size_t at : {std::size_t{0}, kCount / 2 + 1, kCount - 2, kCount - 1}) {
    for (const ContentQuery& query : queriesFor(all_[at].property_type)) {
      SCOPED_TRACE(query.name);
      const auto start = std::chrono::steady_clock::now();
      EXPECT_TRUE(query.finds(report(), all_[at].stable_id));
      EXPECT_LT(std::chrono::steady_clock::now() - start, kLimit);
    }
  }
  EXPECT_THAT(report().getReportContentProperty(all_.back().stable_id), all_.back());
  EXPECT_THAT(log_.take(), testing::IsEmpty());
  EXPECT_FALSE(report().hasReportContentProperty("property 10000"));
}

TEST_F(ManyProperties, CanBeChanged) {
  all_.push_back({"new", Type::STRING, "", {"a"}, {}});
  expectLeavesAll([](Report& r) { return r.createReportStringProperty("new", {"a"}); });

  all_.back().tags.insert("b");
  expectLeavesAll([](Report& r) { return r.addTagToContentProperty("new", "b"); });

  all_.back().variations.push_back(variationWith<std::string>(7, &Variation::string, "v"));
  expectLeavesAll([](Report& r) { return r.addReportStringVariation("new", 7, "v", false); });

  const std::string middle = all_[kCount / 2].stable_id;
  all_[kCount / 2].variations.clear();
  expectLeavesAll([&](Report& r) { return r.removeContentPropertyVariation(middle, 1); });

  all_.erase(all_.begin() + kCount / 2);
  expectLeavesAll([&](Report& r) { return r.removeReportContentProperty(middle); });

  all_.erase(all_.begin());
  expectLeavesAll([](Report& r) { return r.removeReportFileProperty("property 0"); });
}

TEST_F(ManyProperties, OfOneNameAreTakenInOrder) {
  for (Property& property : all_) {
    property = numbered("same", {static_cast<int>(&property - all_.data())});
  }
  storeContents(all_);
  for (int i = 0; i < 3; ++i) {
    EXPECT_TRUE(report().hasReportIntegerVariation("same", i));
    all_.erase(all_.begin());
    expectLeavesAll([](Report& r) { return r.removeReportContentProperty("same"); });
  }
}

TEST_F(ManyProperties, ManyVariationsAndTagsOfOneAreKept) {
  Property property = numbered("name", {});
  for (int level = 0; level < static_cast<int>(kCount); ++level) {
    property.variations.push_back(variationWith(level, &Variation::integer, level));
    property.tags.insert("tag " + std::to_string(level));
  }
  all_ = {property};
  storeContents(all_);
  ASSERT_THAT(report().setCurrentConsentLevel(9'000), Succeeds());
  ASSERT_THAT(report().setMaxConsentLevel(10'000), Succeeds());
  EXPECT_THAT(report().getReportIntegerBestVariationValue("name"), Holds(9'000));
  EXPECT_THAT(report().getReportIntegerVariationValue("name", 9'999), Holds(9'999));

  all_[0].variations.push_back(variationWith(-1, &Variation::integer, 5));
  expectLeavesAll([](Report& r) { return r.addReportIntegerVariation("name", -1, 5, false); });
  all_[0].variations.erase(all_[0].variations.begin() + 5'000);
  expectLeavesAll([](Report& r) { return r.removeIntegerVariation("name", 5'000); });
  all_[0].tags.insert("new");
  expectLeavesAll([](Report& r) { return r.addTagToContentProperty("name", "new"); });
}

}  // namespace
}  // namespace KELP::Diagnostic
