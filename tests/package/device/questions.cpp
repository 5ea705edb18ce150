// questions ROOT: tells what the library asks of the store that a device brings, one situation a
// line.

#include "questions.h"

#include <diagnostic/diagnosticdata.h>
#include <diagnostic/diagnosticreport.h>
#include <os/keyvaluestore.h>

#include <cstdio>
#include <string>
#include <utility>

namespace {

using KELP::Diagnostic::DiagnosticData;
using KELP::Diagnostic::DiagnosticReport;

/** Prints what was asked since the last time. */
void tell(const std::string& situation) {
  std::printf("%s:", situation.c_str());
  const char* separator = " ";
  for (const std::string& question : std::exchange(Device::questions, {})) {
    std::printf("%s%s", separator, question.c_str());
    separator = ", ";
  }
  std::puts("");
}

void openInVain(const DiagnosticData& repository, const DiagnosticReport& report) {
  Device::storesAreReady = false;
  DiagnosticReport opened;
  const auto result = opened._open(repository.getRootPath(), report.getId());
  Device::storesAreReady = true;
  tell(result ? "opened though it is not ready" : result.error().message);
}

/** Asks for the stages with as many of them done, in the order in which they are to be done. */
void askForStages(const DiagnosticReport& report, int done) {
  constexpr const char* kStages[] = {"report_creation_complete", "user_interaction_complete",
                                     "data_collection_complete", "data_policy_applied",
                                     "upload_complete"};
  KELP::OS::KeyValueStore store(report._getReportMetadataPath()->string(), "", {});
  for (int stage = 0; stage < 5; ++stage) {
    store.set(kStages[stage], stage < done ? "1" : "0");
  }
  Device::questions.clear();
  const std::string after = " after " + std::to_string(done);
  const bool collect = report.canCollectData();
  tell("collect" + after + (collect ? " yes" : " no"));
  const bool apply = report.canApplyDataPolicy();
  tell("apply" + after + (apply ? " yes" : " no"));
  const bool upload = report.canUpload();
  tell("upload" + after + (upload ? " yes" : " no"));
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    return 2;
  }
  const DiagnosticData repository(argv[1]);
  const auto report = repository.createReport(1, 2, 3, "device", "session");
  if (report == nullptr) {
    return 1;
  }
  tell("create");
  if (repository.openReport(report->getId()) == nullptr) {
    return 1;
  }
  tell("open");
  openInVain(repository, *report);
  for (int done = 0; done <= 5; ++done) {
    askForStages(*report, done);
  }
  return 0;
}
