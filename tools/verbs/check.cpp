#include "base/interrupt.h"
#include "base/json.h"
#include "base/output.h"
#include "base/table.h"
#include "base/text.h"
#include "check/examination.h"
#include "check/finding.h"
#include "check/repair.h"
#include "reports/repository.h"
#include "verbs/verb.h"

#include <algorithm>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace KELP::Tool {
namespace {

struct CheckOptions {
  std::vector<std::string> ids;
  bool repair = false;
};

/** What became of a finding; nothing when nothing was tried. */
std::string fateOf(const Finding& finding) {
  if (finding.repaired) {
    return "; repaired: removed";
  }
  return finding.whyLeft.empty() ? "" : "; left: " + finding.whyLeft;
}

void printTable(const Findings& findings) {
  Table table({{"REPORT"}, {"KIND"}, {"DETAIL"}});
  for (const Finding& finding : findings) {
    table.add({finding.report.empty() ? "-" : finding.report,
               {textOf(finding.kind).name, finding.repaired ? Style::Green : Style::Red},
               finding.detail + fateOf(finding)});
  }
  table.print(true);
}

void printDocument(const Examination& examination) {
  Json::Value document = jsonDocument("findings");
  for (const Finding& finding : examination.findings) {
    Json::Value entry(Json::objectValue);
    entry["report"] = finding.report.empty() ? Json::Value() : Json::Value(finding.report);
    entry["kind"] = textOf(finding.kind).name;
    entry["path"] = finding.path.native();
    entry["detail"] = finding.detail;
    entry["repaired"] = finding.repaired;
    entry["left"] = finding.whyLeft.empty() ? Json::Value() : Json::Value(finding.whyLeft);
    document["findings"].append(entry);
  }
  document["unchecked"] = Json::Value(Json::arrayValue);
  for (const Unchecked& unchecked : examination.unchecked) {
    Json::Value entry(Json::objectValue);
    entry["report"] = unchecked.report;
    entry["reason"] = unchecked.reason;
    document["unchecked"].append(entry);
  }
  printJson(document);
}

ExitStatus statusOf(const Examination& examination, bool areNamed) {
  if (!std::all_of(examination.findings.begin(), examination.findings.end(),
                   [](const Finding& finding) { return finding.repaired; })) {
    return ExitStatus::Damage;
  }
  if (std::any_of(examination.unchecked.begin(), examination.unchecked.end(),
                  [](const Unchecked& unchecked) { return unchecked.isFailure; })) {
    return ExitStatus::Failed;
  }
  // Whoever asks for a report by its name wants to know about that one.
  return areNamed && !examination.unchecked.empty() ? ExitStatus::Busy : ExitStatus::Done;
}

/** Repairs what was found. @return the signal that came in the middle of it. */
std::optional<int> repairAll(const Context& context, Findings& findings) {
  try {
    repair(context.root, findings);
    return std::nullopt;
  } catch (const Interrupted& interrupted) {
    forgetInterrupt();
    return interrupted.signal;
  }
}

void tell(const Context& context, const Examination& examination) {
  for (const Unchecked& unchecked : examination.unchecked) {
    warn(unchecked.report + ": " + unchecked.reason + ", not checked");
  }
  if (context.json) {
    printDocument(examination);
  } else {
    printTable(examination.findings);
  }
}

ExitStatus check(const Context& context, const CheckOptions& options) {
  Examination examination = options.ids.empty()
                                ? examineAll(context.root)
                                : examine(context.root, resolveNames(context.root, options.ids));
  const auto signal = options.repair ? repairAll(context, examination.findings) : std::nullopt;
  tell(context, examination);
  if (signal) {
    flushOutput();
    throw Interrupted{*signal};
  }
  return statusOf(examination, !options.ids.empty());
}

/** The end of `--help`: examples, and all kinds of findings. */
std::string help() {
  std::string text =
      "  kelp-diagnostics check\n"
      "  kelp-diagnostics check 3f2a --json\n"
      "  kelp-diagnostics check --repair\n"
      "\n"
      "Kinds of findings, and what --repair does about them:\n";
  for (const FindingKindText& kind : kFindingKinds) {
    text += std::string("  ") + kind.name + "\n      " + kind.meaning + ";\n      " + kind.repair +
            "\n";
  }
  return text +
         "\n"
         "A report that somebody is changing is not checked. Without --repair nothing is locked "
         "or\n"
         "changed; --repair takes the report's lock, and never removes what may be data.\n"
         "\n"
         "Exit status: 5 when anything was found that is not repaired, otherwise 1 when a report\n"
         "could not be looked at, otherwise 4 when a report that was named was not checked "
         "because\n"
         "it is in use. It is 0 also when all that was found has been repaired.\n";
}

}  // namespace

void addCheck(CLI::App& program, Context& context) {
  const auto verb = addVerb<CheckOptions>(
      program, context, "check", "Find what is damaged, missing or left over", help(), check);
  verb.app->add_option(
      "ID", verb->ids,
      "The reports: identifiers, or beginnings that only they have; otherwise everything");
  verb.app->add_flag("--repair", verb->repair, "Mend what can be mended without losing data");
  addJson(*verb.app, context);
}

}  // namespace KELP::Tool
