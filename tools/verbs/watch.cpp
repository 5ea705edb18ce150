#include "base/clock.h"
#include "base/failure.h"
#include "base/interrupt.h"
#include "base/json.h"
#include "base/output.h"
#include "base/text.h"
#include "reports/repository.h"
#include "verbs/verb.h"

#include <diagnostic/diagnosticdata.h>
#include <diagnostic/diagnosticdataobserver.h>

#include <poll.h>
#include <stdio_ext.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

namespace KELP::Tool {
namespace {

using Diagnostic::DiagnosticDataObserver;
using Diagnostic::ReportUuid;
using EventType = DiagnosticDataObserver::EventType;

constexpr std::chrono::seconds kStartPatience{1};

struct WatchOptions {
  std::vector<std::string> ids;
  bool noExisting = false;
  std::optional<std::size_t> limit;
};

struct Event {
  std::string id;
  EventType type;
  long time;
};

struct EventName {
  EventType type;
  const char* text;
  const char* json;
  Style style;
};

constexpr std::array<EventName, 4> kEventNames{{
    {EventType::REPORT_EXISTING, "EXISTING", "existing", Style::Dim},
    {EventType::REPORT_ADDED, "ADDED   ", "added", Style::Green},
    {EventType::REPORT_UPDATED, "UPDATED ", "updated", Style::Yellow},
    {EventType::REPORT_REMOVED, "REMOVED ", "removed", Style::Red},
}};

const EventName& nameOf(EventType type) {
  return kEventNames.at(static_cast<std::size_t>(type));
}

/** What other threads hand to the one that prints. That one waits until something came, a signal
 *  came, or nobody reads the standard output any more. */
class EventQueue {
 public:
  EventQueue() : wake_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (wake_ < 0) {
      throw Failure(ExitStatus::Failed, "cannot wait: " + std::system_category().message(errno));
    }
  }
  ~EventQueue() { ::close(wake_); }
  EventQueue(const EventQueue&) = delete;
  EventQueue& operator=(const EventQueue&) = delete;

  /** From any thread. */
  void push(Event event) {
    {
      const std::lock_guard lock(mutex_);
      events_.push_back(std::move(event));
    }
    wake();
  }

  /** The starting of the observer failed, or is done (null). From any thread. */
  void finishStart(std::exception_ptr failure) {
    {
      const std::lock_guard lock(mutex_);
      failure_ = std::move(failure);
    }
    wake();
  }

  /** All that came. Throws Interrupted, and what the starting failed with. */
  std::vector<Event> take() {
    while (!isReady()) {
      waitForMore();
    }
    const std::lock_guard lock(mutex_);
    if (events_.empty()) {
      std::rethrow_exception(failure_);
    }
    return std::exchange(events_, {});
  }

 private:
  void wake() const {
    const std::uint64_t one = 1;
    // It can only fail when a wake-up is pending already.
    [[maybe_unused]] const ssize_t written = ::write(wake_, &one, sizeof(one));
  }

  bool isReady() {
    std::uint64_t count = 0;
    [[maybe_unused]] const ssize_t size = ::read(wake_, &count, sizeof(count));
    const std::lock_guard lock(mutex_);
    return !events_.empty() || failure_;
  }

  /** Signals are let in only while it waits, so none comes unseen between the look and the wait. */
  void waitForMore() const {
    const BlockedSignals blocked;
    checkInterrupt();
    std::array<pollfd, 2> polled{{{wake_, POLLIN, 0}, {STDOUT_FILENO, 0, 0}}};
    ::ppoll(polled.data(), polled.size(), nullptr, &blocked.before());
    checkInterrupt();
    if (polled[1].revents != 0) {
      throw Interrupted{SIGPIPE};
    }
  }

  int wake_;
  std::mutex mutex_;
  std::vector<Event> events_;
  std::exception_ptr failure_;
};

/**
 * The observer, started on a thread of its own: starting opens every report and may wait a second
 * for each that is being written, and meanwhile what came shall be printed and signals be heeded.
 */
class Watching {
 public:
  Watching(const std::filesystem::path& root, DiagnosticDataObserver::Callback callback,
           EventQueue& queue)
      : observer_(std::make_shared<Diagnostic::DiagnosticData>(root), std::move(callback),
                  nullptr) {
    const BlockedSignals blocked;  // The observer's threads inherit it: signals are for this one.
    starter_ = std::thread([this, &queue] {
      std::exception_ptr failure;
      try {
        observer_.start();
      } catch (...) {
        failure = std::current_exception();
      }
      queue.finishStart(failure);
      hasStarted_.set_value();
    });
  }

