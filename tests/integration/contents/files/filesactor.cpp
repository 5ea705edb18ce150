// filesactor ROOT ID OPERATION OUTSIDE: opens a report, takes its write lock, says "begin", does
// the operation and says "end".

#include "integration/contents/files/fileoperations.h"

#include <diagnostic/diagnosticdata.h>
#include <diagnostic/reportuuid.h>

#include <unistd.h>

#include <cstdio>
#include <string_view>

namespace {

/** Says a line without any buffer, so that it is one system call. */
bool say(std::string_view line) {
  return ::write(STDOUT_FILENO, line.data(), line.size()) == static_cast<ssize_t>(line.size());
}

}  // namespace

int main(int count, char** arguments) {
  using namespace KELP;
  if (count != 5) return 2;
  Diagnostic::ReportUuid id;
  if (!id.parse(arguments[2])) return 2;
  const Test::FileOperation& operation = Test::fileOperation(arguments[3]);
  const Diagnostic::DiagnosticData repository(arguments[1]);
  const auto report = repository.openReport(id);
  if (!report || !report->acquireWriteLock(false)) return 3;
  if (!say("begin\n")) return 4;
  const auto result = operation.run(*report, arguments[4]);
  if (!result) {
    std::fprintf(stderr, "%s: %s\n", arguments[3], result.error().message.c_str());
    return 5;
  }
  return say("end\n") ? 0 : 4;
}
