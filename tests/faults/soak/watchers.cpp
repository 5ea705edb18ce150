#include "faults/soak/roles.h"

#include <diagnostic/diagnosticdataobserver.h>

#include <fstream>
#include <iostream>
#include <limits>
#include <string>

namespace KELP::Test::Soak {
namespace {

using Diagnostic::DiagnosticData;
using Diagnostic::DiagnosticDataObserver;
using Diagnostic::ReportUuid;

std::size_t residentKib() {
  std::ifstream status("/proc/self/status");
  for (std::string word; status >> word;) {
    if (std::size_t kib = 0; word == "VmRSS:" && status >> kib) {
      return kib;
    }
    status.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
  }
  return 0;
}

/** Answers one line of the input. @return whether there was one. */
bool answer() {
  std::string line;
  if (!std::getline(std::cin, line)) {
    return false;
  }
  std::cout << descriptorCount() << ' ' << residentKib() << std::endl;
  return true;
}

class Lister {
 public:
  explicit Lister(const Place& place)
      : journal_(place.journal(), place.who), repository_(place.root) {}

  /** Lists, counts and reads each report once. */
  void turn() {
    journal_.write(Kind::Listing, "-");
    const std::vector<ReportUuid> ids = repository_.getAllReportUuids();
    std::string text;
    for (const ReportUuid& id : ids) {
      text += id.toString() + ' ';
    }
    journal_.write(Kind::Listed, "-", text);
    journal_.write(Kind::Counting, "-");
    const std::uint64_t count = repository_.countAllReports();
    journal_.write(Kind::Counted, "-", std::to_string(count));
    for (const ReportUuid& id : ids) {
      read(id);
    }
  }

 private:
  /** Without a lock: each value is one that the report has had, or has none. */
  void read(const ReportUuid& id) const {
    const auto report = repository_.openReport(id);
    if (!report) {
      return;  // Whether that may be is seen by those who lock.
    }
    const ReportState state = readState(*report);
    const Maker maker(id);
    const bool isItsOwn = state.app.value_or(maker.app) == maker.app &&
                          state.build.value_or(maker.build) == maker.build &&
                          state.user.value_or(maker.user) == maker.user &&
                          state.device.value_or(maker.device) == maker.device &&
                          state.session.value_or(maker.session) == maker.session;
    if (report->getId() != id || !isItsOwn) {
      journal_.write(Kind::Violation, id.toString(), "mixed values: " + state.metadataText());
    }
  }

  Journal journal_;
  DiagnosticData repository_;
};

}  // namespace

int observe(const Place& place) {
  const Journal journal(place.journal(), place.who);
  DiagnosticDataObserver observer(
      std::make_shared<DiagnosticData>(place.root),
      [&](const ReportUuid& id, DiagnosticDataObserver::EventType type, void*) {
        journal.write(Kind::Event, id.toString(), std::to_string(static_cast<int>(type)));
      },
      nullptr);
  observer.start();
  while (answer()) {
  }
  observer.stop();
  return 0;
}

int list(const Place& place) {
  Lister lister(place);
  do {
    lister.turn();
  } while (!isToldSomething() || answer());
  return 0;
}

}  // namespace KELP::Test::Soak
