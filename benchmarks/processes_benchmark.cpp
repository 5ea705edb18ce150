#include "reports.h"
#include "sampledata.h"
#include "support/childprocess.h"
#include "support/setting.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

// Several processes that use the same root at once. The time is that from their common start until
// the last is done, for each of all their operations.

namespace KELP::Bench {
namespace {

using Clock = std::chrono::steady_clock;

void expectLines(const std::vector<std::unique_ptr<Test::ChildProcess>>& probes, const char* line) {
  for (const auto& probe : probes) {
    require(probe->receive() == line, "process_probe");
  }
}

void run(benchmark::State& state, const char* operation, const PeerKind& kind) {
  const std::size_t times = 8 * Test::setting("KELP_BENCH_BATCH", 64);
  const auto processes = static_cast<std::size_t>(state.range(0));
  const Reports reports(kind, processes);
  for (auto _ : state) {
    std::vector<std::unique_ptr<Test::ChildProcess>> probes;
    for (const ReportUuid& id : reports.ids()) {
      probes.push_back(std::make_unique<Test::ChildProcess>(
          std::vector<std::string>{KELP_PROCESS_PROBE, operation, kind.name,
                                   reports.root().string(), std::to_string(times), id.toString()}));
    }
    expectLines(probes, "ready");
    const auto start = Clock::now();
    for (const auto& probe : probes) {
      probe->send("go");
    }
    expectLines(probes, "done");
    const std::chrono::duration<double> all = Clock::now() - start;
    state.SetIterationTime(all.count() / static_cast<double>(times * processes));
  }
}

bool addAll() {
  for (const char* const operation : {"create", "set"}) {
    for (const char* const peer : kMainPeers) {
      const std::string name = std::string("processes/") + operation + "/" + peer;
      benchmark::RegisterBenchmark(name.c_str(), run, operation, peerKind(peer))
          ->RangeMultiplier(2)
          ->Range(1, 8)
          ->Iterations(1)
          ->UseManualTime();
    }
  }
  return true;
}

const bool kAdded = addAll();

}  // namespace
}  // namespace KELP::Bench
