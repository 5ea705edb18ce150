#include "faults/soak/doom.h"
#include "faults/soak/roles.h"

#include <unistd.h>

namespace KELP::Test::Soak {
namespace {

using Diagnostic::DiagnosticData;
using Diagnostic::ReportUuid;

/** So many reports are there at most, but for those that several processes create at once. */
constexpr std::uint64_t kCrowd = 16;
constexpr std::size_t kDescriptorChecks = 50;

class Worker {
 public:
  explicit Worker(const Place& place)
      : place_(place),
        journal_(place.journal(), place.who),
        chance_(place.seed),
        repository_(place.root) {}

  void run() {
    const std::size_t descriptors = descriptorCount();
    for (std::size_t turn = 0; !isToldSomething(); ++turn) {
      act();
      if (turn % kDescriptorChecks == 0 && descriptorCount() != descriptors) {
        journal_.write(Kind::Violation, "-", "a worker has descriptors left");
      }
    }
  }

 private:
  void act() {
    static_cast<void>(log_.take());
    const std::vector<ReportUuid> ids = choices();
    if (ids.empty() || (chance_.oneIn(6) && repository_.countAllReports() < kCrowd)) {
      create();
      return;
    }
    const ReportUuid id = chance_.of(ids);
    if (chance_.oneIn(25)) {
      remove(id, chance_.oneIn(2));
    } else {
      use(id);
    }
  }

  /** Mostly by name, since that finds the remains of reports too. */
  std::vector<ReportUuid> choices() {
    return chance_.oneIn(20) ? repository_.getAllReportUuids() : namesIn(place_.root);
  }

  void create() {
    ReportUuid id;
    id.randomize();
    const Maker maker(id);
    journal_.write(Kind::Creating, id.toString(), initialState(id).token());
    meetDoom(chance_);
    const auto report = repository_.createReport(id, maker.app, maker.build, maker.user,
                                                 maker.device, maker.session);
    if (report) {
      journal_.write(Kind::Created, id.toString());
      fill(id);
    } else {
      journal_.write(Kind::NotCreated, id.toString(), lastLine(log_));
    }
  }

  /** Most changes need something to change. */
  void fill(const ReportUuid& id) {
    Session session(repository_, journal_, log_, id);
    if (session.isOpen() && session.lockForWriting(session->acquireWriteLock(true))) {
      change(session, makeUpProperty);
      session.unlock();
    }
  }

  /** Makes some changes. */
  void change(Session& session, MakeUp* makeUp) {
    for (std::size_t left = 1 + chance_.below(8); left > 0; --left) {
      session.change(makeUp, chance_, place_.who + '-' + std::to_string(++number_), place_);
    }
  }

  void remove(const ReportUuid& id, bool force) {
    journal_.write(Kind::Deleting, id.toString());
    meetDoom(chance_);
    const auto deleted = repository_.deleteReport(id, force);
    if (deleted) {
      journal_.write(Kind::Deleted, id.toString());
    } else {
      journal_.write(Kind::NotDeleted, id.toString(), deleted.error().message);
    }
  }

  void use(const ReportUuid& id) {
    {
      Session session(repository_, journal_, log_, id);
      if (session.isOpen()) {
        chance_.oneIn(4) ? read(session) : write(session);
        return;
      }
    }
    if (chance_.oneIn(4)) {
      remove(id, true);  // What does not open is for whoever clears up.
    }
  }

  void read(Session& session) {
    if (!session.lockForReading(chance_.oneIn(2) ? session->acquireReadLock(true)
                                                 : session->waitForAndAquireReadLock(100))) {
      return;
    }
    session.unlock();
    if (chance_.oneIn(3)) {
      // From a read lock, which is lost in between.
      static_cast<void>(session->acquireReadLock(true));
      write(session);
    }
  }

  Report::Result lock(Session& session) {
    switch (chance_.below(4)) {
      case 0:
        return session->acquireWriteLock(false);
      case 1:
        return session->waitForAndAquireWriteLock(static_cast<long>(chance_.below(300)));
      default:
        return session->acquireWriteLock(true);
    }
  }

  void write(Session& session) {
    if (!session.lockForWriting(lock(session))) {
      static_cast<void>(session->releaseLock());
      return;
    }
    change(session, makeUpChange);
    if (chance_.oneIn(20)) {
      session.remove(chance_);
    } else if (chance_.oneIn(4)) {
      journal_.write(Kind::Unlocking, session.id());  // The end of the session releases it.
    } else {
      session.unlock();
    }
  }

  const Place& place_;
  Journal journal_;
  LogCapture log_;
  Chance chance_;
  DiagnosticData repository_;
  std::uint64_t number_ = 0;
};

}  // namespace

int work(const Place& place) {
  mayBeDoomed();
  Worker(place).run();
  return 0;
}

}  // namespace KELP::Test::Soak
