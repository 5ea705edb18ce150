#pragma once

#include "faults/soak/eventaudit.h"
#include "faults/soak/journal.h"
#include "faults/soak/trail.h"

#include <filesystem>
#include <map>
#include <ostream>
#include <string>
#include <vector>

namespace KELP::Test::Soak {

/**
 * Decides from the journal whether a promise was broken.
 *
 * The state of each report is a chain. Who holds the write lock says what the report is in, what he
 * is about to make of it, and that it was done. So whoever holds a lock next must find what the
 * last one has acknowledged; or, when that one was killed, what he found or was about to make,
 * wholly. Nothing is demanded of a report while and after it is deleted, but that it cannot be
 * opened once that is acknowledged.
 */
class Audit {
 public:
  explicit Audit(std::filesystem::path root);

  void take(const Entry& entry);
  /** Somebody has found that a promise was broken. */
  void complain(const std::string& id, const std::string& what);

  /** Reports of which the observer has yet to tell something. */
  [[nodiscard]] std::vector<std::string> untold() const;

  /** Reports whose deletion was acknowledged are really gone. To be called when all was taken. */
  void lookForRemains();

  [[nodiscard]] const std::vector<std::string>& violations() const { return violations_; }
  void summarize(std::ostream& out) const;

 private:
  void count(const Entry& entry);

  void creating(const Entry& entry);
  void takeOfReport(const Entry& entry);
  void takeSession(const Entry& entry, Trail& trail);
  void takeChange(const Entry& entry, Trail& trail);
  void takeRepository(const Entry& entry, Trail& trail);
  void opened(const Entry& entry, Trail& trail);
  void locked(const Entry& entry, Trail& trail);
  void presumeEnded(const std::string& who, const std::string& id, Trail& trail);
  static void leaveChange(const std::string& who, Trail& trail);
  void seen(const Entry& entry, Trail& trail);
  void closed(const std::string& who, Trail& trail);
  void changed(Trail& trail, std::size_t outcome);
  void unlocked(const std::string& who, Trail& trail);
  void deleted(const Entry& entry, Trail& trail);
  [[nodiscard]] bool wasOpenMeanwhile(const std::string& who, const Trail& trail) const;
  void lookForUsersOf(Trail& trail) const;
  void notDeleted(const Entry& entry, Trail& trail);
  void ended(const std::string& who);
  void listed(const Entry& entry);
  void counted(const Entry& entry);
  void forgetOld();

  [[nodiscard]] bool wasAliveSince(const Trail& trail, const std::string& who) const;

  std::filesystem::path root_;
  Moment now_ = 0;
  Trails trails_;
  EventAudit events_;
  std::map<std::string, Moment>
      begun_;  ///< What each process last began: to delete, list or count.
  std::map<std::string, std::string> presumedEnded_;  ///< Processes, and the report that tells it.
  std::map<std::string, std::map<std::string, std::uint64_t>> counts_;
  std::uint64_t checks_ = 0;
  std::uint64_t complaints_ = 0;
  std::vector<std::string> violations_;
};

}  // namespace KELP::Test::Soak
