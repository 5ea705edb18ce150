#include "base/clock.h"
#include "base/files.h"
#include "base/interrupt.h"
#include "base/json.h"
#include "base/output.h"
#include "base/progress.h"
#include "base/text.h"
#include "reports/removal.h"
#include "reports/repository.h"
#include "reports/stage.h"
#include "verbs/argument.h"
#include "verbs/verb.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace KELP::Tool {
namespace {

struct PruneOptions {
  std::string maxAge;
  std::optional<std::size_t> maxCount;
  std::string maxSize;
  bool uploadedOnly = false;
  bool dryRun = false;
};

/** A report that may have to go. */
struct Candidate {
  StoredReport report;
  std::uint64_t size;
  bool isGone = false;  ///< It counts no more.
};

/** What is in the repository at a moment. */
struct Stock {
  std::size_t count = 0;
  std::uint64_t size = 0;
};

/** The limits of the whole repository. */
class Limits {
 public:
  explicit Limits(const PruneOptions& options) : count_(options.maxCount) {
    if (options.maxAge.empty() && options.maxSize.empty() && !options.maxCount) {
      throw Failure(ExitStatus::Usage, "give --max-age, --max-count or --max-size");
    }
    if (!options.maxAge.empty()) {
      oldest_ = currentTime() - parseSpan(options.maxAge);
      ageText_ = escaped(options.maxAge);
    }
    if (!options.maxSize.empty()) {
      size_ = parseSize(options.maxSize);
    }
  }

  /** A limit that is broken; nothing of it when none is. */
  struct Breach {
    const char* name;  ///< The option's name.
    std::string text;  ///< Why a report goes.
  };

  [[nodiscard]] std::optional<Breach> byAge(const StoredReport& report) const {
    if (oldest_ && report.metadata.created && *report.metadata.created < *oldest_) {
      return Breach{"max-age", "older than " + ageText_};
    }
    return std::nullopt;
  }

  [[nodiscard]] std::optional<Breach> byCount(const Stock& stock) const {
    if (count_ && stock.count > *count_) {
      return Breach{"max-count", "more than " + counted(*count_, "report")};
    }
    return std::nullopt;
  }

  [[nodiscard]] std::optional<Breach> bySize(const Stock& stock) const {
    if (size_ && stock.size > *size_) {
      return Breach{"max-size", "more than " + sizeText(*size_)};
    }
    return std::nullopt;
  }

  /** Why @p report has to go while there is @p stock. */
  [[nodiscard]] std::optional<Breach> brokenBy(const StoredReport& report,
                                               const Stock& stock) const {
    for (auto breach : {byAge(report), byCount(stock), bySize(stock)}) {
      if (breach) {
        return breach;
      }
    }
    return std::nullopt;
  }

 private:
  std::optional<long> oldest_;
  std::string ageText_;
  std::optional<std::size_t> count_;
  std::optional<std::uint64_t> size_;
};

/** Tells what is done, as it is done or as one document at the end. */
class Account {
 public:
  Account(const Context& context, bool dryRun) : context_(context), dryRun_(dryRun) {
    document_["dry_run"] = dryRun;
    document_["left"] = Json::Value(Json::arrayValue);
    document_["exceeded"] = Json::Value(Json::arrayValue);
  }

  void removed(const Candidate& candidate, const Limits::Breach& breach) {
    Json::Value entry(Json::objectValue);
    entry["id"] = candidate.report.name;
    entry["created"] = jsonTime(candidate.report.metadata.created, context_.utc);
    entry["size"] = static_cast<Json::UInt64>(candidate.size);
    entry["reason"] = breach.name;
    document_["removed"].append(entry);
    say((dryRun_ ? "would remove " : "removed ") + candidate.report.name + ": " + breach.text);
  }

