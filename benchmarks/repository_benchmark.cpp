#include "barecalls.h"
#include "sampledata.h"
#include "support/temporarydirectory.h"

#include <benchmark/benchmark.h>

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

// Whole reports: create, open, list, delete.

namespace KELP::Bench {
namespace {

/** Reports per run where each call makes or removes one: a fixed number, so that the directory is
 *  of the same size in every run, and removing or making them stays outside of the times. */
constexpr benchmark::IterationCount kBatch = 256;

/** Somewhat more than the store of a new report, so that one read takes all of it. */
constexpr std::size_t kReadBuffer = 4096;

std::vector<BareCalls::Report> bareReports(const std::filesystem::path& root) {
  std::vector<BareCalls::Report> reports;
  for (benchmark::IterationCount i = 0; i < kBatch; ++i) {
    Diagnostic::ReportUuid id;
    id.randomize();
    reports.emplace_back(root / id.toString());
  }
  return reports;
}

void repositoryCreate(benchmark::State& state) {
  const Test::TemporaryDirectory root;
  const Diagnostic::DiagnosticData repository(root.path());
  for (auto _ : state) {
    createReport(repository).reset();
  }
}

void bareCreate(benchmark::State& state, BareCalls::Durable durable) {
  const Test::TemporaryDirectory root;
  const auto reports = bareReports(root.path());
  const auto records = newReportRecords();
  auto report = reports.begin();
  for (auto _ : state) {
    BareCalls::createReport(*report++, records, durable);
  }
}

void repositoryOpen(benchmark::State& state) {
  const Diagnostic::DiagnosticData repository(rootWithReports(1));
  const auto id = repository.getAllReportUuids().at(0);
  for (auto _ : state) {
    auto report = repository.openReport(id);
    require(report != nullptr, "opening a report");
    benchmark::DoNotOptimize(report);
  }
}

void bareOpen(benchmark::State& state) {
  const Diagnostic::DiagnosticData repository(rootWithReports(1));
  const BareCalls::Report report(repository.getRootPath() /
                                 repository.getAllReportUuids().at(0).toString());
  std::string buffer(kReadBuffer, '\0');
  for (auto _ : state) {
    BareCalls::openReport(report, buffer);
    benchmark::DoNotOptimize(buffer);
  }
}

void repositoryList(benchmark::State& state) {
  const auto count = static_cast<std::size_t>(state.range(0));
  const Diagnostic::DiagnosticData repository(rootWithReports(count));
  for (auto _ : state) {
    require(repository.getAllReportUuids().size() == count, "listing all reports");
  }
}

void bareList(benchmark::State& state) {
  const auto count = static_cast<std::size_t>(state.range(0));
  const std::string root = rootWithReports(count);
  std::string buffer(kReadBuffer, '\0');
  for (auto _ : state) {
    require(BareCalls::openAllReports(root, buffer) == count, "listing all reports");
  }
}

void repositoryDelete(benchmark::State& state) {
  const Test::TemporaryDirectory root;
  const Diagnostic::DiagnosticData repository(root.path());
  std::vector<Diagnostic::ReportUuid> ids;
  for (benchmark::IterationCount i = 0; i < kBatch; ++i) {
    ids.push_back(createReport(repository)->getId());
  }
  auto id = ids.begin();
  for (auto _ : state) {
    require(repository.deleteReport(*id++, false).has_value(), "deleting a report");
  }
}

void bareDelete(benchmark::State& state) {
  const Test::TemporaryDirectory root;
  const auto reports = bareReports(root.path());
  const auto records = newReportRecords();
  for (const auto& report : reports) {
    BareCalls::createReport(report, records, BareCalls::Durable::Yes);
  }
  auto report = reports.begin();
  for (auto _ : state) {
    BareCalls::removeReport(*report++);
  }
}

BENCHMARK(repositoryCreate)->Name("create/library")->Iterations(kBatch);
BENCHMARK_CAPTURE(bareCreate, , BareCalls::Durable::No)->Name("create/bare")->Iterations(kBatch);
BENCHMARK_CAPTURE(bareCreate, , BareCalls::Durable::Yes)
    ->Name("create/bare_durable")
    ->Iterations(kBatch);
BENCHMARK(repositoryOpen)->Name("open/library");
BENCHMARK(bareOpen)->Name("open/bare");
BENCHMARK(repositoryList)->Name("list/library")->Arg(100)->Arg(10000);
BENCHMARK(bareList)->Name("list/bare")->Arg(100)->Arg(10000);
BENCHMARK(repositoryDelete)->Name("delete/library")->Iterations(kBatch);
BENCHMARK(bareDelete)->Name("delete/bare")->Iterations(kBatch);

}  // namespace
}  // namespace KELP::Bench
