#include "base/command.h"
#include "base/text.h"
#include "reports/access.h"
#include "reports/describe.h"
#include "verbs/change.h"

#include <fstream>

namespace KELP::Tool {
namespace {

using Diagnostic::DiagnosticReport;

struct FilterOptions {
  ChangeOptions change;
  std::string name;
  int level = 0;
  std::vector<std::string> command;
};

/** Throws a Failure unless the variation has a file of its own. Opening anything else, such as a
 * pipe, could take forever, or lead out of the report. */
void requireStoredFile(const Context& context, const DiagnosticReport& report,
                       const Variation& variation) {
  const StoredReport stored = readReport(context.root, report.getId().toString(), LockTable());
  const FileState state = lookAtFile(stored, variation).state;
  if (state != FileState::Present) {
    throw Failure(ExitStatus::Damage,
                  "the file " + inQuotes(pathInReport(stored, variation)) + " is " + nameOf(state));
  }
}

bool runThrough(const std::vector<std::string>& command, std::ifstream& in, std::ofstream& out) {
  if (!in.is_open() || !out.is_open()) {
    throw Failure(ExitStatus::Failed,
                  in.is_open() ? "cannot write a temporary file" : "cannot read the stored file");
  }
  runFilter(command, in, out);
  return true;
}

ExitStatus filter(const Context& context, const FilterOptions& options) {
  const auto report = openForChange(context, options.change);
  const Property property = requireProperty(*report, options.name);
  requireFileProperty(property);
  requireStoredFile(context, *report, requireVariation(property, options.level));
  require(report->filterFileVariation(
      options.name, options.level,
      [&](std::ifstream& in, std::ofstream& out) { return runThrough(options.command, in, out); }));
  return ExitStatus::Done;
}

}  // namespace

void addFilter(CLI::App& program, Context& context) {
  const auto verb = addVerb<FilterOptions>(
      program, context, "filter", "Replace a stored file by what a command makes of it",
      "  kelp-diagnostics filter 3f2a log 10 -- tail -n 1000\n"
      "  kelp-diagnostics filter 3f2a log 10 -- sh -c 'grep -v password | sort -u'\n"
      "\n"
      "The command has the stored file at its standard input; what it writes to its standard "
      "output\n"
      "takes the file's place. No shell is in between. Unless it ends with status 0 the file "
      "stays\n"
      "as it is, and the exit status is 1. It need not read everything. The file is written over "
      "in\n"
      "place: when the disk is full just then, a part of the new one is left of it.\n",
      filter);
  addChange(*verb.app, verb->change);
  addName(*verb.app, verb->name);
  addLevel(*verb.app, verb->level);
  addRest(*verb.app, "COMMAND", verb->command, "The command and its arguments, behind \"--\"");
}

}  // namespace KELP::Tool
