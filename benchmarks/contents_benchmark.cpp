#include "barecalls.h"
#include "sampledata.h"
#include "support/temporarydirectory.h"

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

// The contents of a report: adding a variation, the steps that this is made of, and the choice of
// the best one. The bare twin of a query is that of the store's get().

namespace KELP::Bench {
namespace {

using Diagnostic::DiagnosticReport;
using Contents = std::vector<Diagnostic::DiagnosticReportContentProperties>;
using ContentsProperty = Diagnostic::MetadataProperty<Contents>;

constexpr int kLevel = 10;

/** A report with as many properties as the benchmark asks for, held with its write lock. */
class Filled {
 public:
  explicit Filled(const benchmark::State& state)
      : count_(static_cast<std::size_t>(state.range(0))),
        report_(createReport(Diagnostic::DiagnosticData(root_.path()))) {
    require(report_->acquireWriteLock(true).has_value(), "locking a report");
    addIntegerProperties(*report_, count_, {kLevel});
  }

  DiagnosticReport* operator->() const { return report_.get(); }

  /** The property that is found last. */
  [[nodiscard]] std::string lastName() const { return integerPropertyName(count_ - 1); }

  [[nodiscard]] Contents contents() const {
    auto contents = report_->getReportContents();
    require(contents.has_value() && contents->size() == count_, "getReportContents");
    return *std::move(contents);
  }

  [[nodiscard]] std::string text() const { return ContentsProperty::serialize(contents()); }

 private:
  Test::TemporaryDirectory root_;
  std::size_t count_;
  std::unique_ptr<DiagnosticReport> report_;
};

// The variation replaces one, so that the contents stay as large as they are.
void variationAdd(benchmark::State& state) {
  const Filled report(state);
  const std::string name = report.lastName();
  for (auto _ : state) {
    require(report->addReportIntegerVariation(name, kLevel, 42, true).has_value(),
            "addReportIntegerVariation");
  }
}

// Two records: the time of the change, and the whole of the contents.
void bareAdd(benchmark::State& state) {
  const Test::TemporaryDirectory directory;
  const std::string file = directory / "store";
  ::close(BareCalls::openFile(file, O_RDWR | O_CREAT));
  const std::string time = recordOf("modified", "1700000000");
  const std::string change = recordOf("report_contents", Filled(state).text());
  for (auto _ : state) {
    BareCalls::append(file, time);
    BareCalls::append(file, change);
  }
}

void contentsParse(benchmark::State& state) {
  const ContentsProperty property("report_contents", std::nullopt);
  const std::string text = Filled(state).text();
  for (auto _ : state) {
    auto contents = property.unserialize(text);
    require(contents.has_value(), "unserialize");
    benchmark::DoNotOptimize(contents);
  }
  state.counters["bytes"] = static_cast<double>(text.size());
}

void contentsWrite(benchmark::State& state) {
  const Contents contents = Filled(state).contents();
  for (auto _ : state) {
    auto text = ContentsProperty::serialize(contents);
    benchmark::DoNotOptimize(text);
  }
}

void contentsStore(benchmark::State& state) {
  const Test::TemporaryDirectory directory;
  const auto store = makeReportStore(directory / "store");
  const std::string text = Filled(state).text();
  for (auto _ : state) {
    require(store->set("modified", "1700000000") && store->set("report_contents", text), "set");
  }
}

void variationBest(benchmark::State& state) {
  const Filled report(state);
  const std::string name = report.lastName();
  for (auto _ : state) {
    auto best = report->getReportIntegerBestVariation(name);
    require(best.has_value(), "getReportIntegerBestVariation");
    benchmark::DoNotOptimize(best);
  }
}

void byProperties(benchmark::internal::Benchmark* benchmark) {
  benchmark->Arg(1)->Arg(10)->Arg(100);
}

BENCHMARK(variationAdd)->Name("variation_add/library")->Apply(byProperties);
BENCHMARK(bareAdd)->Name("variation_add/bare")->Apply(byProperties);
BENCHMARK(contentsParse)->Name("variation_add/parse")->Apply(byProperties);
BENCHMARK(contentsWrite)->Name("variation_add/write")->Apply(byProperties);
BENCHMARK(contentsStore)->Name("variation_add/store")->Apply(byProperties);
BENCHMARK(variationBest)->Name("variation_best/library")->Apply(byProperties);

}  // namespace
}  // namespace KELP::Bench
