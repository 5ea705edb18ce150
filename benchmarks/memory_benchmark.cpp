#include "reports.h"
#include "sampledata.h"
#include "support/childprocess.h"

#include <benchmark/benchmark.h>

#include <cstddef>
#include <sstream>
#include <string>

// Peak memory, as a process of its own sees it that does one thing and nothing else. The row's time
// is that of the process, and of no interest.

namespace KELP::Bench {
namespace {

/** What memory_probe prints. */
struct Peak {
  double residentKiB = 0;
  double heapBytes = 0;
};

Peak peakOf(const std::string& task, const std::string& root) {
  Test::ChildProcess probe({KELP_MEMORY_PROBE, task, root});
  std::istringstream line(probe.receive().value_or(""));
  Peak peak;
  require(static_cast<bool>(line >> peak.residentKiB >> peak.heapBytes), "memory_probe");
  require(probe.wait() == 0, "memory_probe");
  return peak;
}

/** @param task what memory_probe is to do with a root of state.range(0) reports. */
void peakMemory(benchmark::State& state, const std::string& task) {
  const std::string root =
      sharedReports(peerKind("library"), static_cast<std::size_t>(state.range(0))).root();
  Peak peak;
  for (auto _ : state) {
    peak = peakOf(task, root);
  }
  state.counters["resident_KiB"] = peak.residentKiB;
  state.counters["idle_resident_KiB"] = peakOf("nothing", root).residentKiB;
  state.counters["heap_bytes"] = peak.heapBytes;
}

BENCHMARK_CAPTURE(peakMemory, , "open")
    ->Name("memory/open")
    ->Arg(1)
    ->Iterations(1)
    ->Repetitions(1)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(peakMemory, , "list")
    ->Name("memory/list")
    ->Arg(10000)
    ->Iterations(1)
    ->Repetitions(1)
    ->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace KELP::Bench
