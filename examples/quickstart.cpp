#include <diagnostic/diagnosticdata.h>

#include <iostream>

using namespace KELP::Diagnostic;

int main(int argc, char** argv) {
  const DiagnosticData reports(argc > 1 ? argv[1] : "reports");

  auto report = reports.createReport(/*appId=*/1, /*buildId=*/2, /*userId=*/3, "device", "session");
  if (!report || !report->acquireWriteLock(true) || !report->setDescription("Ran out of memory") ||
      !report->markCreationComplete() || !report->releaseLock()) {
    return 1;  // The reason is in the log.
  }
  report.reset();  // It stays on disk, for this process and any other.

  for (const ReportUuid& id : reports.getAllReportUuids()) {
    if (const auto opened = reports.openReport(id)) {
      std::cout << id.toString() << ": " << opened->getDescription().value_or("") << '\n';
    }
    if (const auto deleted = reports.deleteReport(id, /*force=*/false); !deleted) {
      std::cerr << deleted.error().message << '\n';
      return 1;
    }
  }
}