  /** Ends it. When that would take long, since it has not even started, the process ends here. */
  void end(ExitStatus status) {
    if (hasStarted_.get_future().wait_for(kStartPatience) != std::future_status::ready) {
      std::_Exit(static_cast<int>(status));
    }
  }

  ~Watching() { starter_.join(); }
  Watching(const Watching&) = delete;
  Watching& operator=(const Watching&) = delete;

 private:
  DiagnosticDataObserver observer_;
  std::promise<void> hasStarted_;
  std::thread starter_;
};

/** Prints events with what their reports are now. */
class Printer {
 public:
  explicit Printer(const Context& context) : context_(context) {}

  void print(const Event& event) const {
    const std::optional<StoredReport> report = reportOf(event);
    if (context_.json) {
      printJsonLine(describe(event, report));
    } else {
      Tool::print(lineOf(event, report));
      flushOutput();
    }
  }

 private:
  [[nodiscard]] std::optional<StoredReport> reportOf(const Event& event) const {
    std::error_code error;
    if (event.type == EventType::REPORT_REMOVED ||
        !std::filesystem::exists(context_.root / event.id, error)) {
      return std::nullopt;
    }
    return readReport(context_.root, event.id, locks_);
  }

  [[nodiscard]] std::string lineOf(const Event& event,
                                   const std::optional<StoredReport>& report) const {
    std::string line = timeText(event.time, context_.utc) + "  " +
                       styled(nameOf(event.type).text, nameOf(event.type).style) + "  " + event.id;
    if (report) {
      const Metadata& metadata = report->metadata;
      line += "  " + report->stageText();
      line += "  " + (metadata.appId ? std::to_string(*metadata.appId) : "-");
      line += "  " + (metadata.processName ? escaped(*metadata.processName) : "-");
    }
    return line + "\n";
  }

  [[nodiscard]] Json::Value describe(const Event& event,
                                     const std::optional<StoredReport>& report) const {
    Json::Value value(Json::objectValue);
    value["schema"] = kJsonSchema;
    value["event"] = nameOf(event.type).json;
    value["id"] = event.id;
    value["time"] = timeText(event.time, context_.utc);
    value["stage"] = report ? Json::Value(report->stageText()) : Json::Value();
    value["app"] =
        report && report->metadata.appId ? Json::Value(*report->metadata.appId) : Json::Value();
    value["process"] = report && report->metadata.processName
                           ? Json::Value(*report->metadata.processName)
                           : Json::Value();
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
      throw Failure(ExitStatus::Usage,
                    "\"" + escaped(id) + "\" is not the beginning of an identifier");
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
void printEvents(EventQueue& queue, const Printer& printer, std::optional<std::size_t> limit) {
  for (std::size_t printed = 0;;) {
    for (const Event& event : queue.take()) {
      checkInterrupt();
      printer.print(event);
      if (++printed == limit) {
        return;
      }
    }
  }
}

ExitStatus watch(const Context& context, const WatchOptions& options) {
  const std::vector<std::string> prefixes = prefixesOf(options.ids);
  static_cast<void>(reportNames(context.root));  // Throws when there is no such root.
  EventQueue queue;
  const Printer printer(context);
  Watching watching(
      context.root,
      [&](const ReportUuid& uuid, EventType type, void* /*userData*/) {
        std::string id = uuid.toString();
        if (beginsWithAny(id, prefixes) &&
            !(options.noExisting && type == EventType::REPORT_EXISTING)) {
          queue.push({std::move(id), type, currentTime()});
        }
      },
      queue);
  try {
    printEvents(queue, printer, options.limit);
  } catch (const Interrupted& interrupted) {
    if (interrupted.signal != SIGINT && interrupted.signal != SIGTERM) {
      endBySignal(interrupted.signal);  // At once, even while the observer is starting.
    }
    ::__fpurge(stdout);  // The rest of a line that its reader did not take.
  }
  watching.end(ExitStatus::Done);
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
  verb.app->add_option("-n", verb->limit, "End after so many events")
      ->check(CLI::PositiveNumber)
      ->type_name("COUNT");
  addJson(*verb.app, context);
  addUtc(*verb.app, context);
}

}  // namespace KELP::Tool
