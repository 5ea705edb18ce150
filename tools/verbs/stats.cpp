#include "base/clock.h"
#include "base/json.h"
#include "base/output.h"
#include "base/table.h"
#include "base/text.h"
#include "reports/repository.h"
#include "reports/stage.h"
#include "verbs/verb.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace KELP::Tool {
namespace {

struct StatsOptions {};

/** Reports of one kind. */
struct Tally {
  std::size_t count = 0;
  std::uint64_t size = 0;

  void add(std::uint64_t bytes) {
    ++count;
    size += bytes;
  }
};

/** A kind as people and as programs read it. */
struct Kind {
  std::string text;
  Json::Value name;
  Tally tally;
};

/** How old a report is at most; the last kinds are all older ones, and those of no known age. */
struct Age {
  const char* text;
  const char* name;
  long limit;  ///< In seconds, not included.
};

constexpr Age kAges[] = {
    {"under 1 hour", "hour", 3600L},
    {"under 1 day", "day", 86400L},
    {"under 1 week", "week", 7 * 86400L},
    {"under 1 month", "month", 30 * 86400L},
    {"older", "older", std::numeric_limits<long>::max()},
};
constexpr std::size_t kUnknownAge = std::size(kAges);

std::size_t ageOf(const std::optional<long>& created, long now) {
  if (!created) {
    return kUnknownAge;
  }
  for (std::size_t at = 0; at + 1 < kUnknownAge; ++at) {
    if (*created > now - kAges[at].limit) {
      return at;
    }
  }
  return kUnknownAge - 1;
}

/** Everything that is counted. */
class Statistics {
 public:
  Statistics(const std::vector<StoredReport>& reports, const std::vector<std::uint64_t>& sizes) {
    const long now = currentTime();
    std::map<std::string, Tally> stages;
    std::map<std::optional<int>, Tally> apps;
    std::vector<Tally> ages(kUnknownAge + 1);
    for (std::size_t at = 0; at < reports.size(); ++at) {
      const StoredReport& report = reports[at];
      total_.add(sizes[at]);
      stages[report.stageText()].add(sizes[at]);
      apps[report.metadata.appId].add(sizes[at]);
      ages[ageOf(report.metadata.created, now)].add(sizes[at]);
      if (largest_.empty() || sizes[at] > largestSize_) {
        largest_ = report.name;
        largestSize_ = sizes[at];
      }
    }
    for (const std::string& stage : allStageTexts()) {
      stages_.push_back({stage, stage, stages[stage]});
    }
    for (const auto& [app, tally] : apps) {
      apps_.push_back(
          {app ? std::to_string(*app) : "unknown", app ? Json::Value(*app) : Json::Value(), tally});
    }
    std::stable_sort(apps_.begin(), apps_.end(),
                     [](const Kind& a, const Kind& b) { return a.tally.count > b.tally.count; });
    for (std::size_t at = 0; at < kUnknownAge; ++at) {
      ages_.push_back({kAges[at].text, kAges[at].name, ages[at]});
    }
    ages_.push_back({"unknown", "unknown", ages[kUnknownAge]});
  }

  void print() const;
  [[nodiscard]] Json::Value describe() const;

 private:
  Tally total_;
  std::string largest_;
  std::uint64_t largestSize_ = 0;
  std::vector<Kind> stages_;
  std::vector<Kind> apps_;
  std::vector<Kind> ages_;
};

/** One table for each group, all with the same columns. */
class Chart {
 public:
  struct Group {
    std::string heading;
    const std::vector<Kind>& kinds;
  };

  explicit Chart(std::vector<Group> groups) : groups_(std::move(groups)) {
    for (const Group& group : groups_) {
      labelColumns_ = std::max(labelColumns_, columnsOf(group.heading));
      for (const Kind& kind : group.kinds) {
        labelColumns_ = std::max(labelColumns_, columnsOf(kind.text));
        countColumns_ = std::max(countColumns_, std::to_string(kind.tally.count).size());
        sizeColumns_ = std::max(sizeColumns_, columnsOf(sizeText(kind.tally.size)));
      }
    }
  }

  void print() const {
    for (const Group& group : groups_) {
      Tool::print("\n");
      printGroup(group);
    }
  }

