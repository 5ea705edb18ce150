#include "barecalls.h"
#include "changememory.h"
#include "peers/sqlitedatabase.h"
#include "reports.h"
#include "sampledata.h"
#include "support/childprocess.h"
#include "support/temporarydirectory.h"

#include <diagnostic/diagnosticdataobserver.h>

#include <benchmark/benchmark.h>
#include <sys/inotify.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

// The observer: how soon it tells of a change that another process makes, how many it can tell of,
// and how long it takes to start. Beside it stands a thread that does nothing but read inotify.

namespace KELP::Bench {
namespace {

using EventType = Diagnostic::DiagnosticDataObserver::EventType;

/** What is called for each update. */
using Told = std::function<void()>;

/** Tells of updates by the library. */
class LibraryWatcher {
 public:
  LibraryWatcher(const std::string& root, Told told)
      : observer_(
            std::make_shared<Diagnostic::DiagnosticData>(root),
            [told = std::move(told)](const Diagnostic::ReportUuid&, EventType type, void*) {
              if (type == EventType::REPORT_UPDATED) {
                told();
              }
            },
            nullptr) {
    observer_.start();
  }

 private:
  Diagnostic::DiagnosticDataObserver observer_;
};

/** Tells of updates by the bare calls that they need. */
class BareWatcher {
 public:
  BareWatcher(const std::string& root, Told told)
      : inotify_(root), thread_([this, told = std::move(told)] { inotify_.tellUpdates(told); }) {}
  ~BareWatcher() {
    inotify_.end();
    thread_.join();
  }
  BareWatcher(const BareWatcher&) = delete;
  BareWatcher& operator=(const BareWatcher&) = delete;

 private:
  BareCalls::ReportsWatch inotify_;
  std::thread thread_;
};

void expectLine(Test::ChildProcess& probe, std::string_view line) {
  require(probe.receive() == line, "change_probe");
}

/** Adds the percentiles of the times from @p start until the change was told, in nanoseconds. */
void addPercentiles(benchmark::State& state, const std::string& name, const ChangeMemory& memory,
                    Watcher watcher, Moment ChangeMemory::Change::*start) {
  std::vector<double> latencies;
  for (const auto& change : memory.changes) {
    const ChangeMemory::Change& times = change[watcher];
    require(times.updates >= kUpdatesOfChange, "telling a change");
    latencies.push_back(
        std::chrono::duration<double, std::nano>(times.told.load() - (times.*start).load())
            .count());
  }
  std::sort(latencies.begin(), latencies.end());
  for (const std::size_t percent : {10, 50, 90}) {
    state.counters[name + "_p" + std::to_string(percent)] =
        latencies[latencies.size() * percent / 100];
  }
}

/** From a setter in another process, its call or its return, until the last of its updates was
 * told. The second time is negative where the watcher is quicker than the rest of the setter. The
 * row's own time is that of all changes, and of no interest. */
void latency(benchmark::State& state) {
  const Test::TemporaryDirectory directory;
  const SharedChangeMemory memory(directory / "memory");
  const auto tell = [&](Watcher watcher) {
    return [&memory, watcher] {
      ChangeMemory::Change& change = memory->changes[memory->current][watcher];
      change.told = Clock::now();
      ++change.updates;
    };
  };
  const Reports ofLibrary(peerKind("library"), 1);
  const Reports ofBare(peerKind("library"), 1);
  for (auto _ : state) {
    const LibraryWatcher library(ofLibrary.root(), tell(kLibrary));
    const BareWatcher bare(ofBare.root(), tell(kBare));
    Test::ChildProcess probe(
        {KELP_CHANGE_PROBE, "latency", directory / "memory", ofLibrary.root(), ofBare.root()});
    expectLine(probe, "ready");
    probe.send("go");
    expectLine(probe, "done");
  }
  const std::pair<const char*, Watcher> watchers[] = {{"library", kLibrary}, {"bare", kBare}};
  for (const auto& [name, watcher] : watchers) {
    const std::string ofWatcher = name;
    addPercentiles(state, ofWatcher + "_called", *memory, watcher, &ChangeMemory::Change::called);
    addPercentiles(state, ofWatcher + "_returned", *memory, watcher,
                   &ChangeMemory::Change::returned);
  }
}

/** Counts up to a number of updates. */
class Updates {
 public:
  explicit Updates(std::size_t expected) : missing_(expected) {}

