#pragma once

#include "support/logcapture.h"
#include "support/temporarydirectory.h"
#include "unit/diagnostic/disk.h"
#include "unit/diagnostic/resultmatchers.h"
#include "unit/diagnostic/storerecords.h"

#include <diagnostic/diagnosticdata.h>
#include <diagnostic/diagnosticreport.h>
#include <diagnostic/reportuuid.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

namespace KELP::Test {

constexpr const char* kIdText = "0b3ad2a0-5c1e-4a8e-9f57-d2b1c3e4f5a6";
constexpr const char* kOtherIdText = "7f00c0de-1234-4abc-8def-00112233aabb";

/** The lines of path builders on a report of the null identifier. */
constexpr const char* kNullIdLine = "Unable to get report path for report with null UUID";
constexpr const char* kUnknownDirectoryLine =
    "Unable to prepare relative report path for report with unknown report directory";

/** The identifier of a text, which must be one. */
[[nodiscard]] Diagnostic::ReportUuid uuid(const char* text);

/** What a fresh report was created with. */
struct Origin {
  int appId = 11;
  int buildId = 22;
  int userId = -33;
  std::string deviceId = "device-4";
  std::string sessionId = "session-5";
};

/** A root directory of its own, and one report's place below it; the log is captured. */
class ReportTest : public testing::Test {
 public:
  ReportTest();

  using Report = Diagnostic::DiagnosticReport;
  using ReportPtr = std::unique_ptr<Report>;

  /** The report's directory, and files in it. */
  [[nodiscard]] std::filesystem::path dir() const { return root_ / kIdText; }
  [[nodiscard]] std::filesystem::path lockFile() const { return dir() / "lock"; }
  [[nodiscard]] std::filesystem::path metadataFile() const { return dir() / "metadata.db"; }

  /** A new report, made through the repository. */
  [[nodiscard]] ReportPtr create() const { return create(id_); }
  [[nodiscard]] ReportPtr create(const Diagnostic::ReportUuid& id) const;
  /** Another object on the report. */
  [[nodiscard]] ReportPtr open() const;
  /** Makes the report, and lets go of it. */
  void createAndClose() const { EXPECT_NE(create(), nullptr); }

  /** `_create` of this report on an object of the test's own. */
  [[nodiscard]] Report::Result createOn(Report& report) const;

  /** What other objects find in the store, and changes made behind the report's back. */
  [[nodiscard]] std::optional<std::string> stored(const std::string& key) const {
    return storedText(metadataFile(), key);
  }
  void store(const std::string& key, const std::optional<std::string>& text) const {
    storeText(metadataFile(), key, text);
  }
  /** The records that were appended to the store since it had @p before of them. */
  [[nodiscard]] std::vector<StoreRecord> recordsSince(std::size_t before) const;
  [[nodiscard]] std::size_t recordCount() const { return readRecords(metadataFile()).size(); }

  /** Whether another object could take the write lock now. Logs nothing. */
  [[nodiscard]] bool lockIsFree() const;

 protected:
  TemporaryDirectory directory_;
  std::filesystem::path root_ = directory_ / "reports";
  Diagnostic::ReportUuid id_ = uuid(kIdText);
  Diagnostic::DiagnosticData repository_{root_};
  Origin origin_;
  LogCapture log_;
};

}  // namespace KELP::Test
