#include "base/json.h"
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

/** A variation above the permitted level. */
struct Dropped {
  std::string property;
  int level;
};

std::vector<Dropped> droppedOf(const std::vector<Property>& contents, int permitted) {
  std::vector<Dropped> dropped;
  for (const Property& property : contents) {
    for (const Variation& variation : property.variations) {
      if (!isPermitted(variation, permitted)) {
        dropped.push_back({property.stable_id, variation.sensitivity_level});
      }
    }
  }
  return dropped;
}

void tell(const Context& context, const std::vector<Dropped>& dropped, bool dryRun) {
  Json::Value document = jsonDocument("dropped");
  document["dry_run"] = dryRun;
  for (const auto& [property, level] : dropped) {
    Json::Value& entry = document["dropped"].append(Json::Value(Json::objectValue));
    entry["property"] = property;
    entry["level"] = level;
    if (!context.json) {
      print((dryRun ? "would drop level " : "dropped level ") + std::to_string(level) + " of \"" +
            escaped(property) + "\"\n");
    }
  }
  if (context.json) {
    printJson(document);
  }
}

void rehearse(const Context& context, const ApplyPolicyOptions& options) {
  const StoredReport stored = findSoundReport(context.root, options.change.id);
  tell(context,
       droppedOf(stored.metadata.contents.value_or(std::vector<Property>()),
                 stored.metadata.permittedLevel()),
       true);
}

ExitStatus applyPolicy(const Context& context, const ApplyPolicyOptions& options) {
  if (options.dryRun) {
    rehearse(context, options);
    return ExitStatus::Done;
  }
  const auto report = openForChange(context, options.change);
  const int permitted = std::min(report->getCurrentConsentLevel(), report->getMaxConsentLevel());
  std::vector<Dropped> dropped;
  if (const auto contents = report->getReportContents()) {  // Without any, there is nothing to do.
    std::for_each(contents->begin(), contents->end(), requireOwnDirectory);
    dropped = droppedOf(*contents, permitted);
    require(report->applyPolicyFilters());
  }
  tell(context, dropped, false);
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
  addJson(*verb.app, context);
}

}  // namespace KELP::Tool
