#pragma once

#include "unit/diagnostic/reportfixture.h"
#include "unit/diagnostic/systemcalls.h"

#include <diagnostic/diagnosticreport.h>
#include <diagnostic/reportcontentproperties.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace KELP::Test {

/** The property that tests put files into, and the level and name that they use when it does not
 *  matter. */
constexpr const char* kProperty = "log";
constexpr int kLevel = 2;
constexpr const char* kFileName = "a.txt";

constexpr const char* kContentsKey = "report_contents";
constexpr const char* kNoWriteLockLine = "Cannot modify report without a write lock";
constexpr const char* kTouchFailureLine = "Failed to update report modified time";
constexpr const char* kNoDestinationLine = "Unable to determine destination path for new file";
constexpr const char* kNotWithinReport = "Path is not within report directory";
constexpr const char* kCopyFailure = "Failed to copy file to report location";
constexpr const char* kWriteFailure = "Failed to write updated contents for variation removal";

using Contents = std::vector<Diagnostic::DiagnosticReportContentProperties>;

/** The record that every change of a report begins with, at the time of the tests' clock. */
[[nodiscard]] inline StoreRecord stamp() {
  return {"modified", "1700000000"};
}

/** What is on disk, and how much was written to the store. */
struct DiskState {
  Tree tree;
  std::size_t records = 0;
};

/** What a moment's entries turned into: their new description, or "gone". */
using TreeChanges = std::map<std::string, std::string>;

/**
 * A report with a file property of no variations, "modified" at 1, and the write lock held.
 *
 * A file named "decoy" and an empty directory "outside" stand beside the reports, for what leads
 * out of them.
 */
class FilesTest : public ReportTest {
 public:
  FilesTest();

  using Properties = Diagnostic::DiagnosticReportContentProperties;
  using Variation = Diagnostic::DiagnosticReportContentVariations;
  using Result = Report::Result;

  [[nodiscard]] Report& report() { return *report_; }

  /** A file outside the report, made with this content. */
  std::filesystem::path makeSource(const std::string& content,
                                   const std::string& name = "source") const;
  [[nodiscard]] std::filesystem::path decoy() const { return directory_ / "decoy"; }
  [[nodiscard]] std::filesystem::path outside() const { return directory_ / "outside"; }
  [[nodiscard]] std::filesystem::path tmpDirectory() const { return dir() / "tmp"; }
  [[nodiscard]] std::filesystem::path variationDirectory(int level = kLevel) const;
  [[nodiscard]] std::filesystem::path storedFile(int level = kLevel,
                                                 const std::string& name = kFileName) const;

  /** Copies @p source into the property as the test's variation, under the test's name. */
  Result copy(const std::filesystem::path& source, const std::string& fileName = kFileName,
              bool overwrite = false);

  /** Puts a file into the report and makes "modified" 1 again. @return where it is. */
  std::filesystem::path addFile(int level, const std::string& content,
                                const std::string& fileName = kFileName,
                                const std::string& property = kProperty);

  /** A file variation as a copy records it. */
  [[nodiscard]] static Variation fileVariation(const std::filesystem::path& path, int level);

  /** The property as it is now. */
  [[nodiscard]] Properties property() const;
  /** Writes contents into the store, behind the report's back. */
  void storeContents(const Contents& contents) const;
  /** Replaces all contents by the property with these variations, behind the report's back. */
  void storeVariations(const std::vector<Variation>& variations) const;

  /** The name of an entry of the report in a tree of everything. */
  [[nodiscard]] static std::string entry(const std::string& below);

  [[nodiscard]] DiskState now() const;
  /** What is no longer as it was, the store aside. */
  [[nodiscard]] TreeChanges changesSince(const DiskState& before) const;
  /** The keys written to the store since then, oldest first. */
  [[nodiscard]] std::vector<std::string> keysSince(const DiskState& before) const;

  /** Expects that neither a file nor the store changed. */
  void expectNothingChanged(const DiskState& before) const;
  /** Expects that the report was stamped and nothing else. */
  void expectOnlyStamped(const DiskState& before) const;

  /** Lets go of the write lock. */
  void unlock() { EXPECT_THAT(report_->releaseLock(), Succeeds()); }

 protected:
  FakeClock clock_;
  ReportPtr report_;
};

/** The lines of a path that leads out of the report, then @p line. */
[[nodiscard]] std::vector<LogLine> outsideLines(const std::filesystem::path& path,
                                                const std::filesystem::path& report,
                                                const std::string& line);

}  // namespace KELP::Test
