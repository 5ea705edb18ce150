// A client as others write one, in C++17: makes a report, fills it, finds it again, deletes it.

#include <diagnostic/diagnosticdata.h>

#include <cstdio>
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
  if (!repository.deleteReport(listed.front(), false) || repository.countAllReports() != 0) {
    return failed("the report was not deleted");
  }
  std::puts("created, changed, listed, opened and deleted a report");
  return 0;
}
