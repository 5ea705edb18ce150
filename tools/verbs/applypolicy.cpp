#include "base/output.h"
#include "base/text.h"
#include "reports/access.h"
#include "verbs/change.h"

#include <algorithm>

namespace KELP::Tool {
namespace {

struct ApplyPolicyOptions {
  ChangeOptions change;
  bool dryRun = false;
};

/** A line for each variation above the permitted level. */
std::string describeDropped(const std::vector<Property>& contents, int permitted,
                            const std::string& verb) {
  std::string lines;
  for (const Property& property : contents) {
    for (const Variation& variation : property.variations) {
      if (!isPermitted(variation, permitted)) {
        lines += verb + " level " + std::to_string(variation.sensitivity_level) + " of \"" +
                 escaped(property.stable_id) + "\"\n";
      }
    }
  }
  return lines;
}

ExitStatus applyPolicy(const Context& context, const ApplyPolicyOptions& options) {
  if (options.dryRun) {
    const StoredReport stored = findSoundReport(context.root, options.change.id);
    if (!stored.metadata.contents) {
      throw Failure(ExitStatus::Failed, "the report " + stored.name + " has no contents");
    }
    print(
        describeDropped(*stored.metadata.contents, stored.metadata.permittedLevel(), "would drop"));
    return ExitStatus::Done;
  }
  const auto report = openForChange(context, options.change);
  const int permitted = std::min(report->getCurrentConsentLevel(), report->getMaxConsentLevel());
  const std::string dropped = describeDropped(
      report->getReportContents().value_or(std::vector<Property>()), permitted, "dropped");
  require(report->applyPolicyFilters());
  print(dropped);
  return ExitStatus::Done;
}

}  // namespace

void addApplyPolicy(CLI::App& program, Context& context) {
  const auto verb = addVerb<ApplyPolicyOptions>(
      program, context, "apply-policy", "Drop the variations that the consent levels do not permit",
      "  kelp-diagnostics apply-policy 3f2a --dry-run\n"
      "  kelp-diagnostics apply-policy 3f2a && kelp-diagnostics mark 3f2a data-policy\n"
      "\n"
      "Dropped is what is above the smaller of the two consent levels, with its files. No stage "
      "is\n"
      "marked.\n",
      applyPolicy);
  addChange(*verb.app, verb->change);
  verb.app->add_flag("--dry-run", verb->dryRun, "Only say what would be dropped");
}

}  // namespace KELP::Tool
