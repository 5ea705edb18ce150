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
  static constexpr Type type = Type::STRING;
  static constexpr const char* word = "string";
  static constexpr auto member = &Variation::string;
  static constexpr auto get = &Report::getReportStringVariationValue;
  static constexpr auto getBest = &Report::getReportStringBestVariationValue;
  static constexpr auto add = &Report::addReportStringVariation;
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
  static constexpr Type type = Type::INTEGER;
  static constexpr const char* word = "integer";
  static constexpr auto member = &Variation::integer;
  static constexpr auto get = &Report::getReportIntegerVariationValue;
  static constexpr auto getBest = &Report::getReportIntegerBestVariationValue;
  static constexpr auto add = &Report::addReportIntegerVariation;
  static std::deque<Value> values() {
    using Limits = std::numeric_limits<Value>;
    return {42, 0, -1, Limits::min(), Limits::max(), 9999};
  }
};

struct DoubleValues {
  using Value = double;
  static constexpr Type type = Type::DOUBLE;
  static constexpr const char* word = "double";
  static constexpr auto member = &Variation::double_;
  static constexpr auto get = &Report::getReportDoubleVariationValue;
  static constexpr auto getBest = &Report::getReportDoubleBestVariationValue;
  static constexpr auto add = &Report::addReportDoubleVariation;
  static std::deque<Value> values() {
    using Limits = std::numeric_limits<Value>;
    return {2.5,          0.0, -0.0, 0.1, 1.0 / 3, 3.0, 1e-7, Limits::max(), Limits::lowest(),
            Limits::min()};
  }
};

struct BooleanValues {
  using Value = bool;
  static constexpr Type type = Type::BOOLEAN;
  static constexpr const char* word = "boolean";
  static constexpr auto member = &Variation::boolean;
  static constexpr auto get = &Report::getReportBooleanVariationValue;
  static constexpr auto getBest = &Report::getReportBooleanBestVariationValue;
  static constexpr auto add = &Report::addReportBooleanVariation;
  static std::deque<Value> values() { return {true, false}; }
};

using ValueFamilies = testing::Types<StringValues, IntegerValues, DoubleValues, BooleanValues>;

struct ValueFamilyNames {
  template <typename Family>
  static std::string GetName(int) {
    return Family::word;
  }
};

}  // namespace KELP::Test