  void left(const StoredReport& report, const std::string& reason) {
    Json::Value entry(Json::objectValue);
    entry["id"] = report.name;
    entry["reason"] = reason;
    document_["left"].append(entry);
    say((dryRun_ ? "would leave " : "left ") + report.name + ": " + reason);
  }

  void exceeded(const std::optional<Limits::Breach>& breach, const std::string& what) {
    if (breach) {
      document_["exceeded"].append(breach->name);
      warn("the limit --" + std::string(breach->name) + (dryRun_ ? " would not be" : " was not") +
           " reached: " + what);
    }
  }

  void finish(const Stock& stock) {
    document_["count"] = static_cast<Json::UInt64>(stock.count);
    document_["size"] = static_cast<Json::UInt64>(stock.size);
    if (context_.json) {
      printJson(document_);
    }
  }

 private:
  void say(const std::string& line) const {
    if (!context_.json) {
      printNow(line + "\n");
    }
  }

  const Context& context_;
  bool dryRun_;
  Json::Value document_ = jsonDocument("removed");
};

/** Whether nothing was added to a directory, or removed, between two looks at it. */
bool isSame(const std::optional<Entry>& a, const std::optional<Entry>& b) {
  return a && b && a->status.st_mtim.tv_sec == b->status.st_mtim.tv_sec &&
         a->status.st_mtim.tv_nsec == b->status.st_mtim.tv_nsec;
}

/** Takes reports away, the oldest first, until the limits are kept or nothing more may go. */
class Pruning {
 public:
  Pruning(const Context& context, const PruneOptions& options)
      : context_(context),
        options_(options),
        limits_(options),
        account_(context, options.dryRun),
        candidates_(readCandidates(context.root)) {}

  ExitStatus run() {
    for (const Candidate& candidate : candidates_) {
      ++stock_.count;
      stock_.size += candidate.size;
    }
    try {
      considerAll();
    } catch (const Interrupted&) {
      account_.finish(stock_);  // What was done is told in every case.
      flushOutput();
      throw;
    }
    tellOfLimits();
    account_.finish(stock_);
    return hasFailed_ ? ExitStatus::Failed : ExitStatus::Done;
  }

 private:
  void considerAll() {
    Progress progress(options_.dryRun ? "Looking at reports" : "Pruning reports",
                      candidates_.size());
    rootAsKnown_ = entryAt(context_.root);
    for (Candidate& candidate : candidates_) {
      forgetWhatOthersRemoved();
      if (!candidate.isGone) {
        consider(candidate);
      }
      progress.step();
    }
  }

  void tellOfLimits() {
    if (tooOld_ > 0) {
      account_.exceeded(Limits::Breach{"max-age", {}},
                        counted(tooOld_, "report") + (tooOld_ == 1 ? " is" : " are") + " older");
    }
    account_.exceeded(limits_.byCount(stock_), counted(stock_.count, "report") + " left");
    account_.exceeded(limits_.bySize(stock_), sizeText(stock_.size) + " left");
  }

  /** All reports, the oldest first. */
  static std::vector<Candidate> readCandidates(const std::filesystem::path& root) {
    std::vector<StoredReport> reports = readReports(root);
    const std::vector<std::uint64_t> sizes = sizesOf(reports);
    std::vector<Candidate> candidates;
    candidates.reserve(reports.size());
    for (std::size_t at = reports.size(); at-- > 0;) {
      candidates.push_back({std::move(reports[at]), sizes[at]});
    }
    return candidates;
  }

  /** Others may prune, too: what they have removed does not count any more. */
  void forgetWhatOthersRemoved() {
    const auto root = entryAt(context_.root);
    if (isSame(root, rootAsKnown_)) {
      return;
    }
    rootAsKnown_ = root;
    for (Candidate& candidate : candidates_) {
      if (!candidate.isGone && !entryAt(candidate.report.directory)) {
        forget(candidate);
      }
    }
  }

  void forget(Candidate& candidate) {
    candidate.isGone = true;
    --stock_.count;
    stock_.size -= candidate.size;
  }

