#include "barecalls.h"
#include "sampledata.h"
#include "support/temporarydirectory.h"

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <string>

// What it costs that a power cut takes nothing: a change in a report that is closed after each, and
// a copied file that the caller syncs, as docs/durability.md says. (The price of a new report is
// told by create/library beside create/bare_durable.)

namespace KELP::Bench {
namespace {

namespace fs = std::filesystem;

const std::string kDescription = "The application stopped: segmentation fault (signal 11)";

void syncPath(const fs::path& path) {
  const int descriptor = BareCalls::openFile(path, O_RDONLY);
  BareCalls::checked(::fsync(descriptor), "fsync");
  ::close(descriptor);
}

void changeAndClose(benchmark::State& state) {
  const Test::TemporaryDirectory root;
  const Diagnostic::DiagnosticData repository(root.path());
  const auto id = createReport(repository)->getId();
  for (auto _ : state) {
    const auto report = repository.openReport(id);
    require(report != nullptr && report->acquireWriteLock(false) &&
                report->setDescription(kDescription),
            "changing a report");
  }
}

void bareChange(benchmark::State& state, BareCalls::Durable durable) {
  const Test::TemporaryDirectory root;
  const BareCalls::Report report(root / "report");
  BareCalls::createReport(report, newReportRecords(), BareCalls::Durable::Yes);
  const std::string time = recordOf("modified", "1700000000");
  const std::string change = recordOf("description", kDescription);
  std::string buffer(std::size_t{1} << 20, '\0');
  for (auto _ : state) {
    BareCalls::openReport(report, buffer);
    BareCalls::append(report.store, time);
    BareCalls::append(report.store, change);
    if (durable == BareCalls::Durable::Yes) syncPath(report.store);
  }
}

/** A file is copied into a report under a new level, @p durable or not. */
void copyFile(benchmark::State& state, BareCalls::Durable durable) {
  const Test::TemporaryDirectory root;
  const fs::path source = root / "source";
  Test::writeFile(source, std::string(64 << 10, 's'));
  const auto report = createReport(Diagnostic::DiagnosticData(root / "reports"));
  require(report->acquireWriteLock(true) && report->createReportFileProperty("dump", "", {}),
          "creating a property");
  const fs::path directory = report->getReportDirPath().value();
  for (auto _ : state) {
    require(report->copyFileToFileProperty("dump", 0, source, "", false).has_value(),
            "copyFileToFileProperty");
    const fs::path file = report->getReportFileVariationPath("dump", 0).value();
    for (fs::path path = file; durable == BareCalls::Durable::Yes; path = path.parent_path()) {
      syncPath(path);
      if (fs::equivalent(path, directory)) break;
    }
    state.PauseTiming();
    require(report->removeFileVariation("dump", 0).has_value(), "removeFileVariation");
    fs::remove_all(file.parent_path());
    state.ResumeTiming();
  }
}

BENCHMARK(changeAndClose)->Name("change/library");
BENCHMARK_CAPTURE(bareChange, , BareCalls::Durable::No)->Name("change/bare");
BENCHMARK_CAPTURE(bareChange, , BareCalls::Durable::Yes)->Name("change/bare_durable");
BENCHMARK_CAPTURE(copyFile, , BareCalls::Durable::No)->Name("file_add/library");
BENCHMARK_CAPTURE(copyFile, , BareCalls::Durable::Yes)->Name("file_add/durable");

}  // namespace
}  // namespace KELP::Bench
