#include "reports.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <stdexcept>

namespace KELP::Test {
namespace {

namespace fs = std::filesystem;
using Diagnostic::DiagnosticReport;
using Diagnostic::ReportUuid;

void require(bool succeeded) {
  if (!succeeded) {
    throw std::runtime_error("a step of making a report failed");
  }
}

}  // namespace

ToolResult KeepingTest::run(const std::vector<std::string>& arguments) const {
  return runTool(repository_.arguments(arguments));
}

ToolResult KeepingTest::runOnTerminal(const std::vector<std::string>& arguments,
                                      const std::string& typed) const {
  ToolSetting setting;
  setting.input = typed;
  return runToolOnTerminal(repository_.arguments(arguments), setting);
}

std::vector<std::string> KeepingTest::names() const {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(repository_.root())) {
    names.push_back(entry.path().filename());
  }
  std::sort(names.begin(), names.end());
  return names;
}

bool KeepingTest::exists(const std::string& id) const {
  return fs::exists(repository_.root() / id);
}

std::string idOf(unsigned number) {
  char text[37];
  std::snprintf(text, sizeof(text), "%08x-0000-4000-8000-000000000000", number);
  return text;
}

void makeReport(const Repository& repository, const std::string& id) {
  const auto report = repository.create(id);
  const TemporaryDirectory elsewhere;
  writeFile(elsewhere / "source", "hello");
  require(report->createReportFileProperty("log", "text/plain", {}).has_value());
  for (const int level : {0, 1}) {
    require(
        report->copyFileToFileProperty("log", level, elsewhere / "source", "", false).has_value());
  }
  require(report->removeFileVariation("log", 1).has_value());
  require(report->createReportStringProperty("note", {}).has_value());
  require(report->addReportStringVariation("note", 0, "text", false).has_value());
  require(report->createReportTemporaryFile().has_value());
}

void makeReportOfAge(const Repository& repository, const std::string& id, long seconds) {
  makeReport(repository, id);
  repository.writeKey(id, "created", std::to_string(std::time(nullptr) - seconds));
}

void upload(const Repository& repository, const std::string& id) {
  const auto report = hold(repository, id);
  require(report->markCreationComplete() && report->markUserInteractionComplete() &&
          report->markDataCollectionComplete() && report->markDataPolicyApplied() &&
          report->markUploadComplete());
}

std::unique_ptr<DiagnosticReport> hold(const Repository& repository, const std::string& id) {
  ReportUuid uuid;
  require(uuid.parse(id.c_str()));
  auto report = repository.data().openReport(uuid);
  require(report && report->acquireWriteLock(false));
  return report;
}

}  // namespace KELP::Test
