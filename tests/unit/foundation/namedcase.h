#pragma once

#include <gtest/gtest.h>

#include <ostream>
#include <string>

namespace KELP::Test {

/** What every row of a table of cases begins with; it stands for the row in a test's name. */
struct NamedCase {
  std::string name;
};

inline std::ostream& operator<<(std::ostream& out, const NamedCase& row) {
  return out << row.name;
}

/** The name of a parametrised test, for INSTANTIATE_TEST_SUITE_P. */
struct CaseName {
  template <typename Row>
  std::string operator()(const testing::TestParamInfo<Row>& info) const {
    return info.param.name;
  }
};

}  // namespace KELP::Test
