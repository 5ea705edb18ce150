#include "integration/observer/recorder.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace KELP::Diagnostic {

void PrintTo(DiagnosticDataObserver::EventType type, std::ostream* out) {
  constexpr std::array<const char*, 4> kNames{"EXISTING", "ADDED", "UPDATED", "REMOVED"};
  *out << kNames.at(static_cast<std::size_t>(type));
}

}  // namespace KELP::Diagnostic

namespace KELP::Test {
namespace {

/** When to give up what is waited for. By the system's clock, since the thread sanitizer knows no
 *  wait by the steady one. */
std::chrono::system_clock::time_point limit() {
  return std::chrono::system_clock::now() + std::chrono::seconds(60);
}

std::string textOf(const Announcement& announcement) {
  std::ostringstream text;
  text << announcement;
  return text.str();
}

}  // namespace

std::ostream& operator<<(std::ostream& out, const Announcement& announcement) {
  PrintTo(announcement.type, &out);
  return out << ' ' << announcement.id;
}

std::vector<EventType> typesOf(const std::string& id, const Announcements& all) {
  std::vector<EventType> types;
  for (const Announcement& announcement : all) {
    if (announcement.id == id) {
      types.push_back(announcement.type);
    }
  }
  return types;
}

std::map<std::string, int> countsOf(EventType type, const Announcements& all) {
  std::map<std::string, int> counts;
  for (const Announcement& announcement : all) {
    if (announcement.type == type) {
      ++counts[announcement.id];
    }
  }
  return counts;
}

Diagnostic::DiagnosticDataObserver::Callback Recorder::callback() {
  return [this](const Diagnostic::ReportUuid& uuid, EventType type, void*) { receive(uuid, type); };
}

void Recorder::setHook(Hook hook) {
  const std::lock_guard lock(mutex_);
  hook_ = std::move(hook);
}

Ids Recorder::believed() const {
  const std::lock_guard lock(mutex_);
  return believed_;
}

std::vector<std::string> Recorder::contradictions() const {
  const std::lock_guard lock(mutex_);
  return contradictions_;
}

Announcements Recorder::take() {
  const std::lock_guard lock(mutex_);
  return std::exchange(announcements_, {});
}

Announcements Recorder::takeUntil(const Announcement& awaited) {
  std::unique_lock lock(mutex_);
  const auto place = [&] { return std::ranges::find(announcements_, awaited); };
  if (!arrival_.wait_until(lock, limit(), [&] { return place() != announcements_.end(); })) {
    throw std::runtime_error("never announced: " + textOf(awaited));
  }
  const auto found = place();
  Announcements before(announcements_.begin(), found);
  announcements_.erase(announcements_.begin(), std::next(found));
  return before;
}

void Recorder::disbelieve() {
  const std::lock_guard lock(mutex_);
  believed_.clear();
}

void Recorder::receive(const Diagnostic::ReportUuid& uuid, EventType type) {
  const Announcement announcement{uuid.toString(), type};
  Hook hook;
  {
    const std::lock_guard lock(mutex_);
    believe(announcement);
    announcements_.push_back(announcement);
    hook = hook_;
  }
  arrival_.notify_all();
  if (hook) {
    hook(announcement.id, type);
  }
}

void Recorder::believe(const Announcement& announcement) {
  const bool isBegin = announcement.type == EventType::REPORT_EXISTING ||
                       announcement.type == EventType::REPORT_ADDED;
  if (believed_.contains(announcement.id) == isBegin) {
    contradictions_.push_back(textOf(announcement));
  }
  if (isBegin) {
    believed_.insert(announcement.id);
  } else if (announcement.type == EventType::REPORT_REMOVED) {
    believed_.erase(announcement.id);
  }
}

}  // namespace KELP::Test
