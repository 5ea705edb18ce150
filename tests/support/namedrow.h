#pragma once

#include <algorithm>
#include <stdexcept>
#include <string>
#include <vector>

namespace KELP::Test {

/** The row of @p table with that `name`, of which another process was told. Throws when there is
 * none. */
template <typename Row>
[[nodiscard]] const Row& rowNamed(const std::vector<Row>& table, const std::string& name) {
  const auto row = std::ranges::find(table, name, &Row::name);
  if (row == table.end()) {
    throw std::invalid_argument("nothing is named " + name);
  }
  return *row;
}

}  // namespace KELP::Test
