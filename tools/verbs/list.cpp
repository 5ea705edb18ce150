#include "base/clock.h"
#include "base/json.h"
#include "base/table.h"
#include "base/text.h"
#include "reports/repository.h"
#include "reports/stage.h"
#include "verbs/argument.h"
#include "verbs/verb.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace KELP::Tool {
namespace {

struct ListOptions {
  std::optional<std::size_t> limit;
  std::string stage;
  std::optional<int> app;
  std::string since;
  std::string until;
  bool noLegend = false;
};

/** Which reports are wanted. */
class Wanted {
 public:
  Wanted(const ListOptions& options, bool utc) : stage_(options.stage), app_(options.app) {
    if (!options.since.empty()) {
      since_ = parseTime(options.since, utc);
    }
    if (!options.until.empty()) {
      until_ = parseTime(options.until, utc);
    }
  }

  [[nodiscard]] bool includes(const StoredReport& report) const {
    const std::optional<long> created = report.metadata.created;
    return (stage_.empty() || report.stageText() == stage_) &&
           (!app_ || report.metadata.appId == app_) &&
           (!since_ || (created && *created >= *since_)) &&
           (!until_ || (created && *created <= *until_));
  }

 private:
  std::string stage_;
  std::optional<int> app_;
  std::optional<long> since_;
  std::optional<long> until_;
};

Style styleOf(const StoredReport& report) {
  if (!report.isSound()) {
    return Style::Red;
  }
  return stageOf(report.metadata) == Stage::Uploaded ? Style::Dim : Style::Plain;
}

/** How many properties it has; nothing when that cannot be known. */
std::optional<Json::UInt64> contentsOf(const StoredReport& report) {
  if (!report.hasStore || report.metadata.hasUnreadableContents()) {
    return std::nullopt;
  }
  return report.metadata.contents ? report.metadata.contents->size() : 0;
}

void printTable(const std::vector<StoredReport>& reports, const std::vector<std::uint64_t>& sizes,
                const Context& context, bool legend) {
  using Align = Table::Align;
  Table table({{"ID"},
               {"CREATED"},
               {"STAGE"},
               {"APP", Align::Right},
               {"PROCESS", Align::Left, true},
               {"CONTENTS", Align::Right},
               {"SIZE", Align::Right},
               {"LOCK"}});
  for (std::size_t at = 0; at < reports.size(); ++at) {
    const StoredReport& report = reports[at];
    const Metadata& metadata = report.metadata;
    const auto contents = contentsOf(report);
    table.add({report.name,
               metadata.created ? timeText(*metadata.created, context.utc) : "-",
               {report.stageText(), styleOf(report)},
               metadata.appId ? std::to_string(*metadata.appId) : "-",
               metadata.processName ? escaped(*metadata.processName) : "-",
               contents ? std::to_string(*contents) : "-",
               sizeText(sizes[at]),
               {nameOf(report.lock), report.lock == LockState::Free ? Style::Dim : Style::Yellow}});
  }
  table.print(legend);
}

Json::Value describe(const StoredReport& report, std::uint64_t size, bool utc) {
  Json::Value value(Json::objectValue);
  value["id"] = report.name;
  value["created"] = jsonTime(report.metadata.created, utc);
  value["stage"] = report.stageText();
  value["app"] = orNull(report.metadata.appId);
  value["process"] = orNull(report.metadata.processName);
  value["contents"] = orNull(contentsOf(report));
  value["size"] = static_cast<Json::UInt64>(size);
  value["lock"] = nameOf(report.lock);
  return value;
}

ExitStatus list(const Context& context, const ListOptions& options) {
  const Wanted wanted(options, context.utc);
  std::vector<StoredReport> reports;
  for (StoredReport& report : readReports(context.root)) {
    if (wanted.includes(report) && (!options.limit || reports.size() < *options.limit)) {
      reports.push_back(std::move(report));
    }
  }
  const std::vector<std::uint64_t> sizes = sizesOf(reports);
  if (!context.json) {
    printTable(reports, sizes, context, !options.noLegend);
    return ExitStatus::Done;
  }
  Json::Value document = jsonDocument("reports");
  for (std::size_t at = 0; at < reports.size(); ++at) {
    document["reports"].append(describe(reports[at], sizes[at], context.utc));
  }
  printJson(document);
  return ExitStatus::Done;
}

}  // namespace

void addList(CLI::App& program, Context& context) {
  const auto verb = addVerb<ListOptions>(program, context, "list", "List the reports, newest first",
                                         "  kelp-diagnostics list\n"
                                         "  kelp-diagnostics list -n 10 --stage awaiting-upload\n"
                                         "  kelp-diagnostics list --since 7d --json\n",
                                         list);
  addCount(*verb.app, "-n", verb->limit, 0, "At most so many");
  addChoice(*verb.app, "--stage", verb->stage, allStageTexts(), "Only those at this stage")
      ->type_name("STAGE");
  addInteger(*verb.app, "--app", verb->app, "Only those of this application")->type_name("APP");
  addWord(*verb.app, "--since", verb->since, "Only those created then or later")->type_name("TIME");
  addWord(*verb.app, "--until", verb->until, "Only those created then or earlier")
      ->type_name("TIME");
  verb.app->add_flag("--no-legend", verb->noLegend, "No headings");
  addJson(*verb.app, context);
  addUtc(*verb.app, context);
}

}  // namespace KELP::Tool
