#pragma once

#include "reports.h"

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace KELP::Test {

/** One way to damage a report, and what `check` makes of it. */
struct Damage {
  std::string name;
  std::string kind;
  std::string path;  ///< Of the finding, from the report's directory on.
  std::string detail;
  bool isRepairable;
  std::function<void(const Repository&, const std::string& id)> make;
};

/** All ways, each of which is one finding. */
[[nodiscard]] const std::vector<Damage>& damages();

/** A record of a file at @p path, under the property "log". */
void addRecord(const Repository& repository, const std::string& id, int level,
               const std::string& path);

}  // namespace KELP::Test
