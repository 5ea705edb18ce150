#include "operations.h"
#include "support/setting.h"

#include <benchmark/benchmark.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

// Every operation, by every peer; and how its cost grows with the reports and the properties.

namespace KELP::Bench {
namespace {

/** An operation with its amounts. */
struct Row {
  std::string name;  ///< To which the peer's name is added, and the number if it is a scale.
  const char* operation;
  Amounts amounts;
  bool durable = false;  ///< Whether the library waits for the disk.
};

/** Reports that are made or removed in one repetition: a fixed number, so that the directory is of
 *  the same size in all of them. */
std::size_t batch() {
  return Test::setting("KELP_BENCH_BATCH", 64);
}

void run(benchmark::State& state, const Operation& operation, const PeerKind& kind,
         const Amounts& amounts) {
  const std::unique_ptr<Work> work = operation.prepare(kind, amounts);
  for (auto _ : state) {
    work->once();
    if (operation.again == Operation::Again::Restored) {
      state.PauseTiming();
      work->restore();
      state.ResumeTiming();
    }
  }
}

void add(const std::string& name, const Row& row, const PeerKind& kind) {
  const Operation& asked = operation(row.operation);
  Amounts amounts = row.amounts;
  amounts.times = batch();
  benchmark::internal::Benchmark* const added =
      benchmark::RegisterBenchmark(name.c_str(), run, asked, kind, amounts);
  // A sync needs hardly any processor time, by which the repetitions would become very long.
  added->UseRealTime();
  if (asked.again == Operation::Again::UsesUp) {
    added->Iterations(static_cast<benchmark::IterationCount>(amounts.times));
  } else if (asked.again == Operation::Again::Restored) {
    added->Iterations(static_cast<benchmark::IterationCount>(amounts.times / 8 + 1));
  }
}

/** Not all kinds of bare calls differ in all rows. */
bool differs(const PeerKind& kind, const Row& row) {
  const std::string_view name = kind.name;
  const std::string_view operation = row.operation;
  return (name != "bare_durable" || row.durable) &&
         (name != "bare_blind" || operation == "open" || operation == "list");
}

void addOfAllPeers(const std::vector<Row>& rows) {
  for (const Row& row : rows) {
    for (const PeerKind& kind : peerKinds()) {
      if (differs(kind, row)) {
        add(row.name + "/" + kind.name, row, kind);
      }
    }
  }
}

/** Making and listing more of them takes minutes, and shows nothing new. */
constexpr std::size_t kMostDatabases = 10'000;

/** Ten times as many from one row to the next. */
void addScale(const std::string& group, const char* operation, std::size_t Amounts::*amount,
              std::size_t least, std::size_t most) {
  for (std::size_t count = least; count <= most; count *= 10) {
    Row row{group + "/" + operation, operation, {}};
    row.amounts.*amount = count;
    for (const char* const name : kMainPeers) {
      const std::string peer = name;
      if (peer != "sqlite_each" || row.amounts.reports <= kMostDatabases) {
        add(row.name + "/" + peer + "/" + std::to_string(count), row, peerKind(peer));
      }
    }
  }
}

bool addAll() {
  addOfAllPeers({
      {"create", "create", {}, true},
      {"open", "open", {}},
      {"change", "change", {}, true},
      {"visit", "visit", {}, true},
      {"set", "set", {}},
      {"get", "get", {}},
      {"variation_add_1", "variation_add", {.properties = 1}},
      {"variation_add_10", "variation_add", {.properties = 10}},
      {"variation_add_100", "variation_add", {.properties = 100}},
      {"variation_best_1", "variation_best", {.properties = 1}},
      {"variation_best_10", "variation_best", {.properties = 10}},
      {"variation_best_100", "variation_best", {.properties = 100}},
      {"file_add_64K", "file_add", {.bytes = std::size_t{64} << 10}},
      {"file_add_16M", "file_add", {.bytes = std::size_t{16} << 20}},
      {"policy_values", "policy_values", {}},
      {"policy_files", "policy_files", {}},
      {"list_100", "list", {.reports = 100}},
      {"remove", "remove", {}},
  });
  const std::size_t mostReports = Test::setting("KELP_BENCH_MOST_REPORTS", 100'000);
  for (const char* const operation : {"create", "open", "list"}) {
    addScale("reports", operation, &Amounts::reports, 10, mostReports);
  }
  for (const char* const operation : {"variation_add", "variation_best"}) {
    addScale("properties", operation, &Amounts::properties, 1, 1000);
  }
  return true;
}

const bool kAdded = addAll();

}  // namespace
}  // namespace KELP::Bench
