#pragma once

#include <diagnostic/diagnosticreport.h>

#include <functional>
#include <ostream>
#include <string>
#include <vector>

namespace KELP::Test {

/** One step in the life of a report. Whoever takes it holds the write lock. */
struct LifeStep {
  std::string name;
  /** How often it writes the report's metadata. */
  int writes;
  std::function<Diagnostic::DiagnosticReport::Result(Diagnostic::DiagnosticReport&)> run;
};

std::ostream& operator<<(std::ostream& out, const LifeStep& step);

/** The step that writes so much that the metadata has to be compacted on the way: so many changes
 * of so many bytes are several times what its file may hold of dead records. */
constexpr const char* kDescribeAtLength = "describeAtLength";
constexpr int kLongDescriptions = 40;
constexpr int kLongDescription = 8192;

/** Every kind of change, from a fresh report to an uploaded one, in an order in which all are
 *  allowed. */
[[nodiscard]] const std::vector<LifeStep>& reportLife();

/** The step of that name, which must be one. */
[[nodiscard]] const LifeStep& lifeStep(const std::string& name);

}  // namespace KELP::Test
