#pragma once

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
    const Diagnostic::DiagnosticData& repository);

/** The name of the integer property with that number. */
[[nodiscard]] std::string integerPropertyName(std::size_t number);

/** Gives a report, of which the caller holds the write lock, @p count integer properties with a
 *  variation at each of @p levels. */
void addIntegerProperties(Diagnostic::DiagnosticReport& report, std::size_t count,
                          const std::vector<int>& levels);

/**
 * The bytes that the store's file grows by for each of newReportMetadata(), as strings to append.
 * Only their sizes are those of the store's own records.
 */
[[nodiscard]] std::vector<std::string> newReportRecords();

/** As newReportRecords(), for one change of @p key to @p value. */
[[nodiscard]] std::string recordOf(const std::string& key, const std::string& value);

/**
 * A root with @p count reports; filled by the first call, and gone when the program ends. The
 * reports are in the state in which their creators let go of them.
 */
[[nodiscard]] const std::filesystem::path& rootWithReports(std::size_t count);

}  // namespace KELP::Bench
