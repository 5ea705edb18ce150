#include "sampledata.h"
#include "support/temporarydirectory.h"

#include <benchmark/benchmark.h>

#include <cstddef>
#include <filesystem>
#include <string>

// A file that is copied into a report, beside the same copy by std::filesystem alone. Both copy
// from and to the same file system, and write over the file that the copy before has left.

namespace KELP::Bench {
namespace {

namespace fs = std::filesystem;

constexpr const char* kName = "memory_dump";

/** A file of the size that the benchmark asks for, beside the reports. */
class Source {
 public:
  explicit Source(const benchmark::State& state) : size_(static_cast<std::size_t>(state.range(0))) {
    Test::writeFile(path(), std::string(size_, 's'));
  }

  [[nodiscard]] const Test::TemporaryDirectory& directory() const { return directory_; }
  [[nodiscard]] fs::path path() const { return directory_ / "source"; }

  void requireCopy(const fs::path& copy) const {
    require(fs::file_size(copy) == size_, "copying the whole file");
  }

 private:
  Test::TemporaryDirectory directory_;
  std::size_t size_;
};

void copyIntoReport(benchmark::State& state) {
  const Source source(state);
  const auto report = createReport(Diagnostic::DiagnosticData(source.directory().path()));
  require(report->acquireWriteLock(true) && report->createReportFileProperty(kName, "", {}),
          "creating a property");
  const auto copyFile = [&] {
    require(report->copyFileToFileProperty(kName, 0, source.path(), "", true).has_value(),
            "copyFileToFileProperty");
  };
  copyFile();
  for (auto _ : state) {
    copyFile();
  }
  const auto copy = report->getReportFileVariationPath(kName, 0);
  require(copy.has_value(), "getReportFileVariationPath");
  source.requireCopy(*copy);
}

void bareCopy(benchmark::State& state) {
  const Source source(state);
  const fs::path copy = source.directory() / "copy";
  const auto copyFile = [&] {
    fs::copy_file(source.path(), copy, fs::copy_options::overwrite_existing);
  };
  copyFile();
  for (auto _ : state) {
    copyFile();
  }
  source.requireCopy(copy);
}

void bySize(benchmark::internal::Benchmark* benchmark) {
  benchmark->Arg(64 << 10)->Arg(64 << 20);
}

BENCHMARK(copyIntoReport)->Name("file_copy/library")->Apply(bySize);
BENCHMARK(bareCopy)->Name("file_copy/bare")->Apply(bySize);

}  // namespace
}  // namespace KELP::Bench
