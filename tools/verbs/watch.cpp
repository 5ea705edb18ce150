#include "base/clock.h"
#include "base/failure.h"
#include "base/files.h"
#include "base/interrupt.h"
#include "base/json.h"
#include "base/output.h"
#include "base/text.h"
#include "reports/follower.h"
#include "reports/repository.h"
#include "verbs/argument.h"
#include "verbs/verb.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <csignal>
#include <cstddef>
#include <optional>
#include <utility>
#include <vector>

namespace KELP::Tool {
namespace {

struct WatchOptions {
  std::vector<std::string> ids;
  bool noExisting = false;
  std::optional<std::size_t> limit;
};

struct HappeningName {
  const char* text;
  const char* json;
  Style style;
};

/** In the order of Happening. */
constexpr std::array<HappeningName, 4> kHappeningNames{{
    {"EXISTING", "existing", Style::Dim},
    {"ADDED   ", "added", Style::Green},
    {"UPDATED ", "updated", Style::Yellow},
    {"REMOVED ", "removed", Style::Red},
}};

const HappeningName& nameOf(Happening happening) {
  return kHappeningNames.at(static_cast<std::size_t>(happening));
}

/** Prints events with what their reports are now. */
class Printer {
 public:
  explicit Printer(const Context& context) : context_(context) {}

  void print(const ReportEvent& event) const {
    const std::optional<StoredReport> report = reportOf(event);
    if (context_.json) {
      printJsonLine(describe(event, report));
    } else {
      printNow(lineOf(event, report));
    }
  }

 private:
  [[nodiscard]] std::optional<StoredReport> reportOf(const ReportEvent& event) const {
    if (event.happening == Happening::Removed || !entryAt(context_.root / event.name)) {
      return std::nullopt;
    }
    return readReport(context_.root, event.name, locks_);
  }

  [[nodiscard]] std::string lineOf(const ReportEvent& event,
                                   const std::optional<StoredReport>& report) const {
    std::string line = timeText(event.time, context_.utc) + "  " +
                       styled(nameOf(event.happening).text, nameOf(event.happening).style) + "  " +
                       event.name;
    if (report) {
      const Metadata& metadata = report->metadata;
      line += "  " + report->stageText();
      line += "  " + (metadata.appId ? std::to_string(*metadata.appId) : "-");
      line += "  " + (metadata.processName ? escaped(*metadata.processName) : "-");
    }
    return line + "\n";
  }

  [[nodiscard]] Json::Value describe(const ReportEvent& event,
                                     const std::optional<StoredReport>& report) const {
    Json::Value value(Json::objectValue);
    value["schema"] = kJsonSchema;
    value["event"] = nameOf(event.happening).json;
    value["id"] = event.name;
    value["time"] = timeText(event.time, context_.utc);
    value["stage"] = report ? Json::Value(report->stageText()) : Json::Value();
    value["app"] = report ? orNull(report->metadata.appId) : Json::Value();
    value["process"] = report ? orNull(report->metadata.processName) : Json::Value();
    return value;
  }

  const Context& context_;
  LockTable locks_;  // Nothing is said about locks, so it may grow old.
};

/** The beginnings that are asked for, as identifiers are written. Reports may be asked for before
 * they exist, but only what can be a beginning of an identifier. */
std::vector<std::string> prefixesOf(const std::vector<std::string>& ids) {
  constexpr std::string_view kForm = "xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx";
  std::vector<std::string> prefixes;
  for (std::string id : ids) {
    bool isBeginning = !id.empty() && id.size() <= kForm.size();
    for (std::size_t at = 0; isBeginning && at < id.size(); ++at) {
      const auto letter = static_cast<unsigned char>(id[at]);
      isBeginning = kForm[at] == '-' ? letter == '-' : std::isxdigit(letter) != 0;
      id[at] = static_cast<char>(std::tolower(letter));
    }
    if (!isBeginning) {
      throw Failure(ExitStatus::Usage, inQuotes(id) + " is not the beginning of an identifier");
    }
    prefixes.push_back(std::move(id));
  }
  return prefixes;
}

bool beginsWithAny(const std::string& id, const std::vector<std::string>& prefixes) {
  return prefixes.empty() || std::any_of(prefixes.begin(), prefixes.end(), [&](const auto& prefix) {
           return id.starts_with(prefix);
         });
}

/** Prints what comes, to the limit. */
void printEvents(const Context& context, const WatchOptions& options) {
  const std::vector<std::string> prefixes = prefixesOf(options.ids);
  const Printer printer(context);
  Follower follower(context.root);
  for (std::size_t printed = 0;;) {
    for (const ReportEvent& event : follower.take()) {
      checkInterrupt();
      if (!beginsWithAny(event.name, prefixes) ||
          (options.noExisting && event.happening == Happening::Existing)) {
        continue;
      }
      printer.print(event);
      if (++printed == options.limit) {
        return;
      }
    }
  }
}

ExitStatus watch(const Context& context, const WatchOptions& options) {
  try {
    printEvents(context, options);
  } catch (const Interrupted& interrupted) {
    if (interrupted.signal != SIGINT && interrupted.signal != SIGTERM) {
      throw;
    }
    forgetInterrupt();  // This is how it is meant to end.
    discardOutput();    // The rest of a line that its reader did not take.
  }
  return ExitStatus::Done;
}

}  // namespace

void addWatch(CLI::App& program, Context& context) {
  const auto verb = addVerb<WatchOptions>(
      program, context, "watch", "Print what happens to reports as it happens, until interrupted",
      "  kelp-diagnostics watch\n"
      "  kelp-diagnostics watch --no-existing -n 1\n"
      "  kelp-diagnostics watch --json | jq -r 'select(.event == \"added\").id'\n",
      watch);
  verb.app->add_option("ID", verb->ids,
                       "Only these: identifiers, or beginnings of them; they may not exist yet");
  verb.app->add_flag("--no-existing", verb->noExisting,
                     "Leave out the reports that are there at the start");
  addCount(*verb.app, "-n", verb->limit, 1, "End after so many events");
  verb.app->add_flag("--json", context.json, "Print one JSON document on each line");
  addUtc(*verb.app, context);
}

}  // namespace KELP::Tool
