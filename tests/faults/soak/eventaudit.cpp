#include "faults/soak/eventaudit.h"

#include <diagnostic/diagnosticdataobserver.h>

#include <utility>

namespace KELP::Test::Soak {

using EventType = Diagnostic::DiagnosticDataObserver::EventType;

EventAudit::EventAudit(Trails& trails, Complain complain)
    : trails_(trails), complain_(std::move(complain)) {}

void EventAudit::creating(const std::string& id) {
  std::vector<Demand>& demands = demands_[id];
  for (const auto& [other, trail] : trails_) {
    if (trail.isAlive()) {
      demands.push_back({other, false, trail.lastChange});
    } else if (trail.owesRemoval()) {
      demands.push_back({other, true, 0});
    }
  }
}

void EventAudit::told(const std::string& id, int type, Moment now) {
  const auto found = trails_.find(id);
  if (found == trails_.end()) {
    complain_(id, "the observer tells of a report that never was, or is long gone");
    return;
  }
  Trail& trail = found->second;
  const bool isKnown = trail.announced != 0 && !trail.removalTold;
  switch (static_cast<EventType>(type)) {
    case EventType::REPORT_EXISTING:
      complain_(id, "the observer found a report before there was any");
      break;
    case EventType::REPORT_ADDED:
      announced(id, trail, now);
      break;
    case EventType::REPORT_UPDATED:
      if (!isKnown) complain_(id, "an update of a report that is not known");
      break;
    case EventType::REPORT_REMOVED:
      if (!isKnown) complain_(id, "the removal of a report that is not known");
      if (!trail.isDisturbed()) complain_(id, "the removal of a report that nobody deleted");
      trail.removalTold = true;
      break;
  }
  trail.lastEvent = now;
}

void EventAudit::announced(const std::string& id, Trail& trail, Moment now) {
  if (trail.announced != 0 && !(trail.removalTold && trail.mayBeAnnouncedAgain)) {
    complain_(id, "a report is announced twice");
  }
  trail.announced = now;
  trail.removalTold = false;
  meet(id, now);
}

bool EventAudit::isMet(const Demand& demand) const {
  const auto found = trails_.find(demand.id);
  if (found == trails_.end()) {
    return true;  // Long gone, which was told.
  }
  const Trail& trail = found->second;
  if (demand.isRemoval) {
    return !trail.owesRemoval();
  }
  // A deletion that was begun since takes away what there was to tell.
  return trail.isDisturbed() || (trail.announced != 0 && trail.lastEvent > demand.since);
}

void EventAudit::meet(const std::string& id, Moment now) {
  const auto found = demands_.find(id);
  if (found == demands_.end()) {
    return;
  }
  const Moment created = trails_.at(id).creating;
  std::vector<Late> still;
  for (Late& late : lacking_) {
    if (isMet(late.demand)) continue;
    if (late.since < created) {
      complain_(late.demand.id, late.demand.isRemoval ? "a removal is never told"
                                                      : "an addition or an update is never told");
    } else {
      still.push_back(std::move(late));
    }
  }
  lacking_ = std::move(still);
  for (Demand& demand : found->second) {
    ++checks_;
    if (!isMet(demand)) {
      ++late_;
      lacking_.push_back({std::move(demand), now});
    }
  }
  demands_.erase(found);
}

}  // namespace KELP::Test::Soak
