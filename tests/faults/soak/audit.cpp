#include "faults/soak/audit.h"

#include <algorithm>
#include <iterator>
#include <set>
#include <string_view>
#include <utility>

namespace KELP::Test::Soak {
namespace {

namespace fs = std::filesystem;

/** It changes files alone, of which the observer does not tell. */
constexpr std::string_view kSilentChange = "purgeReportTemporaryFiles";
constexpr std::size_t kRecentEntries = 40;
constexpr std::size_t kManyViolations = 20;
/** What happened so long ago is over. */
constexpr Moment kLongAgo = 100000;

/** The part of a token that stands for the metadata. */
std::string_view metadataOf(std::string_view token) {
  return token.substr(0, token.find('.'));
}

/** Reasons why a report cannot be opened, as the log gives them. */
bool isReasonNotToOpen(const std::string& text) {
  constexpr std::string_view kReasons[] = {
      "Lock file ", "Metadata file ", "Failed to open lock file for existing report",
      "Failed to initialize metadata kv store for report", "Report id mismatch"};
  return std::ranges::any_of(kReasons,
                             [&](std::string_view reason) { return text.starts_with(reason); });
}

bool isReasonNotToLock(const std::string& text) {
  return text == "Failed acquire write lock for report" ||
         text == "Failed acquire read lock for report";
}

/** A line of the log without the path or the identifiers that are in it. */
std::string withoutPlace(const std::string& line) {
  return line.substr(0, std::min(line.find(" /"), line.find(": expected")));
}

}  // namespace

Audit::Audit(fs::path root)
    : root_(std::move(root)),
      events_(trails_,
              [this](const std::string& id, const std::string& what) { complain(id, what); }) {}

void Audit::complain(const std::string& id, const std::string& what) {
  ++complaints_;
  if (violations_.size() >= kManyViolations) {
    return;
  }
  std::string text = std::to_string(now_) + ' ' + id + ": " + what;
  if (const auto found = trails_.find(id); found != trails_.end()) {
    for (const std::string& entry : found->second.recent) {
      text += "\n    " + entry;
    }
  }
  violations_.push_back(std::move(text));
}

void Audit::take(const Entry& entry) {
  ++now_;
  count(entry);
  if (const auto found = presumedEnded_.find(entry.who);
      found != presumedEnded_.end() && entry.kind != Kind::Ended) {
    complain(found->second, entry.who + " had a lock that somebody else got");
    presumedEnded_.erase(found);
  }
  switch (entry.kind) {
    case Kind::Violation:
      complain(entry.id, entry.text);
      break;
    case Kind::Ended:
      ended(entry.who);
      break;
    case Kind::Listing:
    case Kind::Counting:
      begun_[entry.who] = now_;
      break;
    case Kind::Listed:
      listed(entry);
      break;
    case Kind::Counted:
      counted(entry);
      break;
    case Kind::Creating:
      creating(entry);
      break;
    default:
      takeOfReport(entry);
      break;
  }
  if (now_ % kLongAgo == 0) {
    forgetOld();
  }
}

void Audit::creating(const Entry& entry) {
  events_.creating(entry.id);
  Trail& trail = trails_[entry.id];
  trail.creating = now_;
  trail.states = {entry.text};
  trail.sessions[entry.who] = now_;
}

/** What somebody does with a report that was created before. */
void Audit::takeOfReport(const Entry& entry) {
  const auto found = trails_.find(entry.id);
  if (found == trails_.end()) {
    // Who has read the directory before, and was held up for long, may ask for what is gone.
    if (entry.kind == Kind::Opened || entry.kind == Kind::Event) {
      complain(entry.id, "a report that is gone, or never was");
    }
    return;
  }
  Trail& trail = found->second;
  trail.recent.push_back(std::to_string(now_) + ' ' + entry.who + ' ' +
                         static_cast<char>(entry.kind) + ' ' + entry.text);
  if (trail.recent.size() > kRecentEntries) {
    trail.recent.pop_front();
  }
  takeSession(entry, trail);
  takeChange(entry, trail);
  takeRepository(entry, trail);
}

// --- Sessions ---

void Audit::takeSession(const Entry& entry, Trail& trail) {
  switch (entry.kind) {
    case Kind::Opening:
      trail.sessions[entry.who] = now_;
      break;
    case Kind::Opened:
      opened(entry, trail);
      break;
    case Kind::NotOpened:
      ++checks_;
      if (!isReasonNotToOpen(entry.text) || trail.isAliveSince(trail.sessions[entry.who])) {
        complain(entry.id, "does not open: " + entry.text);
      }
      break;
    case Kind::LockRefused:
      if (!isReasonNotToLock(entry.text)) {
        complain(entry.id, "is not locked: " + entry.text);
      }
      break;
    case Kind::LockAwaited:
      // Among many who wait, who only asks now and then may wait for long.
      if (!trail.isDisturbed() && trail.writer.empty() && trail.readers.empty() &&
          trail.lastLocked < trail.sessions[entry.who]) {
        complain(entry.id, "is locked by nobody");
      }
      break;
    case Kind::WriteLocked:
    case Kind::ReadLocked:
      locked(entry, trail);
      break;
    case Kind::Unlocking:
      unlocked(entry.who, trail);
      break;
    case Kind::Closed:
      closed(entry.who, trail);
      break;
    default:
      break;
  }
}

void Audit::opened(const Entry& entry, Trail& trail) {
  ++checks_;
  if (trail.deleted != 0 && trail.sessions[entry.who] > trail.deleted) {
    complain(entry.id, "opens after its deletion was acknowledged");
  }
}

void Audit::locked(const Entry& entry, Trail& trail) {
  ++checks_;
  trail.lastLocked = now_;
  const bool isWriter = entry.kind == Kind::WriteLocked;
  if (!trail.writer.empty()) {
    presumeEnded(trail.writer, entry.id, trail);
  }
  if (isWriter) {
    for (const std::string& reader : std::set(trail.readers)) {
      presumeEnded(reader, entry.id, trail);
    }
    trail.writer = entry.who;
  } else {
    trail.readers.insert(entry.who);
  }
  seen(entry, trail);
}

/** Somebody else got the lock that @p who has not given up. So @p who was killed, and that is only
 * not said yet; or else will say something more, and the lock is none. */
void Audit::presumeEnded(const std::string& who, const std::string& id, Trail& trail) {
  if (!trail.isDisturbed()) {
    presumedEnded_[who] = id;
  }
  leaveChange(who, trail);
  unlocked(who, trail);
}

/** The change that @p who was making is now done or not. */
void Audit::leaveChange(const std::string& who, Trail& trail) {
  if (trail.change && trail.writer == who) {
    trail.states = {trail.change->begin(), trail.change->end()};
    trail.change.reset();
  }
}

/** Somebody who holds a lock has found the report in a state. */
void Audit::seen(const Entry& entry, Trail& trail) {
  const auto words = entry.words();
  const std::string& token = words.at(0);
  if (!trail.deleters.empty() || trail.deleted != 0) {
    if (!trail.states.contains(token)) {
      trail.states.clear();
    }
    return;
  }
  if (trail.torn != 0) {
    // Who has had it open since before may hold a lock and a store that are gone.
    const bool isOld = std::ranges::any_of(
        trail.sessions, [&](const auto& session) { return session.second <= trail.torn; });
    const auto isSame = [&](const std::string& state) {
      return metadataOf(state) == metadataOf(token);
    };
    if (isOld) {
      trail.states.clear();
      return;
    }
    if (trail.created != 0 && !trail.states.empty() && std::ranges::none_of(trail.states, isSame)) {
      complain(entry.id, "lost a change though its deletion was cut short");
    }
  } else if (!trail.states.empty() && !trail.states.contains(token) &&
             (trail.created != 0 || words.at(1) != "beginning")) {
    complain(entry.id, "is in a state that nobody left: " + token);
  }
  ++checks_;
  trail.states = {token};
}

void Audit::unlocked(const std::string& who, Trail& trail) {
  trail.readers.erase(who);
  if (trail.writer == who) {
    trail.writer.clear();
    trail.change.reset();
  }
}

void Audit::closed(const std::string& who, Trail& trail) {
  unlocked(who, trail);
  if (trail.sessions.erase(who) != 0) {
    trail.lastClosed[who] = now_;
  }
}

// --- Changes ---

void Audit::takeChange(const Entry& entry, Trail& trail) {
  const bool isKnown = !trail.isDisturbed();
  switch (entry.kind) {
    case Kind::Changing: {
      const auto words = entry.words();
      if (isKnown && !trail.states.empty() && !trail.states.contains(words.at(1))) {
        complain(entry.id, "was changed by somebody who had no lock");
      }
      trail.change.emplace(words.begin() + 1, words.end());
      trail.changing = now_;
      break;
    }
    case Kind::Changed:
      changed(trail, 1);
      if (entry.text != kSilentChange) {
        trail.lastChange = trail.changing;
      }
      break;
    case Kind::Refused:
      changed(trail, 0);
      break;
    case Kind::NotAsExpected:
      if (isKnown) complain(entry.id, entry.text);
      trail.states.clear();
      trail.change.reset();
      break;
    default:
      break;
  }
}

/** The change that was under way has ended. @param outcome which of its states is there now. */
void Audit::changed(Trail& trail, std::size_t outcome) {
  ++checks_;
  trail.states.clear();
  if (trail.change) {
    trail.states = {trail.change->at(outcome)};
  }
  trail.change.reset();
}

// --- The repository ---

void Audit::takeRepository(const Entry& entry, Trail& trail) {
  switch (entry.kind) {
    case Kind::Created:
      ++checks_;
      trail.created = now_;
      trail.sessions.erase(entry.who);
      break;
    case Kind::NotCreated:
      if (!trail.isDisturbed()) complain(entry.id, "is not created: " + entry.text);
      trail.torn = now_;
      trail.sessions.erase(entry.who);
      break;
    case Kind::Deleting:
      begun_[entry.who] = now_;
      trail.mayBeAnnouncedAgain &= trail.isDisturbed();
      trail.lastDeleting = now_;
      trail.deleters.insert(entry.who);
      break;
    case Kind::Deleted:
      deleted(entry, trail);
      break;
    case Kind::NotDeleted:
      notDeleted(entry, trail);
      break;
    case Kind::Event:
      lookForUsersOf(trail);
      events_.told(entry.id, std::stoi(entry.text), now_);
      break;
    default:
      break;
  }
}

void Audit::deleted(const Entry& entry, Trail& trail) {
  lookForUsersOf(trail);
  trail.deleters.erase(entry.who);
  if (trail.deleted == 0) {
    trail.deleted = now_;
  }
  trail.torn = 0;
  trail.writer.clear();
  trail.readers.clear();
  trail.change.reset();
  trail.mayBeRemade = wasOpenMeanwhile(entry.who, trail);
}

/** Whether somebody else has had the report open while @p who was deleting it. */
bool Audit::wasOpenMeanwhile(const std::string& who, const Trail& trail) const {
  const auto isOther = [&](const auto& session) { return session.first != who; };
  const auto isMeanwhile = [&](const auto& session) {
    return isOther(session) && session.second > begun_.at(who);
  };
  return std::ranges::any_of(trail.sessions, isOther) ||
         std::ranges::any_of(trail.lastClosed, isMeanwhile);
}

/** Looks whether somebody has had the report open while those who are deleting it now do so. */
void Audit::lookForUsersOf(Trail& trail) const {
  trail.mayBeAnnouncedAgain |= std::ranges::any_of(
      trail.deleters, [&](const std::string& deleter) { return wasOpenMeanwhile(deleter, trail); });
}

void Audit::notDeleted(const Entry& entry, Trail& trail) {
  lookForUsersOf(trail);
  trail.deleters.erase(entry.who);
  ++checks_;
  if (entry.text == "Unable to acquire write lock on report") {
    return;  // Nothing was done.
  }
  constexpr std::string_view kNotOpened[] = {"Lock file does not exist for diagnostic report",
                                             "Metadata file does not exist for diagnostic report",
                                             "Failed to open lock file for existing report",
                                             "Failed to initialize metadata kv store for report",
                                             "Report id mismatch"};
  if (std::ranges::count(kNotOpened, entry.text) != 0) {
    if (trail.isAlive() && trail.created < begun_[entry.who] &&
        trail.lastDeleting <= begun_[entry.who]) {
      complain(entry.id, "does not open to be deleted: " + entry.text);
    }
    return;
  }
  // Somebody who still had it open may have made its directory again.
  if (entry.text != "Failed to force remove report directory" ||
      !wasOpenMeanwhile(entry.who, trail)) {
    complain(entry.id, "is not deleted: " + entry.text);
  }
  trail.torn = now_;
}

/** A process is gone: what it had begun is now done or not. */
void Audit::ended(const std::string& who) {
  for (auto& [id, trail] : trails_) {
    lookForUsersOf(trail);
    leaveChange(who, trail);
    closed(who, trail);
    if (trail.deleters.erase(who) != 0 && trail.deleted == 0) {
      trail.torn = now_;
    }
  }
  begun_.erase(who);
  presumedEnded_.erase(who);
}

// --- Lists ---

bool Audit::wasAliveSince(const Trail& trail, const std::string& who) const {
  return trail.isAliveSince(begun_.at(who));
}

void Audit::listed(const Entry& entry) {
  const auto words = entry.words();
  const std::set<std::string> ids(words.begin(), words.end());
  for (const auto& [id, trail] : trails_) {
    if (wasAliveSince(trail, entry.who) && !ids.contains(id)) {
      complain(id, "is not listed");
    }
    if (trail.deleted != 0 && trail.deleted < begun_[entry.who] && ids.contains(id)) {
      complain(id, "is listed after its deletion");
    }
  }
  for (const std::string& id : ids) {
    ++checks_;
    if (!trails_.contains(id)) {
      complain(id, "is listed, and never was, or is long gone");
    }
  }
}

void Audit::counted(const Entry& entry) {
  const auto isThere = [&](const auto& item) { return wasAliveSince(item.second, entry.who); };
  const auto mayBeThere = [&](const auto& item) {
    const Trail& trail = item.second;
    return trail.deleted == 0 || trail.deleted > begun_[entry.who] || trail.mayBeRemade;
  };
  ++checks_;
  const auto number = std::stol(entry.text);
  if (number < std::ranges::count_if(trails_, isThere) ||
      number > std::ranges::count_if(trails_, mayBeThere)) {
    complain("-", "there cannot be " + entry.text + " reports");
  }
}

// --- What is on disk ---

void Audit::lookForRemains() {
  for (const auto& [id, trail] : trails_) {
    std::error_code ignored;
    if (trail.deleted != 0 && !trail.mayBeRemade && trail.deleters.empty() &&
        fs::exists(root_ / id, ignored)) {
      complain(id, "is there after its deletion");
    }
  }
}

void Audit::forgetOld() {
  std::erase_if(trails_, [&](const auto& item) {
    const Trail& trail = item.second;
    return trail.deleted != 0 && trail.deleted + kLongAgo < now_ && trail.sessions.empty() &&
           trail.deleters.empty() && (trail.announced == 0 || trail.removalTold) &&
           !fs::exists(root_ / item.first);
  });
}

std::vector<std::string> Audit::untold() const {
  std::vector<std::string> ids;
  for (const auto& [id, trail] : trails_) {
    const bool lacksEvent =
        trail.isAlive() && (trail.announced == 0 || trail.lastEvent < trail.lastChange);
    if (trail.owesRemoval() || lacksEvent) {
      ids.push_back(id);
    }
  }
  return ids;
}

// --- The summary ---

void Audit::count(const Entry& entry) {
  switch (entry.kind) {
    case Kind::Changed:
      ++counts_["changes"][entry.text];
      break;
    case Kind::Refused:
    case Kind::LockRefused:
    case Kind::NotDeleted:
      ++counts_["refusals"][entry.text];
      break;
    case Kind::NotOpened:
    case Kind::NotCreated:
      ++counts_["refusals"][withoutPlace(entry.text)];
      break;
    case Kind::Event: {
      const char* const names[] = {"existing", "added", "updated", "removed"};
      ++counts_["events"][names[std::stoul(entry.text) % std::size(names)]];
      break;
    }
    case Kind::Opened:
      ++counts_["sessions"]["opened"];
      break;
    case Kind::ReadLocked:
      ++counts_["sessions"]["locked for reading"];
      break;
    case Kind::WriteLocked:
      ++counts_["sessions"]["locked for writing"];
      break;
    case Kind::Created:
      ++counts_["repository"]["created"];
      break;
    case Kind::Deleted:
      ++counts_["repository"]["deleted"];
      break;
    case Kind::Listed:
      ++counts_["repository"]["listed"];
      break;
    default:
      break;
  }
}

void Audit::summarize(std::ostream& out) const {
  for (const auto& [group, counts] : counts_) {
    out << group << ":\n";
    for (const auto& [name, number] : counts) {
      out << "  " << number << ' ' << name << '\n';
    }
  }
  out << "violations: " << complaints_ << '\n'
      << "entries: " << now_ << '\n'
      << "checks: " << checks_ << ", and " << events_.checks() << " of events, of which "
      << events_.late() << " were late\n";
}

}  // namespace KELP::Test::Soak
