#pragma once

#include "unit/contents/properties/contentsfixture.h"

#include <diagnostic/diagnosticreport.h>

#include <gtest/gtest.h>

#include <deque>
#include <limits>
#include <string>

/** The operations on the four types of property whose variations hold their values. Sample values
 * are in a deque since the elements of a vector of bool are no objects. */
namespace KELP::Test {

struct StringValues {
  using Value = std::string;
  static constexpr Type kType = Type::STRING;
  static constexpr const char* kWord = "string";
  static constexpr auto kMember = &Variation::string;
  static constexpr auto kGet = &Report::getReportStringVariationValue;
  static constexpr auto kGetBest = &Report::getReportStringBestVariationValue;
  static constexpr auto kAdd = &Report::addReportStringVariation;
  static std::deque<Value> values() {
    return {"value",
            "",
            "two\nlines",
            "\"quoted\\\"",
            "%s%n",
            "ü€😀",
            std::string("a\0b", 3),
            "\x01\x1f\x7f",
            std::string(5'000, 'x')};
  }
};

struct IntegerValues {
  using Value = int;
  static constexpr Type kType = Type::INTEGER;
  static constexpr const char* kWord = "integer";
  static constexpr auto kMember = &Variation::integer;
  static constexpr auto kGet = &Report::getReportIntegerVariationValue;
  static constexpr auto kGetBest = &Report::getReportIntegerBestVariationValue;
  static constexpr auto kAdd = &Report::addReportIntegerVariation;
  static std::deque<Value> values() {
    using Limits = std::numeric_limits<Value>;
    return {42, 0, -1, Limits::min(), Limits::max(), 9999};
  }
};

struct DoubleValues {
  using Value = double;
  static constexpr Type kType = Type::DOUBLE;
  static constexpr const char* kWord = "double";
  static constexpr auto kMember = &Variation::double_;
  static constexpr auto kGet = &Report::getReportDoubleVariationValue;
  static constexpr auto kGetBest = &Report::getReportDoubleBestVariationValue;
  static constexpr auto kAdd = &Report::addReportDoubleVariation;
  static std::deque<Value> values() {
    using Limits = std::numeric_limits<Value>;
    return {2.5,          0.0, -0.0, 0.1, 1.0 / 3, 3.0, 1e-7, Limits::max(), Limits::lowest(),
            Limits::min()};
  }
};

struct BooleanValues {
  using Value = bool;
  static constexpr Type kType = Type::BOOLEAN;
  static constexpr const char* kWord = "boolean";
  static constexpr auto kMember = &Variation::boolean;
  static constexpr auto kGet = &Report::getReportBooleanVariationValue;
  static constexpr auto kGetBest = &Report::getReportBooleanBestVariationValue;
  static constexpr auto kAdd = &Report::addReportBooleanVariation;
  static std::deque<Value> values() { return {true, false}; }
};

using ValueFamilies = testing::Types<StringValues, IntegerValues, DoubleValues, BooleanValues>;

struct ValueFamilyNames {
  template <typename Family>
  static std::string GetName(int) {  // NOLINT(readability-identifier-naming): the framework's name.
    return Family::kWord;
  }
};

}  // namespace KELP::Test
