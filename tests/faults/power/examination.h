#pragma once

#include "unit/os/storefile.h"

#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace KELP::Test {

class ChildProcess;

/** The keys and values of a report or a store, in one line. */
[[nodiscard]] std::string describeState(const StoreMap& state);

/** What another process finds after the cut, by the library. */
struct Examination {
  /** The state of each report and store that opens. */
  std::map<std::string, std::string> states;
  /** The message for each one that does not. */
  std::map<std::string, std::string> failures;
  /** What must not be after any cut. */
  std::vector<std::string> faults;
};

/** Has @p examiner, a power_examiner, look at what is there now. */
[[nodiscard]] Examination examine(ChildProcess& examiner);

}  // namespace KELP::Test
