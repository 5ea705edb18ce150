// A process that changes one report's contents, as it is told on its standard input: one command a
// line, one answer a line, "ok" or what went wrong. It keeps the report open all the time, and
// takes the write lock for each change.
//
//   contents_actor ROOT ID
//
//   create FIRST COUNT  creates COUNT string properties, named from FIRST on
//   add FIRST COUNT     adds COUNT integer variations to the property "shared": the levels from
//                       FIRST on, each with its level as value
//   remove FIRST COUNT  removes those again
//   tag FIRST COUNT     adds COUNT tags to it, numbers from FIRST on

#include <diagnostic/diagnosticdata.h>
#include <diagnostic/diagnosticreport.h>
#include <diagnostic/reportuuid.h>

#include <functional>
#include <iostream>
#include <map>
#include <memory>
#include <sstream>
#include <string>

namespace {

using Report = KELP::Diagnostic::DiagnosticReport;
using Change = std::function<Report::Result(Report&, int)>;

const std::map<std::string, Change> kChanges{
    {"create", [](Report& r,
                  int number) { return r.createReportStringProperty(std::to_string(number), {}); }},
    {"add",
     [](Report& r, int number) {
       return r.addReportIntegerVariation("shared", number, number, false);
     }},
    {"remove", [](Report& r, int number) { return r.removeIntegerVariation("shared", number); }},
    {"tag", [](Report& r,
               int number) { return r.addTagToContentProperty("shared", std::to_string(number)); }},
};

Report::Result changeLocked(Report& report, const Change& change, int number) {
  if (Report::Result locked = report.acquireWriteLock(true); !locked) {
    return locked;
  }
  Report::Result changed = change(report, number);
  const Report::Result released = report.releaseLock();
  return changed ? released : changed;
}

std::string obey(Report& report, const std::string& line) {
  std::istringstream words(line);
  std::string command;
  int first = 0;
  int count = 0;
  words >> command >> first >> count;
  const auto change = kChanges.find(command);
  if (!words || change == kChanges.end()) {
    return "unknown command";
  }
  for (int number = first; number < first + count; ++number) {
    if (const auto result = changeLocked(report, change->second, number); !result) {
      return result.error().message;
    }
  }
  return "ok";
}

}  // namespace

int main(int argc, char** argv) {
  KELP::Diagnostic::ReportUuid id;
  if (argc != 3 || !id.parse(argv[2])) {
    return 2;
  }
  const KELP::Diagnostic::DiagnosticData repository(argv[1]);
  const std::unique_ptr<Report> report = repository.openReport(id);
  if (!report) {
    return 3;
  }
  std::cout << "ready" << std::endl;
  for (std::string line; std::getline(std::cin, line);) {
    std::cout << obey(*report, line) << std::endl;
  }
}
