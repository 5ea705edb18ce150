// The best variation of random lists under random consent, compared with a plain search.

#include "unit/contents/properties/typefamilies.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <optional>
#include <random>
#include <string>
#include <vector>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;

constexpr int kLowest = std::numeric_limits<int>::min();
constexpr int kHighest = std::numeric_limits<int>::max();
constexpr int kRounds = 1000;

/** A text that may stand for a consent level, and the level it stands for. */
struct Consent {
  std::optional<std::string> text;
  int level = 0;
};

class Random {
 public:
  explicit Random(unsigned seed) : engine_(seed) {}

  int number(int from, int to) { return std::uniform_int_distribution(from, to)(engine_); }

  /** Mostly near each other, so that lists have duplicates and consent lies among them. */
  int level() {
    switch (number(0, 9)) {
      case 0:
        return number(kLowest, kHighest);
      case 1:
        return number(0, 1) == 0 ? kLowest + number(0, 1) : kHighest - number(0, 1);
      default:
        return number(-3, 8);
    }
  }

  std::vector<int> levels() {
    std::vector<int> list(static_cast<std::size_t>(number(0, 12)));
    std::ranges::generate(list, [this] { return level(); });
    return list;
  }

  Consent consent() {
    static const std::vector<Consent> odd{{std::nullopt, 0},
                                          {"", 0},
                                          {"-", 0},
                                          {"4x", 4},
                                          {"x4", 0},
                                          {"+4", 0},
                                          {"007", 7},
                                          {"-000", 0},
                                          {"2147483648", 0},
                                          {"-2147483649", 0},
                                          {"99999999999999999999", 0},
                                          {"3.9", 3}};
    if (number(0, 3) == 0) {
      return odd[static_cast<std::size_t>(number(0, static_cast<int>(odd.size()) - 1))];
    }
    const int given = level();
    return {std::to_string(given), given};
  }

 private:
  std::mt19937 engine_;
};

/** The position of the best of variations at these levels. */
std::optional<int> plainBest(const std::vector<int>& levels, int current, int maximum) {
  std::vector<int> permitted;
  for (const int level : levels) {
    if (level >= 0 && level <= current && level <= maximum) {
      permitted.push_back(level);
    }
  }
  if (permitted.empty()) {
    return std::nullopt;
  }
  std::ranges::sort(permitted);
  return static_cast<int>(std::ranges::find(levels, permitted.back()) - levels.begin());
}

std::optional<int> positionOf(const std::optional<Variation>& variation) {
  return variation ? std::optional(variation->integer) : std::nullopt;
}

class RandomBestVariation : public ContentsTest, public testing::WithParamInterface<unsigned> {};

TEST_P(RandomBestVariation, IsWhatAPlainSearchFinds) {
  Random random(GetParam());
  int found = 0;
  for (int round = 0; round < kRounds; ++round) {
    const std::vector<int> levels = random.levels();
    const Consent current = random.consent();
    const Consent maximum = random.consent();
    SCOPED_TRACE("seed " + std::to_string(GetParam()) + ", round " + std::to_string(round) +
                 ", consent " + current.text.value_or("(none)") + " of " +
                 maximum.text.value_or("(none)"));
    store("current_consent_level", current.text);
    store("max_consent_level", maximum.text);
    storeContents({numbered("name", levels)});

    const std::optional<int> expected = plainBest(levels, current.level, maximum.level);
    found += expected ? 1 : 0;
    ASSERT_EQ(positionOf(report().getReportContentBestVariation("name")), expected)
        << testing::PrintToString(levels);
    ASSERT_EQ(positionOf(report().getReportContentBestVariation("name", Type::INTEGER)), expected);
    ASSERT_EQ(positionOf(report().getReportIntegerBestVariation("name")), expected);
    ASSERT_EQ(report().getReportStringBestVariation("name"), std::nullopt);
    const auto value = report().getReportIntegerBestVariationValue("name");
    ASSERT_EQ(value.has_value() ? std::optional(value.value()) : std::nullopt, expected);
  }
  // Otherwise the cases would prove little.
  EXPECT_GT(found, kRounds / 10);
  EXPECT_LT(found, kRounds * 9 / 10);
}

INSTANTIATE_TEST_SUITE_P(Seeds, RandomBestVariation, testing::Values(1U, 20U, 300U, 4000U, 50000U));

}  // namespace
}  // namespace KELP::Diagnostic
