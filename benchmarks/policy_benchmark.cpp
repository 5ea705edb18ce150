#include "barecalls.h"
#include "sampledata.h"
#include "support/temporarydirectory.h"

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstddef>
#include <filesystem>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

// The data policy on 100 variations of ten properties, half of which it drops: values, and files.

namespace KELP::Bench {
namespace {

namespace fs = std::filesystem;
using Diagnostic::DiagnosticReport;

constexpr std::size_t kProperties = 10;
constexpr int kConsent = 4;
const std::vector<int> kLevels{0, 1, 2, 3, 4, 5, 6, 7, 8, 9};

enum class Kind { Values, Files };

std::size_t countVariations(const DiagnosticReport& report) {
  const auto contents = report.getReportContents();
  require(contents.has_value(), "getReportContents");
  std::size_t count = 0;
  for (const auto& property : *contents) {
    count += property.variations.size();
  }
  return count;
}

void addFileProperties(DiagnosticReport& report, const fs::path& source) {
  Test::writeFile(source, "content");
  for (std::size_t i = 0; i < kProperties; ++i) {
    const std::string name = "file_" + std::to_string(i);
    require(report.createReportFileProperty(name, "", {}).has_value(), "creating a property");
    for (const int level : kLevels) {
      require(report.copyFileToFileProperty(name, level, source, "", false).has_value(),
              "copyFileToFileProperty");
    }
  }
}

/** A report on which the policy is applied, and which is then brought back to where it was. */
class Subject {
 public:
  explicit Subject(Kind kind) : report_(createReport(Diagnostic::DiagnosticData(root_.path()))) {
    // A new report's consent would permit every level.
    require(report_->acquireWriteLock(true) && report_->setCurrentConsentLevel(kConsent),
            "setting the consent level");
    if (kind == Kind::Values) {
      addIntegerProperties(*report_, kProperties, kLevels);
    } else {
      addFileProperties(*report_, root_ / "source");
    }
    require(countVariations(*report_) == kProperties * kLevels.size(), "making the variations");
    const auto directory = report_->getReportDirPath();
    require(directory.has_value(), "getReportDirPath");
    store_ = openStore(*directory / DiagnosticReport::kReportMetadataFilename);
    before_ = contentsText();
    const auto filesBefore = files(*directory);
    applyPolicy();
    after_ = contentsText();
    for (const fs::path& file : filesBefore) {
      if (!fs::exists(file)) {
        dropped_.push_back(file);
      }
    }
    require(dropped_.size() == filesBefore.size() / 2, "removing half of the files");
    putBack();
  }

  void applyPolicy() { require(report_->applyPolicyFilters().has_value(), "applyPolicyFilters"); }

  void putBack() {
    require(contentsText() == after_, "dropping half of the variations");
    require(store_->set("report_contents", before_), "set");
    putFilesBack();
  }

  void putFilesBack() {
    for (const fs::path& file : dropped_) {
      require(!fs::exists(file), "removing a file");
      Test::writeFile(file, "content");
    }
  }

  [[nodiscard]] const std::string& contentsAfter() const { return after_; }
  [[nodiscard]] const std::vector<fs::path>& droppedFiles() const { return dropped_; }

 private:
  static std::vector<fs::path> files(const fs::path& directory) {
    std::vector<fs::path> found;
    std::error_code none;  // There is no such directory when there are no files.
    for (const auto& entry : fs::recursive_directory_iterator(
             directory / DiagnosticReport::kReportContentFilesDirectoryName, none)) {
      if (entry.is_regular_file()) {
        found.push_back(entry.path());
      }
    }
    return found;
  }

  [[nodiscard]] std::string contentsText() const {
    return store_->get("report_contents").value_or("");
  }

  Test::TemporaryDirectory root_;
  std::unique_ptr<DiagnosticReport> report_;
  std::unique_ptr<OS::KeyValueStore> store_;
  std::string before_;
  std::string after_;
  std::vector<fs::path> dropped_;
};

void applyPolicy(benchmark::State& state, Kind kind) {
  Subject subject(kind);
  for (auto _ : state) {
    subject.applyPolicy();
    state.PauseTiming();
    subject.putBack();
    state.ResumeTiming();
  }
}

// Two records, the time of the change and the contents that are left; and the removal of the files.
void bareApply(benchmark::State& state, Kind kind) {
  Subject subject(kind);
  const Test::TemporaryDirectory directory;
  const std::string file = directory / "store";
  ::close(BareCalls::openFile(file, O_RDWR | O_CREAT));
  const std::string time = recordOf("modified", "1700000000");
  const std::string change = recordOf("report_contents", subject.contentsAfter());
  for (auto _ : state) {
    BareCalls::append(file, time);
    BareCalls::append(file, change);
    for (const fs::path& dropped : subject.droppedFiles()) {
      BareCalls::checked(::unlink(dropped.c_str()), "unlink");
    }
    state.PauseTiming();
    subject.putFilesBack();
    state.ResumeTiming();
  }
}

BENCHMARK_CAPTURE(applyPolicy, , Kind::Values)->Name("policy_values/library");
BENCHMARK_CAPTURE(bareApply, , Kind::Values)->Name("policy_values/bare");
BENCHMARK_CAPTURE(applyPolicy, , Kind::Files)->Name("policy_files/library");
BENCHMARK_CAPTURE(bareApply, , Kind::Files)->Name("policy_files/bare");

}  // namespace
}  // namespace KELP::Bench
