// What sets one key of a report: the time, then the key.

#include "faults/sweep/scenes.h"

namespace KELP::Test {
namespace {

void prepareBloated(Scene& scene) {
  prepareReport(scene);
  bloat(scene.root / kSweptId / "metadata.db", "description");
}

void openChanged(Scene& scene) {
  openLocked(scene);
  require(scene.report->setDescription("not durable yet"));
}

}  // namespace

std::vector<Operation> fieldOperations() {
  return {
      {"Touch", prepareReport, openLocked, [](Scene& s) { return told(s.report->touch()); },
       change({})},
      {"SetCurrentConsentLevel", prepareReport, openLocked,
       [](Scene& s) { return told(s.report->setCurrentConsentLevel(5)); },
       change({"Failed to write updated consent level to report"})},
      {"SetMaxConsentLevel", prepareReport, openLocked,
       [](Scene& s) { return told(s.report->setMaxConsentLevel(25)); },
       change({"Failed to write updated max consent level to report"})},
      {"MarkCreationComplete", prepareReport, openLocked,
       [](Scene& s) { return told(s.report->markCreationComplete()); },
       change({"Failed to write updated creation status to report"})},
      {"MarkUserInteractionComplete", prepareReport, openLocked,
       [](Scene& s) { return told(s.report->markUserInteractionComplete()); },
       change({"Failed to write updated interaction status to report"})},
      // A stage before that cannot be read counts as not reached.
      {"MarkDataCollectionComplete", prepareCreated, openLocked,
       [](Scene& s) { return told(s.report->markDataCollectionComplete()); },
       change({"Failed to write updated data collection status to report",
               "Current report status does not support marking data collection as completed"})},
      {"MarkDataPolicyApplied", prepareCollected, openLocked,
       [](Scene& s) { return told(s.report->markDataPolicyApplied()); },
       change({"Failed to write updated policy application status to report",
               "Current report status does not support marking policy application as completed"})},
      {"MarkUploadComplete", prepareApplied, openLocked,
       [](Scene& s) { return told(s.report->markUploadComplete()); },
       change({"Failed to write updated upload status to report",
               "Current report status does not support marking upload as completed"})},
      {"SetDescription", prepareApplied, openLocked,
       [](Scene& s) { return told(s.report->setDescription("new")); },
       change({"Failed to write updated description to report"})},
      {"SetDescriptionAndCompact", prepareBloated, openLocked,
       [](Scene& s) { return told(s.report->setDescription("new")); },
       change({"Failed to write updated description to report"})},
      {"SetPid", prepareReport, openLocked, [](Scene& s) { return told(s.report->setPID(1)); },
       change({"Failed to write updated pid to report"})},
      {"SetProcessName", prepareReport, openLocked,
       [](Scene& s) { return told(s.report->setProcessName("new")); },
       change({"Failed to write updated process name to report"})},
      {"SetLoadedLibraries", prepareReport, openLocked,
       [](Scene& s) { return told(s.report->setLoadedLibraries({"/lib/c"})); },
       change({"Failed to write updated loaded libraries to report"})},
      {"CloseReport",
       prepareReport,
       openChanged,
       [](Scene& s) {
         s.report.reset();
         return done();
       },
       {}},
  };
}

}  // namespace KELP::Test
