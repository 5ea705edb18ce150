#pragma once

#include "unit/contents/properties/contentsfixture.h"

#include <diagnostic/diagnosticreport.h>

#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace KELP::Test {

/** One operation that changes the contents of kMutatedContents, and what it must do. */
struct ContentMutator {
  std::string name;
  std::function<Report::Result(Report&)> call;
  /** Makes of the contents what the operation does. */
  std::function<void(Contents&)> change;
  /** What is gone afterwards below the report. */
  std::vector<std::string> gone;
  std::string writeFailure;
  /** How it refuses when data collection is complete; empty when it is allowed. */
  std::string lateRefusal;
  /** How it refuses when there are no contents; empty when it is allowed. */
  std::optional<Refusal> withoutContents;
};

std::ostream& operator<<(std::ostream& out, const ContentMutator& mutator);

/** The contents that the operations change: a property of each type, named after it in lower case,
 *  with variations at the levels 1 and 2. Those of the file property name "{level}/a.txt" in its
 *  directory. */
[[nodiscard]] Contents mutatedContents();

/** All operations that change a report's contents, but those that also copy files. */
[[nodiscard]] const std::vector<ContentMutator>& contentMutators();

}  // namespace KELP::Test
