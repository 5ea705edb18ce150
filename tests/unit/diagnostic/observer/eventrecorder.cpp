#include "unit/diagnostic/observer/eventrecorder.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <stdexcept>
#include <utility>

namespace KELP::Test {
namespace {

using Diagnostic::DiagnosticDataObserver;
using Diagnostic::ReportUuid;

constexpr std::chrono::seconds kLimit{30};

}  // namespace

std::ostream& operator<<(std::ostream& out, const ReportEvent& event) {
  constexpr std::array<const char*, 4> kNames{"EXISTING", "ADDED", "UPDATED", "REMOVED"};
  const auto type = static_cast<std::size_t>(event.type);
  return out << (type < kNames.size() ? kNames[type] : "UNKNOWN") << '(' << event.type << ") "
             << event.id << " with " << event.userData;
}

DiagnosticDataObserver::Callback EventRecorder::callback() {
  return [this](const ReportUuid& id, DiagnosticDataObserver::EventType type, void* userData) {
    const ReportEvent event{id.toString(), static_cast<int>(type), userData};
    Action action;
    {
      const std::lock_guard lock(mutex_);
      events_.push_back(event);
      action = action_;
    }
    arrived_.notify_all();
    if (action) {
      action(event);
    }
  };
}

void EventRecorder::onEach(Action action) {
  const std::lock_guard lock(mutex_);
  action_ = std::move(action);
}

std::vector<ReportEvent> EventRecorder::all() const {
  const std::lock_guard lock(mutex_);
  return events_;
}

std::vector<ReportEvent> EventRecorder::take() {
  const std::lock_guard lock(mutex_);
  return std::exchange(events_, {});
}

template <typename Condition>
void EventRecorder::waitUntil(std::unique_lock<std::mutex>& lock,
                              const Condition& condition) const {
  // To a time of the system's clock: the thread sanitizer knows no wait by the steady one.
  if (!arrived_.wait_until(lock, std::chrono::system_clock::now() + kLimit, condition)) {
    throw std::runtime_error("an event did not come");
  }
}

std::vector<ReportEvent> EventRecorder::waitFor(std::size_t count) const {
  std::unique_lock lock(mutex_);
  waitUntil(lock, [&] { return events_.size() >= count; });
  return events_;
}

void EventRecorder::waitFor(const ReportEvent& event) const {
  std::unique_lock lock(mutex_);
  waitUntil(lock,
            [&] { return std::find(events_.begin(), events_.end(), event) != events_.end(); });
}

}  // namespace KELP::Test
