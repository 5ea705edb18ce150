#include "base/json.h"
#include "base/log.h"
#include "base/output.h"
#include "base/text.h"
#include "reports/access.h"
#include "verbs/change.h"
#include "verbs/description.h"

#include <diagnostic/diagnosticdata.h>

#include <algorithm>

namespace KELP::Tool {
namespace {

using Diagnostic::DiagnosticReport;
using Diagnostic::ReportUuid;

struct CreateOptions {
  std::string id;
  std::optional<int> app;
  std::optional<int> build;
  std::optional<int> user;
  std::string device;
  std::string session;
  Description description;
  long waitMs = 0;
};

ReportUuid idOf(const CreateOptions& options) {
  ReportUuid id;
  if (options.id.empty()) {
    id.randomize();
  } else if (!id.parse(options.id.c_str())) {
    throw Failure(ExitStatus::Usage, inQuotes(options.id) + " is not an identifier such as " +
                                         "8c5f2e1a-3b7d-4f60-9a1e-d2c4b6a80f13");
  }
  return id;
}

void removeAgain(DiagnosticReport& report) {
  if (!report.acquireWriteLock(false) || !report.deleteReport()) {
    warn("the new report " + report.getId().toString() + " stays, without what was to be in it");
  }
}

/** Fills in what is not given at creation itself. A report that cannot be filled does not stay. */
void describe(DiagnosticReport& report, const CreateOptions& options) {
  if (options.description.isEmpty()) {
    return;
  }
  // Whoever watches the repository opens a new report at once, and has it for a moment.
  constexpr long kLeastMs = 5000;
  try {
    if (!takeWriteLock(report, std::max(options.waitMs, kLeastMs))) {
      throw Failure(ExitStatus::Busy, "the new report " + report.getId().toString() +
                                          " is in use by another process, and is not described");
    }
    options.description.store(report);
  } catch (...) {
    removeAgain(report);  // The first failure is the one to be told.
    throw;
  }
}

ExitStatus create(const Context& context, const CreateOptions& options) {
  options.description.check();
  const ReportUuid id = idOf(options);
  const auto report = Diagnostic::DiagnosticData(context.root)
                          .createReport(id, options.app.value_or(0), options.build.value_or(0),
                                        options.user.value_or(0), options.device, options.session);
  if (!report) {
    throw Failure(ExitStatus::Failed, lastLoggedError());
  }
  describe(*report, options);
  if (context.json) {
    Json::Value document(Json::objectValue);
    document["schema"] = kJsonSchema;
    document["id"] = id.toString();
    printJson(document);
  } else {
    print(id.toString() + "\n");
  }
  return ExitStatus::Done;
}

}  // namespace

void addCreate(CLI::App& program, Context& context) {
  const auto verb = addVerb<CreateOptions>(
      program, context, "create", "Create a report and print its identifier",
      "  kelp-diagnostics create\n"
      "  kelp-diagnostics create --app 7 --process player --description 'no sound'\n"
      "  id=$(kelp-diagnostics create --device \"$(hostname)\")\n"
      "\n"
      "The root directory is created when it is missing. What --description, --pid, --process\n"
      "and --library give is filled in under the report's lock. Whoever watches the repository\n"
      "may have it just then, which is waited for, 5 s or --wait if that is longer. A report\n"
      "that cannot be filled does not stay.\n",
      create);
  addWord(*verb.app, "--id", verb->id, "Its identifier, instead of a random one")
      ->type_name("UUID");
  addInteger(*verb.app, "--app", verb->app, "The application that reports (default: 0)");
  addInteger(*verb.app, "--build", verb->build, "The application's build (default: 0)");
  addInteger(*verb.app, "--user", verb->user, "The user (default: 0)");
  addText(*verb.app, "--device", verb->device, "The device");
  addText(*verb.app, "--session", verb->session, "The session");
  addDescription(*verb.app, verb->description);
  addWait(*verb.app, verb->waitMs);
  addJson(*verb.app, context);
}

}  // namespace KELP::Tool
