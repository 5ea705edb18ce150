#include "integration/report/race.h"

#include <diagnostic/diagnosticreport.h>
#include <diagnostic/reportuuid.h>

#include <fstream>
#include <random>
#include <stdexcept>
#include <vector>

namespace KELP::Test {
namespace {

using Diagnostic::DiagnosticData;
using Diagnostic::DiagnosticReport;
using Diagnostic::ReportUuid;

/** Above this number of reports deletions prevail, so that listing stays quick. */
constexpr std::size_t kCrowd = 24;

class Racer {
 public:
  Racer(const DiagnosticData& repository, unsigned seed, const std::filesystem::path& journal)
      : repository_(repository), random_(seed), journal_(journal) {}

  void step() {
    const std::vector<ReportUuid> listed = repository_.getAllReportUuids();
    listed_ += listed.size();
    if (listed.empty() || (listed.size() < kCrowd && chance(2))) {
      create();
      return;
    }
    const ReportUuid chosen =
        listed[std::uniform_int_distribution<std::size_t>(0, listed.size() - 1)(random_)];
    if (listed.size() < kCrowd && chance(2)) {
      use(chosen);
    } else {
      remove(chosen);
    }
  }

  [[nodiscard]] std::string summary() const {
    return "raced " + std::to_string(created_) + " " + std::to_string(deleted_) + " " +
           std::to_string(opened_) + " " + std::to_string(listed_);
  }

 private:
  bool chance(unsigned of) { return random_() % of == 0; }

  void record(const char* event, const ReportUuid& id) {
    journal_ << event << ' ' << id.toString() << std::endl;
  }

  void create() {
    const auto report = repository_.createReport(1, 2, 3, "device", "session");
    if (report) {
      ++created_;
      record("created", report->getId());
    }
  }

  /** Opens a report and changes it, as far as others let. */
  void use(const ReportUuid& id) {
    const auto report = repository_.openReport(id);
    if (!report) {
      return;
    }
    ++opened_;
    if (report->getId() != id) {
      throw std::logic_error("another report was opened than was asked for");
    }
    if (report->acquireWriteLock(false)) {
      static_cast<void>(report->setDescription("used"));
    }
  }

  void remove(const ReportUuid& id) {
    DiagnosticReport::Result result = repository_.deleteReport(id, chance(2));
    // An error with a code of the file system's means that the removal had begun.
    const bool begun = !result && result.error().message.find("remov") != std::string::npos;
    while (begun && !result) {
      result = repository_.deleteReport(id, true);
    }
    if (result) {
      ++deleted_;
      record("deleted", id);
    }
  }

  const DiagnosticData& repository_;
  std::mt19937 random_;
  std::ofstream journal_;
  std::size_t created_ = 0;
  std::size_t deleted_ = 0;
  std::size_t opened_ = 0;
  std::size_t listed_ = 0;
};

}  // namespace

std::string race(const DiagnosticData& repository, std::chrono::milliseconds duration,
                 unsigned seed, const std::filesystem::path& journal) {
  Racer racer(repository, seed, journal);
  const auto end = std::chrono::steady_clock::now() + duration;
  do {
    racer.step();
  } while (std::chrono::steady_clock::now() < end);
  return racer.summary();
}

}  // namespace KELP::Test
