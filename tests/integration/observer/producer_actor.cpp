// A process that makes, changes and deletes reports, as it is told on its standard input: one
// command a line, one answer a line, "ok" or what went wrong.
//
//   producer_actor ROOT            takes commands until the end of its input
//   producer_actor ROOT COMMAND    says "begin", does one command, and says "end"
//
//   create ID...        creates these reports
//   delete ID...        deletes them
//   recreate ID...      deletes them, and creates reports with the same identifiers
//   touch ID COUNT      writes the time of the change, COUNT times
//   step NAME ID        takes one step of a report's life
//   look ID             does all with a report that does not change it
//   create-many COUNT   creates reports with random identifiers, as fast as it can
//   delete-many         deletes the reports of the last "create-many"
//   churn               creates, changes and deletes reports until the next line comes
//   grow                creates and changes reports until the next line comes

#include "integration/arguments.h"
#include "integration/observer/reportlife.h"

#include <diagnostic/diagnosticdata.h>
#include <diagnostic/diagnosticreport.h>
#include <diagnostic/reportuuid.h>

#include <poll.h>
#include <unistd.h>

#include <deque>
#include <functional>
#include <iostream>
#include <map>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

using KELP::Diagnostic::DiagnosticData;
using KELP::Diagnostic::DiagnosticReport;
using KELP::Diagnostic::ReportUuid;
using KELP::Test::next;
using KELP::Test::nextId;
using Arguments = std::istringstream;
using Report = DiagnosticReport;

/** So many reports are there at a time for each process that churns. */
constexpr std::size_t kCrowd = 6;

void demand(const Report::Result& result) {
  if (!result) {
    throw std::runtime_error(result.error().message);
  }
}

void forEachId(Arguments& arguments, const std::function<void(const ReportUuid&)>& act) {
  do {
    act(nextId(arguments));
  } while (!(arguments >> std::ws).eof());
}

bool lineHasCome() {
  pollfd input{STDIN_FILENO, POLLIN, 0};
  return ::poll(&input, 1, 0) > 0;
}

/** A report with its write lock. */
std::unique_ptr<Report> locked(std::unique_ptr<Report> report) {
  if (!report) {
    throw std::runtime_error("there is no such report");
  }
  demand(report->acquireWriteLock(true));
  return report;
}

class Producer {
 public:
  explicit Producer(std::string root) : repository_(std::move(root)) {}

  void obey(const std::string& line) {
    Arguments arguments(line);
    const auto command = commands_.find(next<std::string>(arguments));
    if (command == commands_.end()) {
      throw std::invalid_argument(line);
    }
    command->second(arguments);
  }

 private:
  void create(const ReportUuid& id) const {
    if (!repository_.createReport(id, 1, 2, 3, "device", "session")) {
      throw std::runtime_error("a report cannot be created");
    }
  }

  ReportUuid createRandom() const {
    ReportUuid id;
    id.randomize();
    create(id);
    return id;
  }

  /** An observer that starts opens each report, and is in the way for a moment. Then it is tried
   *  again: by force when a part of the report is gone already. */
  void remove(const ReportUuid& id) const {
    Report::Result removed = repository_.deleteReport(id, false);
    for (bool isBegun = false; !removed; removed = repository_.deleteReport(id, isBegun)) {
      const std::string& why = removed.error().message;
      isBegun = isBegun || why.find("remov") != std::string::npos;
      if (!isBegun && why != "Unable to acquire write lock on report") {
        demand(removed);
      }
    }
  }

  void touch(const ReportUuid& id, int count) const {
    const auto report = locked(repository_.openReport(id));
    for (int number = 0; number < count; ++number) {
      demand(report->touch());
    }
  }

  void look(const ReportUuid& id) const {
    if (repository_.countAllReports() == 0 || repository_.getAllReportUuids().empty()) {
      throw std::runtime_error("no report is found");
    }
    const auto report = repository_.openReport(id);
    if (!report || report->getId() != id) {
      throw std::runtime_error("the report is not opened");
    }
    demand(report->acquireReadLock(true));
    static_cast<void>(report->getModifiedTime());
    static_cast<void>(report->getDescription());
    static_cast<void>(report->getReportContents());
    static_cast<void>(report->canUpload());
    if (report->touch() || report->setDescription("without the right")) {
      throw std::runtime_error("a reader changed the report");
    }
    demand(report->acquireWriteLock(true));
    demand(report->releaseLock());
  }

  void createMany(int count) {
    created_.clear();
    for (int number = 0; number < count; ++number) {
      created_.push_back(createRandom());
    }
  }

  void deleteMany() const {
    for (const ReportUuid& id : created_) {
      remove(id);
    }
  }

  void churn() const {
    std::deque<ReportUuid> reports;
    while (!lineHasCome()) {
      reports.push_back(createRandom());
      touch(reports[reports.size() / 2], 1);
      if (reports.size() >= kCrowd) {
        remove(reports.front());
        reports.pop_front();
      }
    }
  }

  void grow() const {
    while (!lineHasCome()) {
      touch(createRandom(), 1);
    }
  }

  DiagnosticData repository_;
  std::vector<ReportUuid> created_;

  const std::map<std::string, std::function<void(Arguments&)>> commands_{
      {"create", [this](Arguments& a) { forEachId(a, [&](const auto& id) { create(id); }); }},
      {"delete", [this](Arguments& a) { forEachId(a, [&](const auto& id) { remove(id); }); }},
      {"recreate",
       [this](Arguments& a) {
         forEachId(a, [&](const auto& id) {
           remove(id);
           create(id);
         });
       }},
      {"touch",
       [this](Arguments& a) {
         const ReportUuid id = nextId(a);
         touch(id, next<int>(a));
       }},
      {"step",
       [this](Arguments& a) {
         const auto& step = KELP::Test::lifeStep(next<std::string>(a));
         demand(step.run(*locked(repository_.openReport(nextId(a)))));
       }},
      {"look", [this](Arguments& a) { look(nextId(a)); }},
      {"create-many", [this](Arguments& a) { createMany(next<int>(a)); }},
      {"delete-many", [this](Arguments&) { deleteMany(); }},
      {"churn", [this](Arguments&) { churn(); }},
      {"grow", [this](Arguments&) { grow(); }},
  };
};

/** Says a line without any buffer, so that it is one system call. */
void say(std::string_view line) {
  if (::write(STDOUT_FILENO, line.data(), line.size()) != static_cast<ssize_t>(line.size())) {
    throw std::runtime_error("nobody listens");
  }
}

void obeyOnce(Producer& producer, const std::string& command) {
  say("begin\n");
  producer.obey(command);
  say("end\n");
}

void obeyAll(Producer& producer) {
  for (std::string line; std::getline(std::cin, line);) {
    if (line == "end") {
      continue;  // It has ended a command, and is none itself.
    }
    try {
      producer.obey(line);
      std::cout << "ok" << std::endl;
    } catch (const std::exception& failure) {
      std::cout << line << ": " << failure.what() << std::endl;
    }
  }
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 2 && count != 3) {
    std::cerr << "usage: producer_actor ROOT [COMMAND]\n";
    return 2;
  }
  Producer producer(arguments[1]);
  if (count == 3) {
    obeyOnce(producer, arguments[2]);
  } else {
    obeyAll(producer);
  }
  return 0;
}
