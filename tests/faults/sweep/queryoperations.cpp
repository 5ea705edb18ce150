// What reads. What cannot be read counts as absent.

#include "faults/sweep/scenes.h"

namespace KELP::Test {
namespace {

/** Of a query that answers something else when it cannot find out. */
Expectation answers(std::string unknown) {
  return {.errors = {}, .answers = {std::move(unknown)}};
}

/** Of a query that returns an error then. */
Expectation refusal(const std::string& message) {
  return {.errors = {{message}}};
}

}  // namespace

std::vector<Operation> queryOperations() {
  return {
      {"GetReporterAppId", prepareReport, openUnlocked,
       [](Scene& s) { return told(s.report->getReporterAppId()); },
       refusal("Report doesn't have an associated App Id")},
      {"GetDeviceId", prepareReport, openUnlocked,
       [](Scene& s) { return told(s.report->getDeviceId()); },
       refusal("Report doesn't have an associated Device Id")},
      // The time that it is, when it cannot be read.
      {"GetModifiedTime", prepareReport, openUnlocked,
       [](Scene& s) { return done(s.report->getModifiedTime() > 1'000'000 ? "now" : "long ago"); },
       answers("now")},
      {"GetDescription", prepareReport, openUnlocked,
       [](Scene& s) { return done(inWords(s.report->getDescription())); }, answers("absent")},
      {"GetPid", prepareReport, openUnlocked,
       [](Scene& s) { return done(inWords(s.report->getPID())); }, answers("absent")},
      {"GetLoadedLibraries", prepareReport, openUnlocked,
       [](Scene& s) { return done(inWords(s.report->getLoadedLibraries())); }, answers("absent")},
      {"GetCurrentConsentLevel", prepareReport, openUnlocked,
       [](Scene& s) { return done(inWords(s.report->getCurrentConsentLevel())); }, answers("0")},
      {"IsCreationComplete", prepareCreated, openUnlocked,
       [](Scene& s) { return done(inWords(s.report->isCreationComplete())); }, answers("false")},
      {"CanUpload", prepareApplied, openUnlocked,
       [](Scene& s) { return done(inWords(s.report->canUpload())); }, answers("false")},
      {"GetContents", prepareReport, openUnlocked,
       [](Scene& s) { return done(inWords(s.report->getReportContents())); }, answers("absent")},
      {"GetProperty", prepareReport, openUnlocked,
       [](Scene& s) { return done(inWords(s.report->getReportContentProperty("text"))); },
       answers("absent")},
      {"GetStringVariationValue", prepareReport, openUnlocked,
       [](Scene& s) { return told(s.report->getReportStringVariationValue("text", 21)); },
       refusal("Unable to get value for report string variation that does not exist")},
      {"GetStringBestVariationValue", prepareReport, openUnlocked,
       [](Scene& s) { return told(s.report->getReportStringBestVariationValue("text")); },
       refusal("Unable to get path for report string variation that does not exist")},
      {"GetFileVariationPath",
       prepareReport,
       openUnlocked,
       [](Scene& s) { return told(s.report->getReportFileVariationPath("log", 21)); },
       {.errors = {kPathFailure,
                   {"Unable to get path for report file variation that does not exist"}}}},
      {"GetReportDirPath",
       prepareReport,
       openUnlocked,
       [](Scene& s) { return told(s.report->getReportDirPath()); },
       {}},
  };
}

}  // namespace KELP::Test
