#pragma once

#include "unit/diagnostic/reportfixture.h"
#include "unit/diagnostic/systemcalls.h"

#include <diagnostic/diagnosticreport.h>
#include <diagnostic/reportcontentproperties.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace KELP::Test {

using Type = Diagnostic::DiagnosticReportContentPropertyTypes;
using Property = Diagnostic::DiagnosticReportContentProperties;
using Variation = Diagnostic::DiagnosticReportContentVariations;
using Contents = std::vector<Property>;
using Tags = std::set<std::string>;

using Report = Diagnostic::DiagnosticReport;

constexpr const char* kContentsKey = "report_contents";
constexpr const char* kTouchRefusal = "Cannot modify report without a write lock";
constexpr const char* kStampFailure = "Failed to update report modified time";
constexpr const char* kListFailure = "Failed to write updated contents for variation removal";
constexpr const char* kPathRefusal = "Path is not within report directory";
constexpr const char* kNoFilePathLine = "Unable to determine destination path for file to remove";

/** The record that every change of a report begins with, at the time of the tests' clock. */
[[nodiscard]] inline StoreRecord stamp() {
  return {"modified", "1700000000"};
}

/** A variation at a level with one of its values. */
template <typename T>
[[nodiscard]] Variation variationWith(int level, T Variation::*member, T value) {
  Variation variation;
  variation.*member = std::move(value);
  variation.sensitivity_level = level;
  return variation;
}

/** An INTEGER property whose variations have these levels, and their positions as values. */
[[nodiscard]] Property numbered(const std::string& name, const std::vector<int>& levels);

/** The text that is stored for contents. */
[[nodiscard]] std::string textOf(const Contents& contents);

/** A refusal: the line at error priority and the message. */
struct Refusal {
  std::string line;
  std::string message;
};
/** One whose line is its message. */
[[nodiscard]] inline Refusal plain(const std::string& message) {
  return {message, message};
}

/** What is on disk, in the report and around it, and how much was written to the store. */
struct Snapshot {
  Tree tree;
  std::size_t records = 0;
};

/**
 * A report without contents, "modified" at 1, and its write lock held.
 *
 * Beside the report stand decoys: another report, and files and directories in and beside the root.
 */
class ContentsTest : public ReportTest {
 public:
  ContentsTest();

  using Result = Report::Result;

  [[nodiscard]] Report& report() { return *report_; }

  /** Replaces the contents behind the report's back. */
  void storeContents(const Contents& contents) const { store(kContentsKey, textOf(contents)); }
  void storeContentsText(const std::optional<std::string>& text) const {
    store(kContentsKey, text);
  }
  /** The stored contents; empty when there are none. */
  [[nodiscard]] Contents contents() const {
    return report_->getReportContents().value_or(Contents());
  }

  /** Makes a file below the report's "contentfiles", and the directories above it. */
  std::filesystem::path plantFile(const std::string& below) const;
  [[nodiscard]] std::filesystem::path contentFiles() const { return dir() / "contentfiles"; }
  /** A directory outside the report, with a file in it. */
  [[nodiscard]] std::filesystem::path outside() const { return directory_ / "outside"; }

  [[nodiscard]] Snapshot snapshot() const;
  /** The records that were appended to the store since then. */
  [[nodiscard]] std::vector<StoreRecord> writtenSince(const Snapshot& before) const;

  /** Expects that nothing at all changed, in the report or around it. */
  void expectSame(const Snapshot& before) const;

  /** Expects that @p call is refused without any effect, on the store or on files. */
  void expectRefused(const Refusal& refusal, const std::function<Result(Report&)>& call);
  /** As expectRefused(), with all the lines that are logged. */
  void expectRefused(const std::vector<LogLine>& lines, const std::string& message,
                     const std::function<Result(Report&)>& call);
  /** Expects that @p call is refused after it stamped the report, and changed nothing else. */
  void expectOnlyStamped(const Refusal& refusal, const std::function<Result(Report&)>& call);
  /** Expects that @p call stamps the report, then stores @p after, and touches no file. */
  void expectStored(const Contents& after, const std::function<Result(Report&)>& call);
  /** The same, where files may change. */
  void expectStoredFirst(const Contents& after, const std::function<Result(Report&)>& call);

  /** Expects that no file but the report's store, nor anything around the report, changed. */
  void expectSameFiles(const Snapshot& before) const;
  /** Expects that nothing outside the report changed. */
  void expectSameSurroundings(const Snapshot& before) const;
  /** Expects exactly these entries of the report, by their paths in it, to be gone. */
  void expectGone(const Snapshot& before, const std::vector<std::string>& below) const;

  /** Lets go of the write lock. */
  void unlock() { EXPECT_THAT(report_->releaseLock(), Succeeds()); }

 protected:
  FakeClock clock_;
  ReportPtr report_;
};

}  // namespace KELP::Test