  void add() {
    if (--missing_ == 0) {
      end_ = Clock::now();
      done_.set_value();
    }
  }
  /** When all were told. */
  Clock::time_point waitForAll() {
    require(done_.get_future().wait_for(std::chrono::seconds(30)) == std::future_status::ready,
            "telling all updates");
    return end_;
  }

 private:
  std::atomic<std::size_t> missing_;
  Clock::time_point end_;
  std::promise<void> done_;
};

/** From the first of many changes until the last was told; the processor time is that of telling.
 */
template <typename AnyWatcher>
void burst(benchmark::State& state) {
  constexpr std::size_t kUpdates = kBurstReports * kBurstChanges * kUpdatesOfChange;
  const Test::TemporaryDirectory directory;
  const SharedChangeMemory memory(directory / "memory");
  const Reports reports(peerKind("library"), kBurstReports);
  Updates updates(kUpdates);
  const AnyWatcher watcher(reports.root(), [&] { updates.add(); });
  Test::ChildProcess probe({KELP_CHANGE_PROBE, "burst", directory / "memory", reports.root()});
  expectLine(probe, "ready");
  for (auto _ : state) {
    probe.send("go");
    const auto end = updates.waitForAll();
    state.SetIterationTime(std::chrono::duration<double>(end - memory->burstStart.load()).count());
  }
  expectLine(probe, "done");
  state.counters["updates"] = static_cast<double>(kUpdates);
}

void libraryStart(benchmark::State& state) {
  const auto reports = static_cast<std::size_t>(state.range(0));
  const auto repository = std::make_shared<Diagnostic::DiagnosticData>(
      sharedReports(peerKind("library"), reports).root());
  for (auto _ : state) {
    std::size_t existing = 0;
    Diagnostic::DiagnosticDataObserver observer(
        repository, [&](const Diagnostic::ReportUuid&, EventType, void*) { ++existing; }, nullptr);
    observer.start();
    require(existing == reports, "telling of all reports");
    state.PauseTiming();
    observer.stop();
    state.ResumeTiming();
  }
}

void bareStart(benchmark::State& state) {
  const auto reports = static_cast<std::size_t>(state.range(0));
  const std::string root = sharedReports(peerKind("library"), reports).root();
  for (auto _ : state) {
    auto inotify = std::make_unique<BareCalls::ReportsWatch>(root);
    require(inotify->count() == reports, "watching all reports");
    state.PauseTiming();
    inotify.reset();
    state.ResumeTiming();
  }
}

// SQLite tells nobody of a change: who wants to know it has to look, again and again, at each
// database.
void sqlitePoll(benchmark::State& state, const char* peer, const char* pattern) {
  const Reports reports(peerKind(peer), kBurstReports);
  std::vector<std::unique_ptr<SqliteDatabase>> databases;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(reports.root())) {
    if (entry.path().filename() == pattern) {
      databases.push_back(std::make_unique<SqliteDatabase>(entry.path(), "", Durable::No));
    }
  }
  require(!databases.empty(), "finding a database");
  for (auto _ : state) {
    for (const auto& database : databases) {
      SqliteStatement& version = database->statement("PRAGMA data_version").with();
      require(version.row(), "looking for changes");
      version.end();
    }
  }
}

BENCHMARK_CAPTURE(sqlitePoll, , "sqlite_each", "metadata.db")->Name("observer_poll/sqlite_each");
BENCHMARK_CAPTURE(sqlitePoll, , "sqlite_all", "reports.db")->Name("observer_poll/sqlite_all");
BENCHMARK(latency)->Name("observer_latency")->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(burst<LibraryWatcher>)
    ->Name("observer_burst/library")
    ->Iterations(1)
    ->MeasureProcessCPUTime()
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK(burst<BareWatcher>)
    ->Name("observer_burst/bare")
    ->Iterations(1)
    ->MeasureProcessCPUTime()
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK(libraryStart)->Name("observer_start/library")->Arg(10)->Arg(1000)->Arg(10000);
BENCHMARK(bareStart)->Name("observer_start/bare")->Arg(10)->Arg(1000)->Arg(10000);

}  // namespace
}  // namespace KELP::Bench
