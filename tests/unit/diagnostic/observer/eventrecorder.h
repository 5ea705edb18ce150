#pragma once

#include <diagnostic/diagnosticdataobserver.h>

#include <condition_variable>
#include <cstddef>
#include <functional>
#include <mutex>
#include <ostream>
#include <string>
#include <vector>

namespace KELP::Test {

/** One call of an observer's client. */
struct ReportEvent {
  std::string id;
  int type;
  void* userData;

  bool operator==(const ReportEvent&) const = default;
};

std::ostream& operator<<(std::ostream& out, const ReportEvent& event);

/** An observer's client, which remembers what it is told. Any thread may use it. */
class EventRecorder {
 public:
  using Action = std::function<void(const ReportEvent&)>;

  /** What to give to the observer. The recorder must outlive it. */
  [[nodiscard]] Diagnostic::DiagnosticDataObserver::Callback callback();

  /** Called inside the client's callback with each event, after it was recorded; with nothing of
   *  the recorder locked. */
  void onEach(Action action);

  /** The events so far, oldest first. */
  [[nodiscard]] std::vector<ReportEvent> all() const;
  /** The events so far, which are then forgotten. */
  [[nodiscard]] std::vector<ReportEvent> take();
  /** Waits until there are @p count events, and returns all. Throws when that takes too long. */
  std::vector<ReportEvent> waitFor(std::size_t count) const;
  /** Waits for an event. Throws when that takes too long. */
  void waitFor(const ReportEvent& event) const;

 private:
  template <typename Condition>
  void waitUntil(std::unique_lock<std::mutex>& lock, const Condition& condition) const;

  mutable std::mutex mutex_;
  mutable std::condition_variable arrived_;
  std::vector<ReportEvent> events_;
  Action action_;
};

}  // namespace KELP::Test
