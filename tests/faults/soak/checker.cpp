#include "faults/soak/audit.h"
#include "faults/soak/roles.h"
#include "support/waituntil.h"

#include <chrono>
#include <iostream>
#include <thread>

namespace KELP::Test::Soak {
namespace {

using Diagnostic::DiagnosticData;
using Diagnostic::ReportUuid;
namespace fs = std::filesystem;

class Checker {
 public:
  explicit Checker(const Place& place)
      : place_(place),
        journal_(place.journal(), place.who),
        reader_(place.journal()),
        repository_(place.root),
        chance_(place.seed),
        audit_(place.root) {}

  int run() {
    while (!isToldSomething()) {
      turn();
    }
    readAll();
    finish();
    tell();
    std::cout << "journal: " << reader_.size() / 1024 << " KiB\n";
    audit_.summarize(std::cout);
    std::cout.flush();
    return audit_.violations().empty() ? 0 : 1;
  }

 private:
  void readAll() {
    while (const auto entry = reader_.next()) {
      audit_.take(*entry);
    }
    tell();
  }

  /** Prints violations as soon as they are found. */
  void tell() {
    for (; told_ < audit_.violations().size(); ++told_) {
      std::cerr << "VIOLATION " << audit_.violations()[told_] << std::endl;
    }
  }

  /** Looks at some reports under their locks; reads what is new before and after. */
  void turn() {
    readAll();
    if (++turns_ % 16 == 0) {
      audit_.lookForRemains();
    }
    const auto ids = namesIn(place_.root);
    if (ids.empty()) {
      std::this_thread::yield();
      return;
    }
    look(chance_.of(ids), chance_.oneIn(2));
  }

  void look(const ReportUuid& id, bool forWriting) {
    Session session(repository_, journal_, log_, id);
    if (!session.isOpen()) {
      return;
    }
    const bool isLocked =
        forWriting ? session.lockForWriting(session->waitForAndAquireWriteLock(kLongestLock))
                   : session.lockForReading(session->waitForAndAquireReadLock(kLongestLock));
    if (isLocked) {
      session.unlock();
    } else {
      journal_.write(Kind::LockAwaited, id.toString());
    }
  }

  /** Whether the observer comes to tell of all that was done. */
  void awaitEvents() {
    const bool isTold = waitUntil([&] {
      readAll();
      return audit_.untold().empty();
    });
    if (!isTold) {
      for (const std::string& id : audit_.untold()) {
        audit_.complain(id, "the observer lacks something at the end");
      }
    }
  }

  /** Nobody else changes anything any more. */
  void finish() {
    awaitEvents();
    for (const ReportUuid& id : namesIn(place_.root)) {
      Session session(repository_, journal_, log_, id);
      if (session.isOpen() && session.lockForWriting(session->acquireWriteLock(false))) {
        session.unlock();
      } else if (session.isOpen()) {
        journal_.write(Kind::Violation, id.toString(), "a lock is held by nobody");
      }
    }
    for (const ReportUuid& id : namesIn(place_.root)) {
      journal_.write(Kind::Deleting, id.toString());
      const auto deleted = repository_.deleteReport(id, true);
      journal_.write(deleted ? Kind::Deleted : Kind::NotDeleted, id.toString(),
                     deleted ? "" : deleted.error().message);
    }
    if (!fs::is_empty(place_.root)) {
      audit_.complain("-", "something is left in the root");
    }
    readAll();
    audit_.lookForRemains();
    awaitEvents();
  }

  const Place& place_;
  Journal journal_;
  JournalReader reader_;
  LogCapture log_;
  DiagnosticData repository_;
  Chance chance_;
  Audit audit_;
  std::uint64_t turns_ = 0;
  std::size_t told_ = 0;
};

}  // namespace

int check(const Place& place) {
  return Checker(place).run();
}

}  // namespace KELP::Test::Soak
