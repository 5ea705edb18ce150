// A client as others write one, in C++17: makes a report, fills it, finds it again, observes
// and deletes it.

#include <diagnostic/diagnosticdata.h>
#include <diagnostic/diagnosticdataobserver.h>

#include <cstdio>
#include <memory>
#include <optional>
#include <string>

static_assert(__cplusplus == 201703L, "the library must not raise its clients' language version");

namespace {

int failed(const char* what) {
  std::fprintf(stderr, "client: %s\n", what);
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    return failed("usage: client ROOT");
  }
  const KELP::Diagnostic::DiagnosticData repository(argv[1]);
  const auto created = repository.createReport(1, 2, 3, "device", "session");
  if (created == nullptr) {
    return failed("no report was created");
  }
  if (!created->acquireWriteLock(false) || !created->setDescription("a description") ||
      !created->releaseLock()) {
    return failed("the report could not be changed");
  }

  const auto listed = repository.getAllReportUuids();
  if (listed.size() != 1 || listed.front() != created->getId()) {
    return failed("the list is not that of the one report");
  }
  const auto opened = repository.openReport(listed.front());
  if (opened == nullptr ||
      opened->getDescription() != std::optional<std::string>("a description")) {
    return failed("the report does not open with its description");
  }

  using Observer = KELP::Diagnostic::DiagnosticDataObserver;
  int existing = 0;
  Observer observer(
      std::make_shared<KELP::Diagnostic::DiagnosticData>(repository),
      [&](const auto&, Observer::EventType type, void*) {
        existing += type == Observer::EventType::REPORT_EXISTING ? 1 : 0;
      },
      nullptr);
  observer.start();
  observer.stop();
  if (existing != 1) {
    return failed("the observer does not tell of the one report");
  }

  if (!repository.deleteReport(listed.front(), false) || repository.countAllReports() != 0) {
    return failed("the report was not deleted");
  }
  std::puts("created, changed, listed, opened, observed and deleted a report");
  return 0;
}
