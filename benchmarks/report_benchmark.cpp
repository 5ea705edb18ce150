#include "barecalls.h"
#include "sampledata.h"
#include "support/temporarydirectory.h"

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <memory>
#include <string>

// One open report: a setter and a getter. The bare twin of a getter is that of the store's get().

namespace KELP::Bench {
namespace {

const std::string kDescription = "The application stopped: segmentation fault (signal 11)";

// The write lock is held all the time, as it is by a client that fills a report.
void setDescription(benchmark::State& state) {
  const Test::TemporaryDirectory root;
  const auto report = createReport(Diagnostic::DiagnosticData(root.path()));
  require(report->acquireWriteLock(true).has_value(), "locking a report");
  for (auto _ : state) {
    require(report->setDescription(kDescription).has_value(), "setDescription");
  }
}

// A setter writes two values: the time of the change, and the change.
void bareSetter(benchmark::State& state) {
  const Test::TemporaryDirectory directory;
  const std::string file = directory / "store";
  ::close(BareCalls::openFile(file, O_RDWR | O_CREAT));
  const std::string time = recordOf("modified", "1700000000");
  const std::string change = recordOf("description", kDescription);
  for (auto _ : state) {
    BareCalls::append(file, time);
    BareCalls::append(file, change);
  }
}

void getDescription(benchmark::State& state) {
  const Test::TemporaryDirectory root;
  const auto report = createReport(Diagnostic::DiagnosticData(root.path()));
  require(report->acquireWriteLock(true).has_value(), "locking a report");
  require(report->setDescription(kDescription).has_value(), "setDescription");
  for (auto _ : state) {
    auto description = report->getDescription();
    require(description.has_value(), "getDescription");
    benchmark::DoNotOptimize(description);
  }
}

BENCHMARK(setDescription)->Name("report_setter/library");
BENCHMARK(bareSetter)->Name("report_setter/bare");
BENCHMARK(getDescription)->Name("report_getter/library");

}  // namespace
}  // namespace KELP::Bench
