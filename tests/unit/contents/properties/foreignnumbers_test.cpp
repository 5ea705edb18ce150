// Numbers that somebody else stored, at and beyond the ranges of what they stand for.

#include "unit/contents/properties/contentsfixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <optional>
#include <string>
#include <vector>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;

/** A number as it is stored, and what it reads as, if anything. */
template <typename T>
struct Stored {
  std::string text;
  std::optional<T> value;
};

class ForeignNumbers : public ContentsTest {
 protected:
  /** The only variation of a property of @p type, stored with this value and level. */
  std::optional<Variation> readBack(const std::string& type, const std::string& member,
                                    const std::string& value, const std::string& level) {
    storeContentsText(R"([{"stable_id":"n","property_type":")" + type + R"(","variations":[{")" +
                      member + "\":" + value + R"(,"sensitivity_level":)" + level + "}]}]");
    const auto property = report().getReportContentProperty("n");
    EXPECT_TRUE(property.has_value()) << value << " at " << level;
    EXPECT_THAT(log_.take(), testing::IsEmpty());
    if (!property || property->variations.empty()) {
      return std::nullopt;
    }
    EXPECT_EQ(property->variations.size(), 1U);
    return property->variations[0];
  }
};

TEST_F(ForeignNumbers, LevelsAreIntegersOf32Bits) {
  const std::vector<Stored<int>> levels{
      {"0", 0},
      {"-1", -1},
      {"2147483647", std::numeric_limits<int>::max()},
      {"-2147483648", std::numeric_limits<int>::min()},
      {"2147483648", std::nullopt},
      {"-2147483649", std::nullopt},
      {"4294967297", std::nullopt},
      {"9223372036854775808", std::nullopt},
      {"18446744073709551616", std::nullopt},
      {"-99999999999999999999999", std::nullopt},
      {"2.0", std::nullopt},
      {"2.5", std::nullopt},
      {"1e1", std::nullopt},
      {"\"2\"", std::nullopt},
      {"true", std::nullopt},
      {"null", std::nullopt},
      {"[2]", std::nullopt},
  };
  for (const auto& [text, level] : levels) {
    const auto variation = readBack("STRING", "string", "\"v\"", text);
    EXPECT_EQ(variation ? std::optional(variation->sensitivity_level) : std::nullopt, level)
        << text;
  }
}

TEST_F(ForeignNumbers, IntegersMayBeWrittenWithAFractionOfNothing) {
  const std::vector<Stored<int>> values{
      {"7", 7},
      {"7.0", 7},
      {"-7.0", -7},
      {"1e3", 1000},
      {"2147483647", std::numeric_limits<int>::max()},
      {"2147483647.0", std::numeric_limits<int>::max()},
      {"-2147483648", std::numeric_limits<int>::min()},
      {"-2147483648.0", std::numeric_limits<int>::min()},
      {"2147483648", std::nullopt},
      {"2147483648.0", std::nullopt},
      {"-2147483649", std::nullopt},
      {"9223372036854775807", std::nullopt},
      {"18446744073709551615", std::nullopt},
      {"99999999999999999999999", std::nullopt},
      {"1e300", std::nullopt},
      {"7.5", std::nullopt},
      {"0.1", std::nullopt},
      {"true", std::nullopt},
      {"\"7\"", std::nullopt},
      {"null", std::nullopt},
  };
  for (const auto& [text, value] : values) {
    const auto variation = readBack("INTEGER", "integer", text, "2");
    EXPECT_EQ(variation ? std::optional(variation->integer) : std::nullopt, value) << text;
  }
}

TEST_F(ForeignNumbers, DoublesAreAnyNumbers) {
  const std::vector<Stored<double>> values{
      {"3", 3.0},
      {"-3", -3.0},
      {"0.5", 0.5},
      {"1e308", 1e308},
      {"5e-324", 5e-324},
      {"9223372036854775807", 9223372036854775807.0},
      {"18446744073709551615", 18446744073709551615.0},
      {"99999999999999999999999", 99999999999999999999999.0},
      {"true", std::nullopt},
      {"\"0.5\"", std::nullopt},
      {"null", std::nullopt},
  };
  for (const auto& [text, value] : values) {
    const auto variation = readBack("DOUBLE", "double", text, "2");
    EXPECT_EQ(variation ? std::optional(variation->double_) : std::nullopt, value) << text;
  }
}

TEST_F(ForeignNumbers, BooleansAreTrueOrFalse) {
  const std::vector<Stored<bool>> values{
      {"true", true}, {"false", false}, {"1", std::nullopt}, {"\"true\"", std::nullopt}};
  for (const auto& [text, value] : values) {
    const auto variation = readBack("BOOLEAN", "boolean", text, "2");
    EXPECT_EQ(variation ? std::optional(variation->boolean) : std::nullopt, value) << text;
  }
}

TEST_F(ForeignNumbers, VariationsOutOfRangeAreNeverTheBest) {
  storeContentsText(R"([{"stable_id":"n","property_type":"INTEGER","variations":[)"
                    R"({"integer":2147483648,"sensitivity_level":20},)"
                    R"({"integer":1,"sensitivity_level":4294967300},)"
                    R"({"integer":2,"sensitivity_level":3},)"
                    R"({"integer":3,"sensitivity_level":-4294967290}]}])");
  EXPECT_THAT(report().getReportIntegerBestVariationValue("n"), Holds(2));
}

}  // namespace
}  // namespace KELP::Diagnostic
