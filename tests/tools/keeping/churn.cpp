// Creates, fills and deletes reports under the root that is given, until its standard input ends.
// Writes a line when it has begun, and how many reports it was through at the end.

#include <diagnostic/diagnosticdata.h>

#include <poll.h>
#include <unistd.h>

#include <cstdlib>
#include <deque>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>

namespace {

using KELP::Diagnostic::DiagnosticData;
using KELP::Diagnostic::DiagnosticReport;
using KELP::Diagnostic::ReportUuid;

bool isToEnd() {
  pollfd input{STDIN_FILENO, POLLIN, 0};
  return ::poll(&input, 1, 0) != 0;
}

void require(bool succeeded) {
  if (!succeeded) {
    std::cerr << "churn: a step failed\n";
    std::_Exit(1);
  }
}

void addFile(DiagnosticReport& report, const std::string& name, int level) {
  const auto scratch = report.createReportTemporaryFile();
  require(scratch.has_value());
  std::ofstream(*(*scratch)->getPath()) << name;
  require(
      report.moveReportTemporaryFileToFileProperty(name, level, *scratch, "", false).has_value());
}

ReportUuid makeReport(const DiagnosticData& data) {
  const auto report = data.createReport(1, 2, 3, "device", "session");
  require(report && report->acquireWriteLock(true));
  for (const char* const name : {"log", "trace", "gone"}) {
    require(report->createReportFileProperty(name, "", {}).has_value());
    addFile(*report, name, 0);
    addFile(*report, name, 1);
  }
  require(report->removeReportFileProperty("gone").has_value());
  require(report->removeFileVariation("log", 1).has_value());
  return report->getId();
}

/** Fails when something of the report is gone. */
void verify(const DiagnosticData& data, const ReportUuid& id) {
  const std::filesystem::path report = data.getRootPath() / id.toString();
  for (const char* const name : {"log/0/log", "trace/0/trace", "trace/1/trace"}) {
    const std::filesystem::path file = report / "contentfiles" / name;
    std::string content;
    std::ifstream(file) >> content;
    require(content == file.filename());
  }
  require(std::filesystem::is_directory(report / "contentfiles/log/1"));
  require(data.openReport(id) != nullptr);
}

}  // namespace

int main(int /*argc*/, char** argv) {
  constexpr std::size_t kAlive = 4;
  const DiagnosticData data(argv[1]);
  std::deque<ReportUuid> alive;
  std::size_t count = 0;
  for (; !isToEnd(); ++count) {
    alive.push_back(makeReport(data));
    if (alive.size() > kAlive) {
      verify(data, alive.front());
      require(data.deleteReport(alive.front(), false).has_value());
      alive.pop_front();
    }
    if (count == kAlive) {
      std::cout << "running" << std::endl;
    }
  }
  std::cout << count << std::endl;
  return 0;
}
