#pragma once

#include <diagnostic/diagnosticreport.h>
#include <diagnostic/reportcontentproperties.h>
#include <diagnostic/reportuuid.h>

#include <array>
#include <cstddef>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace KELP::Test::Soak {

using Report = Diagnostic::DiagnosticReport;
using Property = Diagnostic::DiagnosticReportContentProperties;
using Variation = Diagnostic::DiagnosticReportContentVariations;
using Type = Diagnostic::DiagnosticReportContentPropertyTypes;

/** Who made a report, all of which follows from its identifier: so no value of another report
 * passes. */
struct Maker {
  explicit Maker(const Diagnostic::ReportUuid& id);

  int app;
  int build;
  int user;
  std::string device;
  std::string session;
};

/** The stages of a report, in the order of their flags. */
enum class Stage : std::size_t { Creation, Interaction, Collection, Policy, Upload, Count };

/** Everything that a report's queries tell, but the times. */
struct ReportState {
  std::optional<int> app;
  std::optional<int> build;
  std::optional<int> user;
  std::optional<std::string> device;
  std::optional<std::string> session;
  int consent = 0;
  int maxConsent = 0;
  std::array<bool, static_cast<std::size_t>(Stage::Count)> stages{};
  std::optional<std::string> description;
  std::optional<int> pid;
  std::optional<std::string> processName;
  std::optional<std::vector<std::string>> libraries;
  std::optional<std::vector<Property>> contents;
  /// What is in the file of each variation that has one, as describeFile() says it.
  std::map<std::pair<std::string, int>, std::string> files;

  [[nodiscard]] bool is(Stage stage) const { return stages.at(static_cast<std::size_t>(stage)); }
  /** The values, in full. */
  [[nodiscard]] std::string metadataText() const;
  [[nodiscard]] std::string filesText() const;
  /** A short word that no other state has: that of the metadata, a point, and that of the files. */
  [[nodiscard]] std::string token() const;
};

/** What a report says now. */
[[nodiscard]] ReportState readState(const Report& report);
/** What a new report says. */
[[nodiscard]] ReportState initialState(const Diagnostic::ReportUuid& id);
/** Whether a creation that was cut short may have left @p state: the values are written in one
 * order. */
[[nodiscard]] bool isBeginning(const ReportState& state, const Diagnostic::ReportUuid& id);

/** A content of about @p size bytes that tells its own number and length, all over. */
[[nodiscard]] std::string fileContent(const std::string& number, std::size_t size);
/** "NUMBER whole", "NUMBER torn" for its beginning, "empty", "missing", or "damaged": anything
 * else. */
[[nodiscard]] std::string describeFile(const std::filesystem::path& path);

}  // namespace KELP::Test::Soak
