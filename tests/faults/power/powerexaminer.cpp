// power_examiner WORLD: after each line on its standard input, looks at the reports and the store
// in the directory, goes on with each that opens, deletes each that does not, and says what it
// found (examination.h), with "done" at the end.

#include "faults/power/examination.h"
#include "faults/power/runs.h"
#include "support/reportkeys.h"
#include "unit/os/storefixture.h"

#include <diagnostic/diagnosticdata.h>
#include <os/keyvaluestore.h>

#include <algorithm>
#include <iostream>
#include <set>
#include <string>
#include <vector>

namespace KELP::Test {
namespace {

namespace fs = std::filesystem;
using Diagnostic::DiagnosticData;
using Diagnostic::DiagnosticReport;
using Diagnostic::ReportUuid;

void fault(const std::string& name, const std::string& what) {
  std::cout << "fault " << name << ' ' << what << '\n';
}

void check(bool holds, const std::string& name, const std::string& what) {
  if (!holds) fault(name, what);
}

/** One report, and what can be done with it. */
class FoundReport {
 public:
  FoundReport(const World& world, const ReportUuid& id)
      : world_(world),
        repository_(world.root()),
        id_(id),
        name_("reports/" + std::string(id.toString())) {}

  [[nodiscard]] bool opens() const { return repository_.openReport(id_) != nullptr; }

  /** Tells the state, without changing it. */
  void describe() const {
    DiagnosticReport report;
    const auto opened = report._open(world_.root(), id_);
    if (!opened) {
      std::cout << "fails " << name_ << ' ' << opened.error().message << '\n';
      return;
    }
    OS::KeyValueStore store((world_.top / name_ / "metadata.db").string(), "metadata",
                            {Option::ReadOnly, Option::Shared});
    std::cout << "opens " << name_ << ' ' << describeState(readKeys(store, reportKeys())) << '\n';
    expectPaths(report);
  }

  /** Goes on with the report, then deletes it. */
  void use() const {
    auto report = repository_.openReport(id_);
    check(report && report->acquireWriteLock(false) && report->setDescription("after the cut"),
          name_, "cannot be changed");
    report.reset();
    report = repository_.openReport(id_);
    check(report && report->getDescription() == "after the cut", name_, "forgets what was changed");
    report.reset();
    check(repository_.deleteReport(id_, false).has_value() && !fs::exists(world_.top / name_),
          name_, "cannot be deleted");
  }

  void remove() const {
    check(!repository_.deleteReport(id_, false).has_value(), name_,
          "does not open, but is deleted");
    check(repository_.deleteReport(id_, true).has_value() && !fs::exists(world_.top / name_), name_,
          "cannot be deleted by force");
  }

 private:
  void expectPaths(const DiagnosticReport& report) const {
    for (const auto& property : report.getReportContents().value_or(
             std::vector<Diagnostic::DiagnosticReportContentProperties>())) {
      for (const auto& variation : property.variations) {
        check(!property.isFileProperty() ||
                  report.getReportFileVariationPath(property.stable_id, variation.sensitivity_level)
                      .has_value(),
              name_, "a file has no path");
      }
    }
  }

  World world_;
  DiagnosticData repository_;
  ReportUuid id_;
  std::string name_;
};

std::set<std::string> namesIn(const fs::path& directory) {
  std::set<std::string> names;
  std::error_code missing;
  for (const auto& entry : fs::directory_iterator(directory, missing)) {
    names.insert(entry.path().filename());
  }
  return names;
}

void examineReports(const World& world) {
  const DiagnosticData repository(world.root());
  std::set<std::string> opening;
  std::vector<FoundReport> sound;
  std::vector<FoundReport> broken;
  std::size_t directories = 0;
  for (const std::string& name : namesIn(world.root())) {
    ReportUuid id;
    if (!id.parse(name.c_str())) continue;
    ++directories;
    const FoundReport report(world, id);
    report.describe();
    (report.opens() ? sound : broken).push_back(report);
    if (report.opens()) opening.insert(name);
  }
  const auto expectListed = [&](const char* when) {
    std::set<std::string> listed;
    for (const ReportUuid& id : repository.getAllReportUuids())
      listed.insert(id.toString());
    check(listed == opening, "list", when);
  };
  check(repository.countAllReports() == directories, "list", "counts wrongly");
  expectListed("does not name what opens");
  for (const FoundReport& report : broken)
    report.remove();
  expectListed("changes by what is deleted");
  for (const FoundReport& report : sound)
    report.use();
  check(repository.countAllReports() == 0, "list", "not all is deleted");
}

void examineStore(const World& world) {
  if (!fs::exists(world.store())) return;
  OS::KeyValueStore store(world.store().string(), "store", {Option::Shared});
  if (!store.isReady()) {
    std::cout << "fails store.db not ready\n";
    return;
  }
  std::cout << "opens store.db " << describeState(readKeys(store, storeKeys())) << '\n';
  check(store.set("e", "after the cut") && store.get("e") == "after the cut", "store.db",
        "cannot be changed");
}

}  // namespace
}  // namespace KELP::Test

int main(int count, char** arguments) {
  if (count != 2) return 2;
  const KELP::Test::World world{arguments[1]};
  for (std::string line; std::getline(std::cin, line);) {
    KELP::Test::examineReports(world);
    KELP::Test::examineStore(world);
    std::cout << "done" << std::endl;
  }
}
