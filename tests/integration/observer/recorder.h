#pragma once

#include <diagnostic/diagnosticdataobserver.h>
#include <diagnostic/reportuuid.h>

#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <ostream>
#include <set>
#include <string>
#include <vector>

namespace KELP::Diagnostic {

/** Lets a failed assertion name an event. */
void PrintTo(DiagnosticDataObserver::EventType type, std::ostream* out);

}  // namespace KELP::Diagnostic

namespace KELP::Test {

using EventType = Diagnostic::DiagnosticDataObserver::EventType;

/** What a client was told about one report. */
struct Announcement {
  std::string id;
  EventType type;

  bool operator==(const Announcement&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Announcement& announcement);

using Announcements = std::vector<Announcement>;
using Ids = std::set<std::string>;

/** The types of what was told about @p id, in order. */
[[nodiscard]] std::vector<EventType> typesOf(const std::string& id, const Announcements& all);
/** How often each report was told to have had the event @p type. */
[[nodiscard]] std::map<std::string, int> countsOf(EventType type, const Announcements& all);

/**
 * The client of an observer: keeps what it is told, and what it must believe to be there.
 *
 * What cannot follow from what was told before is kept as a contradiction: a report that is there
 * and is announced as new, or one that is not and is announced as changed or removed.
 */
class Recorder {
 public:
  /** Called with each announcement after it was kept, on the thread that announces. */
  using Hook = std::function<void(const std::string& id, EventType type)>;

  /** What an observer is to call. Refers to this object. */
  [[nodiscard]] Diagnostic::DiagnosticDataObserver::Callback callback();

  /** For all later announcements; an empty one does nothing. */
  void setHook(Hook hook);

  /** The reports that are there by all that was told. */
  [[nodiscard]] Ids believed() const;
  [[nodiscard]] std::vector<std::string> contradictions() const;

  /** The announcements so far, oldest first, which are then forgotten; not so what is believed. */
  [[nodiscard]] Announcements take();
  /** Waits for an announcement, and takes those up to it, without it. Throws when it does not come
   * in time. */
  [[nodiscard]] Announcements takeUntil(const Announcement& awaited);

  /** Believes nothing any more, as is right when the observer was stopped. */
  void disbelieve();

 private:
  void receive(const Diagnostic::ReportUuid& uuid, EventType type);
  void believe(const Announcement& announcement);

  mutable std::mutex mutex_;
  std::condition_variable arrival_;
  Hook hook_;
  Announcements announcements_;
  Ids believed_;
  std::vector<std::string> contradictions_;
};

}  // namespace KELP::Test