 private:
  void printGroup(const Group& group) const {
    using Align = Table::Align;
    const std::size_t barColumns = columnsForBars();
    std::vector<Table::Column> columns{{padded(group.heading, labelColumns_)},
                                       {leftPadded("REPORTS", countColumns_), Align::Right},
                                       {leftPadded("SIZE", sizeColumns_), Align::Right}};
    if (barColumns > 0) {
      columns.push_back({""});
    }
    std::size_t most = 1;
    for (const Kind& kind : group.kinds) {
      most = std::max(most, kind.tally.count);
    }
    Table table(columns);
    for (const Kind& kind : group.kinds) {
      const Tally& tally = kind.tally;
      std::vector<Table::Cell> cells{kind.text, std::to_string(tally.count), sizeText(tally.size)};
      if (barColumns > 0) {
        cells.emplace_back(barOf(tally.count, most, barColumns), Style::Blue);
      }
      table.add(std::move(cells));
    }
    table.print(true);
  }

  /** What a terminal has left to the right; 0 when that is too little, or there is none. */
  [[nodiscard]] std::size_t columnsForBars() const {
    constexpr std::size_t kGaps = 6;
    constexpr std::size_t kFewest = 5;
    const std::size_t used = labelColumns_ + countColumns_ + sizeColumns_ + kGaps;
    const bool hasRoom = outputIsTerminal() && terminalColumns() >= used + kFewest;
    return hasRoom ? terminalColumns() - used : 0;
  }

  /** A bar of its share of @p columns; of one at least, unless there is nothing to show. */
  static std::string barOf(std::size_t count, std::size_t most, std::size_t columns) {
    const char* const block = MB_CUR_MAX > 1 ? "█" : "#";
    const std::size_t length = count == 0 ? 0 : std::max<std::size_t>(1, count * columns / most);
    std::string bar;
    for (std::size_t at = 0; at < length; ++at) {
      bar += block;
    }
    return bar;
  }

  static std::string padded(std::string text, std::size_t columns) {
    text.append(columns - std::min(columns, text.size()), ' ');
    return text;
  }

  static std::string leftPadded(std::string text, std::size_t columns) {
    text.insert(0, columns - std::min(columns, text.size()), ' ');
    return text;
  }

  std::vector<Group> groups_;
  std::size_t labelColumns_ = 0;
  std::size_t countColumns_ = std::string("REPORTS").size();
  std::size_t sizeColumns_ = std::string("SIZE").size();
};

void Statistics::print() const {
  Tool::print("Reports: " + std::to_string(total_.count) + "\n");
  Tool::print("Size:    " + sizeText(total_.size) + "\n");
  if (total_.count > 0) {
    Tool::print("Largest: " + largest_ + ", " + sizeText(largestSize_) + "\n");
    Chart({{"STAGE", stages_}, {"APP", apps_}, {"AGE", ages_}}).print();
  }
}

Json::Value describe(const std::vector<Kind>& kinds, const char* name) {
  Json::Value array(Json::arrayValue);
  for (const Kind& kind : kinds) {
    Json::Value value(Json::objectValue);
    value[name] = kind.name;
    value["reports"] = static_cast<Json::UInt64>(kind.tally.count);
    value["size"] = static_cast<Json::UInt64>(kind.tally.size);
    array.append(std::move(value));
  }
  return array;
}

Json::Value Statistics::describe() const {
  Json::Value value(Json::objectValue);
  value["reports"] = static_cast<Json::UInt64>(total_.count);
  value["size"] = static_cast<Json::UInt64>(total_.size);
  value["largest"] = Json::Value();
  if (total_.count > 0) {
    value["largest"]["id"] = largest_;
    value["largest"]["size"] = static_cast<Json::UInt64>(largestSize_);
  }
  value["stages"] = Tool::describe(stages_, "stage");
  value["apps"] = Tool::describe(apps_, "app");
  value["ages"] = Tool::describe(ages_, "age");
  return value;
}

ExitStatus stats(const Context& context, const StatsOptions& /*options*/) {
  const std::vector<StoredReport> reports = readReports(context.root);
  const Statistics statistics(reports, sizesOf(reports));
  if (context.json) {
    Json::Value document = jsonDocument("stats");
    document["stats"] = statistics.describe();
    printJson(document);
  } else {
    statistics.print();
  }
  return ExitStatus::Done;
}

}  // namespace

void addStats(CLI::App& program, Context& context) {
  const auto verb = addVerb<StatsOptions>(
      program, context, "stats", "Count the reports by stage, application and age",
      "  kelp-diagnostics stats\n"
      "  kelp-diagnostics stats --json\n"
      "\n"
      "A month has 30 days. Bars are drawn on a terminal, to the width that it has left.\n",
      stats);
  addJson(*verb.app, context);
}

}  // namespace KELP::Tool
