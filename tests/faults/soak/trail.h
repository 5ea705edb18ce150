#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

namespace KELP::Test::Soak {

/** The place of an entry in the journal, from 1. */
using Moment = std::uint64_t;

/** What the journal says of one report. */
struct Trail {
  // --- Its life ---
  Moment creating = 0;  ///< When somebody was about to create it.
  Moment created = 0;   ///< When that was acknowledged; 0 while it is not.
  Moment deleted = 0;   ///< When a deletion was acknowledged; 0 while none is.
  Moment lastDeleting = 0;
  std::set<std::string> deleters;  ///< Processes that are deleting it.
  /// Since when it may be incomplete, because a deletion was not finished; 0 while it is whole.
  Moment torn = 0;
  /// Who had it open when it was deleted may have made its directory again, for a scratch file or a
  /// copy.
  bool mayBeRemade = false;

  // --- What is done with it ---
  std::map<std::string, Moment> sessions;    ///< Since when each process has it open.
  std::map<std::string, Moment> lastClosed;  ///< When each process closed it last.
  std::string writer;                        ///< Who holds the write lock; empty for none.
  std::set<std::string> readers;
  Moment lastLocked = 0;
  /// Tokens of the states that it may be in; empty when that is not known.
  std::set<std::string> states;
  /// The change that is under way, and what may come of it when its process is killed.
  std::optional<std::vector<std::string>> change;
  Moment changing = 0;
  Moment lastChange = 0;  ///< When the last acknowledged change was begun.

  // --- What the observer told ---
  Moment announced = 0;
  Moment lastEvent = 0;
  bool removalTold = false;
  /// After its removal, since somebody has had it open during a deletion. (It stays so when that
  /// deletion is refused, until another one begins.)
  bool mayBeAnnouncedAgain = false;

  std::deque<std::string> recent;  ///< The last entries, for whoever has to find out.

  /** Whether it is there, as far as the promises go: created, and no deletion begun. */
  [[nodiscard]] bool isAlive() const { return created != 0 && !isDisturbed(); }
  /** Whether a deletion is or was under way, so that anything may be missing. */
  [[nodiscard]] bool isDisturbed() const { return deleted != 0 || torn != 0 || !deleters.empty(); }
  /** Whether it was alive all the time since @p then. */
  [[nodiscard]] bool isAliveSince(Moment then) const {
    return isAlive() && created < then && lastDeleting < then;
  }
  /** Whether the observer has yet to tell that it is gone. */
  [[nodiscard]] bool owesRemoval() const {
    return deleted != 0 && !mayBeRemade && announced != 0 && !removalTold;
  }
};

using Trails = std::unordered_map<std::string, Trail>;

}  // namespace KELP::Test::Soak
