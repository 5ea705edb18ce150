// A process that uses reports as it is told on its standard input: one command a line, one answer a
// line, "ok" or "error CODE MESSAGE" for what can fail.

#include "integration/arguments.h"
#include "integration/report/race.h"

#include <diagnostic/diagnosticdata.h>
#include <diagnostic/diagnosticreport.h>
#include <diagnostic/reportuuid.h>

#include <signal.h>
#include <spawn.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <iostream>
#include <iterator>
#include <map>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using KELP::Diagnostic::DiagnosticData;
using KELP::Diagnostic::DiagnosticReport;
using KELP::Diagnostic::ReportUuid;
using KELP::Test::next;
using KELP::Test::nextId;
using Arguments = std::istringstream;
using Report = DiagnosticReport;

std::string answer(const Report::Result& result) {
  if (result) {
    return "ok";
  }
  return "error " + std::to_string(result.error().code.value()) + " " + result.error().message;
}

/** Starts a program that outlives the command, by fork and exec. @return its process id. */
std::string startSleeper() {
  const pid_t pid = ::fork();
  if (pid == 0) {
    ::execl("/bin/sleep", "sleep", "120", nullptr);
    ::_exit(127);
  }
  return std::to_string(pid);
}

/** All arguments that are left. */
std::vector<std::string> remaining(Arguments& arguments) {
  return {std::istream_iterator<std::string>(arguments), {}};
}

class ReportActor {
 public:
  explicit ReportActor(std::string root) : repository_(std::move(root)) {}

  std::string obey(const std::string& line) {
    Arguments arguments(line);
    const auto command = commands_.find(next<std::string>(arguments));
    if (command == commands_.end()) {
      throw std::invalid_argument(line);
    }
    return command->second(arguments);
  }

 private:
  std::string adopt(std::unique_ptr<Report> report) {
    report_ = std::move(report);
    return report_ ? "ok" : "error";
  }

  /** Creates each report whose identifier is given. @return the identifiers of those made. */
  std::string createEach(Arguments& arguments) {
    std::string made = "made";
    for (std::string text; arguments >> text;) {
      ReportUuid id;
      if (id.parse(text.c_str()) && repository_.createReport(id, 1, 2, 3, "device", "session")) {
        made += " " + text;
      }
    }
    return made;
  }

  /** Lists all reports, again and again. @return how many it saw. */
  std::string listFor(std::chrono::milliseconds duration) {
    const auto end = std::chrono::steady_clock::now() + duration;
    std::size_t seen = 0;
    while (std::chrono::steady_clock::now() < end) {
      seen += repository_.getAllReportUuids().size();
    }
    return std::to_string(seen);
  }

  DiagnosticData repository_;
  std::unique_ptr<Report> report_;

  const std::map<std::string, std::function<std::string(Arguments&)>> commands_{
      {"create",
       [this](Arguments& a) {
         return adopt(repository_.createReport(nextId(a), 1, 2, 3, "device", "session"));
       }},
      {"create-each", [this](Arguments& a) { return createEach(a); }},
      {"open", [this](Arguments& a) { return adopt(repository_.openReport(nextId(a))); }},
      {"close", [this](Arguments&) { return report_.reset(), "ok"; }},
      {"read-lock", [this](Arguments&) { return answer(report_->acquireReadLock(true)); }},
      {"write-lock", [this](Arguments&) { return answer(report_->acquireWriteLock(true)); }},
      {"try-read-lock", [this](Arguments&) { return answer(report_->acquireReadLock(false)); }},
      {"try-write-lock", [this](Arguments&) { return answer(report_->acquireWriteLock(false)); }},
      {"release", [this](Arguments&) { return answer(report_->releaseLock()); }},
      {"touch", [this](Arguments&) { return answer(report_->touch()); }},
      {"describe",
       [this](Arguments& a) { return answer(report_->setDescription(next<std::string>(a))); }},
      {"description", [this](Arguments&) { return report_->getDescription().value_or("none"); }},
      {"set-pid", [this](Arguments& a) { return answer(report_->setPID(next<int>(a))); }},
      {"set-process-name",
       [this](Arguments& a) { return answer(report_->setProcessName(next<std::string>(a))); }},
      {"set-libraries",
       [this](Arguments& a) { return answer(report_->setLoadedLibraries(remaining(a))); }},
      {"mark-creation", [this](Arguments&) { return answer(report_->markCreationComplete()); }},
      {"mark-interaction",
       [this](Arguments&) { return answer(report_->markUserInteractionComplete()); }},
      {"set-consent",
       [this](Arguments& a) { return answer(report_->setCurrentConsentLevel(next<int>(a))); }},
      {"delete", [this](Arguments&) { return answer(report_->deleteReport()); }},
      {"repository-delete",
       [this](Arguments& a) { return answer(repository_.deleteReport(nextId(a), false)); }},
      {"list-for",
       [this](Arguments& a) { return listFor(std::chrono::milliseconds(next<int>(a))); }},
      {"start-sleeper", [](Arguments&) { return startSleeper(); }},
      {"race",
       [this](Arguments& a) {
         const auto duration = std::chrono::milliseconds(next<int>(a));
         const auto seed = next<unsigned>(a);
         return KELP::Test::race(repository_, duration, seed, next<std::string>(a));
       }},
  };
};

}  // namespace

int main(int count, char** arguments) {
  if (count != 2) {
    std::cerr << "usage: report_actor ROOT\n";
    return 2;
  }
  // A signal that interrupts system calls, which are then not restarted by the system.
  struct sigaction interruption {};
  interruption.sa_handler = [](int) {};
  ::sigaction(SIGUSR1, &interruption, nullptr);

  ReportActor actor(arguments[1]);
  for (std::string line; std::getline(std::cin, line);) {
    std::cout << actor.obey(line) << std::endl;
  }
  return 0;
}
