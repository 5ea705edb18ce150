#include "reports/access.h"
#include "verbs/change.h"

#include <algorithm>
#include <iterator>

namespace KELP::Tool {
namespace {

using Diagnostic::DiagnosticReport;

struct MarkOptions {
  ChangeOptions change;
  std::string stage;
};

struct Mark {
  const char* name;
  DiagnosticReport::Result (DiagnosticReport::*mark)();
};

constexpr Mark kMarks[] = {
    {"creation", &DiagnosticReport::markCreationComplete},
    {"user-interaction", &DiagnosticReport::markUserInteractionComplete},
    {"data-collection", &DiagnosticReport::markDataCollectionComplete},
    {"data-policy", &DiagnosticReport::markDataPolicyApplied},
    {"upload", &DiagnosticReport::markUploadComplete},
};

std::vector<std::string> markNames() {
  std::vector<std::string> names;
  std::transform(std::begin(kMarks), std::end(kMarks), std::back_inserter(names),
                 [](const Mark& mark) { return mark.name; });
  return names;
}

ExitStatus mark(const Context& context, const MarkOptions& options) {
  const auto* const wanted =
      std::find_if(std::begin(kMarks), std::end(kMarks),
                   [&](const Mark& known) { return known.name == options.stage; });
  const auto report = openForChange(context, options.change);
  require((report.get()->*wanted->mark)());
  return ExitStatus::Done;
}

}  // namespace

void addMark(CLI::App& program, Context& context) {
  const auto verb = addVerb<MarkOptions>(
      program, context, "mark", "Mark a stage of a report as complete",
      "  kelp-diagnostics mark 3f2a creation\n"
      "  kelp-diagnostics mark 3f2a upload --wait 5s\n"
      "\n"
      "A stage is marked once, and never cleared. \"data-policy\" only marks that the policy was\n"
      "applied; \"apply-policy\" applies it.\n",
      mark);
  addChange(*verb.app, verb->change);
  addChoice(*verb.app, "STAGE", verb->stage, markNames(), "What is complete")
      ->type_name("STAGE")
      ->required();
}

}  // namespace KELP::Tool