  void consider(Candidate& candidate) {
    const StoredReport& report = candidate.report;
    const auto breach = limits_.brokenBy(report, stock_);
    if (!breach) {
      return;
    }
    if (!report.isSound()) {
      leave(report, report.stageText());
    } else if (options_.uploadedOnly && stageOf(report.metadata) != Stage::Uploaded) {
      keep(report);  // No word for each: that is what was asked for.
    } else {
      take(candidate, *breach);
    }
  }

  void take(Candidate& candidate, const Limits::Breach& breach) {
    using Outcome = Removal::Outcome;
    const auto rootBefore = entryAt(context_.root);
    const Removal removal = options_.dryRun ? rehearse(candidate.report)
                                            : removeReport(context_.root, candidate.report, false);
    if (removal.outcome == Outcome::Busy || removal.outcome == Outcome::Damaged ||
        removal.outcome == Outcome::Failed) {
      leave(candidate.report, removal.reason);
      hasFailed_ |= removal.outcome == Outcome::Failed;
      return;
    }
    if (isSame(rootBefore, rootAsKnown_)) {
      rootAsKnown_ = entryAt(context_.root);  // Changed by the removal.
    }
    forget(candidate);
    if (removal.outcome == Outcome::Removed) {
      account_.removed(candidate, breach);
    }
  }

  /** What removeReport() would come to. */
  static Removal rehearse(const StoredReport& report) {
    return report.lock == LockState::Free ? Removal{Removal::Outcome::Removed, {}}
                                          : Removal{Removal::Outcome::Busy, "in use"};
  }

  void leave(const StoredReport& report, const std::string& reason) {
    account_.left(report, reason);
    keep(report);
  }

  void keep(const StoredReport& report) { tooOld_ += limits_.byAge(report) ? 1 : 0; }

  const Context& context_;
  const PruneOptions& options_;
  Limits limits_;
  Account account_;
  std::vector<Candidate> candidates_;
  std::optional<Entry> rootAsKnown_;  ///< Its times tell whether others have changed it.
  Stock stock_;
  std::size_t tooOld_ = 0;
  bool hasFailed_ = false;
};

ExitStatus prune(const Context& context, const PruneOptions& options) {
  return Pruning(context, options).run();
}

constexpr const char* kHelp =
    "  kelp-diagnostics prune --max-age 7d\n"
    "  kelp-diagnostics prune --max-count 1000 --max-size 500M --uploaded-only\n"
    "  kelp-diagnostics prune --max-age 12h --dry-run\n"
    "\n"
    "At least one limit is needed. The limits are about the repository as a whole: all reports\n"
    "count, also those that may not go. The oldest go first, until every limit is kept. A report\n"
    "that is in use, is damaged or half-made (see check), or may not be read is never pruned.\n"
    "\n"
    "Exit status: 0 also when a limit could not be reached, which is told on the standard error;\n"
    "1 when a report could not be removed though it is sound and not in use.\n";

}  // namespace

void addPrune(CLI::App& program, Context& context) {
  const auto verb = addVerb<PruneOptions>(
      program, context, "prune", "Remove the oldest reports until limits are kept", kHelp, prune);
  addWord(*verb.app, "--max-age", verb->maxAge, "Remove what was created longer ago, such as 7d")
      ->type_name("SPAN");
  addCount(*verb.app, "--max-count", verb->maxCount, 0, "Remove until so many are left")
      ->type_name("N");
  addWord(*verb.app, "--max-size", verb->maxSize,
          "Remove until all files together are not larger, such as 500M")
      ->type_name("SIZE");
  verb.app->add_flag("--uploaded-only", verb->uploadedOnly, "Only remove what has been uploaded");
  verb.app->add_flag("--dry-run", verb->dryRun, "Only say what would be removed");
  addJson(*verb.app, context);
  addUtc(*verb.app, context);
}

}  // namespace KELP::Tool
