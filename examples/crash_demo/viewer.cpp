#include "contents.h"
#include "roles.h"
#include "steps.h"

#include <algorithm>
#include <ctime>
#include <filesystem>
#include <iomanip>
#include <sstream>

namespace CrashDemo {
namespace {

using KELP::Diagnostic::DiagnosticData;
using KELP::Diagnostic::DiagnosticReport;
using KELP::Diagnostic::ReportUuid;

bool isListed(const DiagnosticData& reports, const ReportUuid& id) {
  const auto ids = reports.getAllReportUuids();
  return std::find(ids.begin(), ids.end(), id) != ids.end();
}

std::string timeText(long seconds) {
  const std::time_t time = seconds;
  std::tm parts{};
  ::gmtime_r(&time, &parts);
  std::ostringstream text;
  text << std::put_time(&parts, "%Y-%m-%d %H:%M:%S UTC");
  return text.str();
}

void showIdentity(const Console& console, const DiagnosticReport& report) {
  console.field("identifier", report.getId().toString());
  console.field("directory", require(report.getReportDirPath(), "directory").string());
  console.field("application", std::to_string(require(report.getReporterAppId(), "application")));
  console.field("build", std::to_string(require(report.getBuildId(), "build")));
  console.field("user", std::to_string(require(report.getUserId(), "user")));
  console.field("device", require(report.getDeviceId(), "device"));
  console.field("session", require(report.getSessionId(), "session"));
  console.field("created", timeText(report.getCreatedTime()));
  console.field("modified", timeText(report.getModifiedTime()));
}

void showStages(const Console& console, const DiagnosticReport& report) {
  const auto complete = [&](const char* stage, bool done) {
    console.field(stage, done ? "complete" : "open");
    require(done, std::string(stage) + " is complete");
  };
  console.field("consent", std::to_string(report.getCurrentConsentLevel()));
  console.field("maximum consent", std::to_string(report.getMaxConsentLevel()));
  complete("creation", report.isCreationComplete());
  complete("user interaction", report.isUserInteractionComplete());
  complete("data collection", report.isDataCollectionComplete());
  complete("data policy", report.isDataPolicyApplied());
  complete("upload", report.isUploadComplete());
}

void showProcess(const Console& console, const DiagnosticReport& report) {
  console.field("description", require(report.getDescription(), "description"));
  console.field("process id", std::to_string(require(report.getPID(), "process id")));
  console.field("process name", require(report.getProcessName(), "process name"));
  for (const std::string& library : require(report.getLoadedLibraries(), "libraries")) {
    console.field("library", library);
  }
}

std::string joined(const std::set<std::string>& words) {
  std::string list;
  for (const std::string& word : words) {
    list += (list.empty() ? "" : ", ") + word;
  }
  return list;
}

void showContents(const Console& console, const DiagnosticReport& report) {
  for (const auto& property : require(report.getReportContents(), "contents")) {
    std::string kind(DiagnosticReportContentPropertyTypesToString(property.property_type));
    if (property.isFileProperty()) {
      kind += ' ' + property.media_type;
    }
    console.field(property.stable_id, kind + " (" + joined(property.tags) + ')');
    for (const auto& variation : property.variations) {
      console.field("  level " + std::to_string(variation.sensitivity_level),
                    Contents::describe(report, property, variation));
    }
    if (property.variations.empty()) {
      console.field("", "(no variations)");
    }
  }
}

}  // namespace

void runViewer(const Console& console, Assignment& assignment) {
  const auto& reports = assignment.reports;
  const ReportUuid& id = assignment.id;
  console.say("counted " + std::to_string(reports.countAllReports()) + " and listed " +
              std::to_string(reports.getAllReportUuids().size()) + " under " +
              reports.getRootPath().string());
  require(isListed(reports, id), "finding the report in the list");

  auto report = require(reports.openReport(id), "opening the report");
  const std::filesystem::path directory = require(report->getReportDirPath(), "directory");
  require(report->acquireReadLock(/*wait=*/true), "taking a read lock");
  console.say("took a read lock on report " + id.toString());
  showIdentity(console, *report);
  showStages(console, *report);
  showProcess(console, *report);
  showContents(console, *report);
  report.reset();  // A report that somebody holds is not deleted, whoever it is.

  assignment.changes.change();
  require(reports.deleteReport(id, /*force=*/false), "deleting the report");
  require(!std::filesystem::exists(directory) && !isListed(reports, id), "finding the report gone");
  console.say("deleted report " + id.toString());
}

}  // namespace CrashDemo
