// What creates, opens, lists and deletes reports.

#include "faults/sweep/scenes.h"
#include "support/temporarydirectory.h"

#include <algorithm>

namespace KELP::Test {
namespace {

namespace fs = std::filesystem;

/** A report, another one, a directory that is no report, a file, and a hidden directory. */
void prepareSeveral(Scene& scene) {
  prepareReport(scene);
  require(repository(scene).createReport(sweptId(kOtherSweptId), 1, 2, 3, "", ""));
  fs::create_directories(scene.root / "stray");
  fs::create_directories(scene.root / ".hidden");
  writeFile(scene.root / "file", "");
}

/** A directory as a creation leaves that was killed. */
void prepareBroken(Scene& scene) {
  fs::create_directories(scene.root / inReport("contentfiles/log"));
  writeFile(scene.root / inReport("lock"), "");
  writeFile(scene.root / inReport("metadata.db"), "");
  writeFile(scene.root / inReport("contentfiles/log/file"), "content");
}

void prepareEmptyReport(Scene& scene) {
  fs::create_directories(scene.root / kSweptId);
}

/** Of what opens a report, where the reason is returned. */
std::vector<Stated> openingErrors() {
  return {kPathFailure,
          {"Lock file does not exist for diagnostic report", true},
          {"Metadata file does not exist for diagnostic report", true},
          {"Failed to open lock file for existing report", true},
          {"Failed to initialize metadata kv store for report"},
          {"Report id mismatch"}};
}

/** Lines that tell why there is no report: those of opening. */
Expectation opening() {
  return {.errors = {kPathFailure,
                     {"Unable to open report with unknown lock path"},
                     {"Unable to open report with unknown metadata path"},
                     {"Lock file "},
                     {"Metadata file "},
                     {"Failed to open lock file for existing report "},
                     {"Failed to initialize metadata kv store for report"},
                     {"Report id mismatch: "}}};
}

/** What is made stays, and the keys are set one by one. */
Expectation creation(const std::string& id) {
  return {.errors = {{"Unable to create report with unknown lock path"},
                     {"Unable to create report with unknown metadata path"},
                     {"Failed to create directory for report"},
                     {"Failed to create lock file for new report "},
                     {"Unable to acquire write lock for new report "},
                     {"Failed to to write initial metadata for report"}},
          .severalKeys = true,
          .begun = {id}};
}

/** What could not be removed is left for a forced deletion. */
Expectation deletion(bool force) {
  Expectation expectation{
      .errors = {{"Failed to remove empty report", true},
                 {"Failed to remove lock file from report while force deleting", true},
                 {"Failed to remove metadata file from report while force deleting", true},
                 {"Failed to force remove report directory"},
                 {"Unable to acquire write lock on report"}},
      .gone = {kSweptId}};
  if (force) {
    expectation.left = {kSweptId};  // What cannot be examined counts as not there.
  } else {
    expectation.errors.push_back({"Encountered errors while removing report files", true});
    for (Stated& error : openingErrors())
      expectation.errors.push_back(std::move(error));
  }
  return expectation;
}

Outcome created(std::unique_ptr<Diagnostic::DiagnosticReport> report, Scene& scene) {
  scene.report = std::move(report);
  return made(scene.report != nullptr);
}

}  // namespace

std::vector<Operation> repositoryOperations() {
  return {
      {"CreateFirstReport", prepareNothing, arrangeNothing,
       [](Scene& s) {
         return created(repository(s).createReport(sweptId(), 1, 2, 3, "device", "session"), s);
       },
       creation(kSweptId)},
      {"CreateReport", prepareSeveral, arrangeNothing,
       [](Scene& s) { return created(repository(s).createReport(1, 2, 3, "device", ""), s); },
       creation("{new}")},
      {"OpenReport", prepareSeveral, arrangeNothing,
       [](Scene& s) { return created(repository(s).openReport(sweptId()), s); }, opening()},
      {"CountReports",
       prepareSeveral,
       arrangeNothing,
       [](Scene& s) { return done(std::to_string(repository(s).countAllReports())); },
       {.errors = {}, .answers = {"0", "1", "2"}}},
      {"ListReports",
       prepareSeveral,
       arrangeNothing,
       [](Scene& s) {
         std::vector<std::string> names;
         for (const auto& id : repository(s).getAllReportUuids())
           names.push_back(id.toString());
         std::ranges::sort(names);
         return done(inWords(names));
       },
       {.errors = {}, .partialAnswer = true}},
      {"DeleteReport", prepareReport, arrangeNothing,
       [](Scene& s) { return told(repository(s).deleteReport(sweptId(), false)); },
       deletion(false)},
      {"DeleteReportByForce", prepareReport, arrangeNothing,
       [](Scene& s) { return told(repository(s).deleteReport(sweptId(), true)); }, deletion(true)},
      {"DeleteBrokenReportByForce", prepareBroken, arrangeNothing,
       [](Scene& s) { return told(repository(s).deleteReport(sweptId(), true)); }, deletion(true)},
      {"DeleteEmptyReportByForce", prepareEmptyReport, arrangeNothing,
       [](Scene& s) { return told(repository(s).deleteReport(sweptId(), true)); }, deletion(true)},
      {"DeleteOpenReport",
       prepareReport,
       openLocked,
       [](Scene& s) { return told(s.report->deleteReport()); },
       {.errors = {{"Encountered errors while removing report files", true}}, .gone = {kSweptId}}},
  };
}

}  // namespace KELP::Test
