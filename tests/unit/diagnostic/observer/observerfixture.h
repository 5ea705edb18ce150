#pragma once

#include "unit/diagnostic/observer/eventrecorder.h"
#include "unit/diagnostic/observer/inotifyrecord.h"
#include "unit/diagnostic/observer/kernelwatches.h"
#include "unit/diagnostic/observer/runner.h"
#include "unit/diagnostic/reportfixture.h"
#include "unit/os/fileobserver/watchdog.h"

#include <diagnostic/diagnosticdata.h>
#include <diagnostic/diagnosticdataobserver.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace KELP::Test {

using Diagnostic::DiagnosticDataObserver;
using EventType = DiagnosticDataObserver::EventType;
using Events = std::vector<ReportEvent>;

constexpr std::uint32_t kRootMask = 0x100;
constexpr std::uint32_t kReportMask = 0xf8a;

/** The identifier number @p number of the tests' own. */
[[nodiscard]] std::string idText(int number);

/** The line about a report's watch when the observer is stopped. */
[[nodiscard]] LogLine removalLine(int wd);

/** The lines, sorted: a container without order decides theirs. */
[[nodiscard]] std::vector<std::string> sortedTexts(const std::vector<LogLine>& lines);

/** The events of all reports but those that the fixture makes for itself. */
[[nodiscard]] Events withoutSentinels(Events events);

/**
 * A root that is there, and a stopped observer on it whose events are recorded.
 *
 * Directories of reports are made by hand here: "bare" ones have a metadata file, and nothing else.
 * One that appears under the root by a link is there at once, with all that is in it.
 */
class ObserverTest : public ReportTest {
 public:
  ObserverTest();

  [[nodiscard]] DiagnosticDataObserver& observer() { return *observer_; }

  // Events of this observer.
  [[nodiscard]] ReportEvent event(EventType type, const std::string& id);
  [[nodiscard]] ReportEvent existing(const std::string& id);
  [[nodiscard]] ReportEvent added(const std::string& id);
  [[nodiscard]] ReportEvent updated(const std::string& id);
  [[nodiscard]] ReportEvent removed(const std::string& id);
  /** What a start has to announce: the reports in the order in which the repository lists them. */
  [[nodiscard]] Events existingReports();

  // The disk.
  [[nodiscard]] std::filesystem::path dirOf(const std::string& id) const { return root_ / id; }
  [[nodiscard]] std::filesystem::path metadataOf(const std::string& id) const {
    return dirOf(id) / "metadata.db";
  }
  /** A directory with a metadata file, outside of the root. */
  [[nodiscard]] std::filesystem::path makeBareElsewhere(const std::string& name) const;
  /** A report made by the library, outside of the root. */
  [[nodiscard]] std::filesystem::path makeReportElsewhere(const std::string& id) const;
  /** Makes root / @p name lead to @p target. The root's watch sees a creation. */
  void link(const std::filesystem::path& target, const std::string& name) const;
  /** The same without any event that the observer asks for; also in place of another link. */
  void linkUnseen(const std::filesystem::path& target, const std::string& name) const;
  /** Makes a report by the library, and lets go of it. */
  void makeReport(const std::string& id) const;

  // Delivery.
  /** Waits until all that has happened so far is delivered, and takes the events. */
  [[nodiscard]] Events eventsUntilNow();
  /** Makes @p change while the client is in its callback on the delivering thread, so that nothing
   *  of it is looked at before all of it is done. What the client does with events is then as
   *  @p change has said, or nothing. */
  void whileDelivering(const std::function<void()>& change);
  /** Calls the root's handler with an event made by hand. */
  void tellRoot(std::uint32_t mask, const std::string& name = {});
  /** Calls a report's handler with an event made by hand. */
  void tellReport(const std::string& id, std::uint32_t mask, const std::string& name = {});

  // The kernel.
  /** Whether what @p path leads to is watched as a report. */
  [[nodiscard]] bool isWatched(const std::filesystem::path& path) const;
  /** The descriptors of all watches of reports. */
  [[nodiscard]] std::vector<int> reportWatches() const;
  /** The lines, sorted, that ending all watches of reports causes. */
  [[nodiscard]] std::vector<std::string> removalTexts() const;

 protected:
  /** Ends the observer before the members of the tests' own fixtures, which its client uses. */
  void TearDown() override;

  Watchdog watchdog_{std::chrono::seconds(120), "a test of the report observer"};
  int client_ = 0;  ///< Its address is the user data.
  EventRecorder recorder_;
  std::optional<DiagnosticDataObserver> observer_;
  Resources before_{};  ///< While the observer is stopped.

 private:
  [[nodiscard]] std::string makeSentinel();

  int sentinels_ = 0;
};

}  // namespace KELP::Test
