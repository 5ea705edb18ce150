#include "base/interrupt.h"
#include "base/json.h"
#include "base/output.h"
#include "base/progress.h"
#include "base/question.h"
#include "base/text.h"
#include "reports/removal.h"
#include "reports/repository.h"
#include "verbs/verb.h"

#include <algorithm>
#include <iterator>
#include <string>
#include <vector>

namespace KELP::Tool {
namespace {

struct RemoveOptions {
  std::vector<std::string> ids;
  bool force = false;
  bool yes = false;
};

using Outcome = Removal::Outcome;

std::vector<StoredReport> findAll(const Context& context, const std::vector<std::string>& ids) {
  std::vector<StoredReport> reports;
  const LockTable locks;
  for (const std::string& name : resolveNames(context.root, ids)) {
    reports.push_back(readReport(context.root, name, locks));
  }
  return reports;
}

bool isAgreedTo(const std::vector<StoredReport>& reports) {
  std::string question;
  for (const StoredReport& report : reports) {
    question += "  " + report.name + "  " + report.stageText();
    if (report.metadata.processName) {
      question += "  " + escaped(*report.metadata.processName);
    }
    question += "\n";
  }
  return confirmed(question + "Remove " + counted(reports.size(), "report") + "?");
}

/** How a failure is told, and what it does to the exit status; those before count more. */
struct FailureKind {
  Outcome outcome;
  ExitStatus status;
  const char* name;
  const char* hint;
};

constexpr FailureKind kFailures[] = {
    {Outcome::Busy, ExitStatus::Busy, "busy", ""},
    {Outcome::Damaged, ExitStatus::Damage, "damaged", " (--force removes it all the same)"},
    {Outcome::Failed, ExitStatus::Failed, "failed", ""},
    {Outcome::Gone, ExitStatus::Done, "gone", ""},
};

/** What was done, for the end. */
class Account {
 public:
  explicit Account(bool json) : json_(json) { document_["failed"] = Json::Value(Json::arrayValue); }

  void add(const StoredReport& report, const Removal& removal) {
    Json::Value entry(Json::objectValue);
    entry["id"] = report.name;
    if (removal.outcome == Outcome::Removed) {
      document_["removed"].append(entry);
      if (!json_) {
        printNow("removed " + report.name + "\n");
      }
      return;
    }
    const auto* const failure =
        std::find_if(std::begin(kFailures), std::end(kFailures),
                     [&](const FailureKind& kind) { return kind.outcome == removal.outcome; });
    warn("the report " + report.name + " was not removed: " + removal.reason + failure->hint);
    entry["reason"] = failure->name;
    entry["message"] = removal.reason;
    document_["failed"].append(entry);
    worst_ = std::min(worst_, failure);
  }

  [[nodiscard]] ExitStatus finish() const {
    if (json_) {
      printJson(document_);
    }
    return worst_ == std::end(kFailures) ? ExitStatus::Done : worst_->status;
  }

 private:
  bool json_;
  Json::Value document_ = jsonDocument("removed");
  const FailureKind* worst_ = std::end(kFailures);
};

ExitStatus remove(const Context& context, const RemoveOptions& options) {
  const std::vector<StoredReport> reports = findAll(context, options.ids);
  if (!options.yes && canAsk() && !isAgreedTo(reports)) {
    throw Failure(ExitStatus::Failed, "nothing was removed");
  }
  Account account(context.json);
  Progress progress("Removing reports", reports.size());
  try {
    for (const StoredReport& report : reports) {
      checkInterrupt();
      account.add(report, removeReport(context.root, report, options.force));
      progress.step();
    }
  } catch (const Interrupted&) {
    static_cast<void>(account.finish());  // What was done is told in every case.
    flushOutput();
    throw;
  }
  return account.finish();
}

constexpr const char* kHelp =
    "  kelp-diagnostics remove 3f2a\n"
    "  kelp-diagnostics remove -y 3f2a 81c0 d5\n"
    "  kelp-diagnostics remove --force 3f2a\n"
    "\n"
    "On a terminal it asks first. Nothing is removed unless every ID is found. A report that is "
    "in\n"
    "use stays, also with --force, and the others are removed all the same.\n"
    "\n"
    "Exit status: 4 when a report was in use, otherwise 5 when one was damaged or half-made and\n"
    "--force was not given, otherwise 1 when one could not be removed, or the answer was no.\n";

}  // namespace

void addRemove(CLI::App& program, Context& context) {
  const auto verb = addVerb<RemoveOptions>(
      program, context, "remove", "Remove reports with all that is in them", kHelp, remove);
  verb.app
      ->add_option("ID", verb->ids, "The reports: identifiers, or beginnings that only they have")
      ->required();
  verb.app->add_flag("--force", verb->force, "Also remove what is damaged or half-made");
  verb.app->add_flag("-y,--yes", verb->yes, "Do not ask");
  addJson(*verb.app, context);
}

}  // namespace KELP::Tool
