#pragma once

#include "faults/hostile/forms.h"
#include "faults/hostile/scene.h"

#include <optional>
#include <string>
#include <vector>

namespace KELP::Test {

/** What is required of an operation. */
struct Expected {
  std::string result;
  std::optional<std::vector<std::string>> lines;  ///< All that is logged, where it is said.
};

/** A thing that stands in a place of the report: "" is its directory, others are names in it. */
struct Case {
  const Scene& scene;
  std::string place;
  const Form& form;
};

/**
 * What is required of @p operation; nothing where only safety is.
 *
 * @param unharmed what the same operation comes to on a report that is as it should be.
 */
[[nodiscard]] std::optional<Expected> expectedOf(const Case& subject, const std::string& operation,
                                                 const Attempt& unharmed);

}  // namespace KELP::Test
