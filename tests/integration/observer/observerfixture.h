#pragma once

#include "integration/observer/recorder.h"
#include "support/logcapture.h"
#include "support/temporarydirectory.h"
#include "unit/os/fileobserver/watchdog.h"

#include <diagnostic/diagnosticdata.h>
#include <diagnostic/diagnosticdataobserver.h>

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace KELP::Test {

/** The text of a report's identifier, another one for each number. */
[[nodiscard]] std::string idText(int number);

/** Identifiers, separated by spaces as producers take them. */
[[nodiscard]] std::string joined(const std::vector<std::string>& ids);

/**
 * A root directory of its own, and the client of an observer. One report is there from the
 * beginning: the sentinel, which a test changes to learn what was announced before.
 */
class ObserverTest : public testing::Test {
 protected:
  using Observer = Diagnostic::DiagnosticDataObserver;

  /** @param parent where the root is to be; by default, a directory like that of other tests. */
  explicit ObserverTest(const std::optional<std::filesystem::path>& parent = {});
  /** What the client was told must have been free of contradictions in every test. */
  void TearDown() override;

  /** An observer of the root that tells the recorder. */
  [[nodiscard]] std::unique_ptr<Observer> makeObserver();

  [[nodiscard]] std::filesystem::path directoryOf(const std::string& id) const {
    return root_ / id;
  }
  /** The reports that are there by what is on disk: the directories with a metadata store. */
  [[nodiscard]] Ids reportsOnDisk() const;

  /** Writes the metadata of a report, in this process. */
  void touch(const std::string& id) const;
  void touchSentinel() const { touch(sentinel_); }

  /** All that was announced and not yet taken of what has happened up to now, without what is told
   *  of the sentinel for this. An observer must be started. */
  [[nodiscard]] Announcements takeAll();

  /** Below the time that a test may take, so that a deadlock has a name. */
  const Watchdog watchdog_{std::chrono::seconds(200), "a test of an observer"};
  const TemporaryDirectory directory_;
  const std::filesystem::path root_;
  const std::shared_ptr<Diagnostic::DiagnosticData> repository_ =
      std::make_shared<Diagnostic::DiagnosticData>(root_);
  std::string sentinel_ = "5e7e1e15-0000-4000-8000-000000000000";
  Recorder recorder_;
  LogCapture log_;
};

}  // namespace KELP::Test
