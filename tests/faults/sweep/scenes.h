#pragma once

#include "faults/sweep/operation.h"

#include <diagnostic/diagnosticdata.h>
#include <diagnostic/reportuuid.h>

#include <optional>
#include <string>

/** The states that operations start from, and how they tell their outcomes. */
namespace KELP::Test {

constexpr const char* kSweptId = "5ad1f0c2-9b7e-4f35-8c1d-2e64a0b93f17";
constexpr const char* kOtherSweptId = "c3e8b1d4-06fa-4a92-b5e7-91d2f84c6a30";

/** A file in the report of kSweptId, as a path relative to the root. */
[[nodiscard]] inline std::string inReport(const std::string& path) {
  return std::string(kSweptId) + "/" + path;
}
[[nodiscard]] Diagnostic::ReportUuid sweptId(const char* text = kSweptId);
[[nodiscard]] inline Diagnostic::DiagnosticData repository(const Scene& scene) {
  return Diagnostic::DiagnosticData(scene.root);
}
[[nodiscard]] inline std::filesystem::path storeFile(const Scene& scene) {
  return scene.root / "store.db";
}

/** What cannot go on unless @p result holds something. */
template <typename Result>
void require(const Result& result) {
  if (!result) throw std::runtime_error("the scene cannot be set");
}

// --- States of a root ---

/** No root. */
void prepareNothing(Scene& scene);
/** A report that is being created, with contents of all kinds, whose last change is long ago. */
void prepareReport(Scene& scene);
/** The same without contents. */
void prepareBareReport(Scene& scene);
/** The same report with the first stages, up to the one named, complete. */
void prepareCreated(Scene& scene);
void prepareCollected(Scene& scene);
void prepareApplied(Scene& scene);
/** A directory for a store. */
void prepareDirectory(Scene& scene);
/** Makes a store as large as one may be that is not compacted, so that the next change does it: by
 *  superseded values of @p key, which keeps its own. */
void bloat(const std::filesystem::path& file, const std::string& key);

// --- States of a process ---

void arrangeNothing(Scene& scene);
/** The report is open, without a lock, with a read lock, or with the write lock. */
void openUnlocked(Scene& scene);
void openReadLocked(Scene& scene);
void openLocked(Scene& scene);

// --- Outcomes ---

[[nodiscard]] inline Outcome done(std::string answer = "") {
  return {Outcome::Kind::Done, std::move(answer), 0};
}
[[nodiscard]] inline Outcome failed() {
  return {Outcome::Kind::Failed, "", 0};
}
[[nodiscard]] inline Outcome failed(const Diagnostic::DiagnosticError& error) {
  return {Outcome::Kind::Failed, error.message, error.code.value()};
}

[[nodiscard]] inline std::string inWords(const std::string& value) {
  return value;
}
[[nodiscard]] inline std::string inWords(const std::filesystem::path& value) {
  return value.string();
}
[[nodiscard]] inline std::string inWords(bool value) {
  return value ? "true" : "false";
}
[[nodiscard]] inline std::string inWords(int value) {
  return std::to_string(value);
}
[[nodiscard]] inline std::string inWords(long value) {
  return std::to_string(value);
}
[[nodiscard]] std::string inWords(const std::vector<std::string>& values);
[[nodiscard]] std::string inWords(const Diagnostic::DiagnosticReport::Variations& variation);
[[nodiscard]] std::string inWords(const Diagnostic::DiagnosticReport::Properties& property);
[[nodiscard]] std::string inWords(
    const std::vector<Diagnostic::DiagnosticReport::Properties>& contents);
template <typename T>
[[nodiscard]] std::string inWords(const std::optional<T>& value) {
  return value ? inWords(*value) : "absent";
}

/** The outcome of what returns a value or an error. */
template <typename T>
[[nodiscard]] Outcome told(const OS::expected<T, Diagnostic::DiagnosticError>& result) {
  return result ? done(inWords(*result)) : failed(result.error());
}
/** The outcome of a change of a store. */
[[nodiscard]] inline Outcome made(bool change) {
  return change ? done() : failed();
}

// --- Expectations that many share ---

/** Whatever fails before a change is made. */
inline const Stated kTouchFailure{"Failed to update report modified time"};
/** The path builders' error. */
inline const Stated kPathFailure{"Path is not within report directory"};

/** Of a change with errors of its own. */
[[nodiscard]] Expectation change(std::vector<std::string> messages);

}  // namespace KELP::Test
