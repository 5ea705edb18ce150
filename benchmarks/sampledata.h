#pragma once

#include "peers/peer.h"

#include <diagnostic/diagnosticdata.h>
#include <os/keyvaluestore.h>

#include <cstddef>
#include <filesystem>
#include <memory>
#include <string>
#include <utility>
#include <vector>

/** What is measured: a report as clients make it, and the keys of its store. */
namespace KELP::Bench {

/** Ends the program with @p what unless @p success: a failed operation must not be timed. */
void require(bool success, const char* what);

/** The sixteen keys of a new report with values of their usual lengths, in the order of writing. */
[[nodiscard]] const std::vector<std::pair<std::string, std::string>>& newReportMetadata();

/** Opens a store as reports do. */
[[nodiscard]] std::unique_ptr<OS::KeyValueStore> openStore(const std::filesystem::path& file);

/** Opens a store and gives it the metadata of a new report. */
[[nodiscard]] std::unique_ptr<OS::KeyValueStore> makeReportStore(const std::filesystem::path& file);

/** Creates a report with the identity that newReportMetadata() shows. */
[[nodiscard]] std::unique_ptr<Diagnostic::DiagnosticReport> createReport(
    const Diagnostic::DiagnosticData& repository, const ReportUuid& id);

[[nodiscard]] std::vector<ReportUuid> randomIds(std::size_t count);

/** The name of the property with that number. */
[[nodiscard]] std::string propertyName(std::size_t number);

/** The description that setters set. */
inline const std::string kDescription = "The application stopped: segmentation fault (signal 11)";
/** The value of all integer variations. */
constexpr int kValue = 42;
/** The highest level of a new report's consent. */
constexpr int kHighestLevel = 30;

/** @p count properties of type @p type with an integer variation at each of @p levels. */
[[nodiscard]] Contents makeContents(Diagnostic::DiagnosticReportContentPropertyTypes type,
                                    std::size_t count, const std::vector<int>& levels);

/**
 * The bytes that the store's file grows by for each of newReportMetadata(), as strings to append.
 * Only their sizes are those of the store's own records.
 */
[[nodiscard]] std::vector<std::string> newReportRecords();

/** As newReportRecords(), for one change of @p key to @p value. */
[[nodiscard]] std::string recordOf(const std::string& key, const std::string& value);

}  // namespace KELP::Bench
