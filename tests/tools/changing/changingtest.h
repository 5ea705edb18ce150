#pragma once

#include "tools/support/repository.h"
#include "tools/support/tool.h"

#include <diagnostic/diagnosticreport.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace KELP::Test {

/** A repository with one report, which nobody has locked, and a directory for other files. */
class ChangingTest : public testing::Test {
 protected:
  ChangingTest();

  /** Runs the program with @p arguments behind "-C ROOT". */
  [[nodiscard]] ToolResult run(const std::vector<std::string>& arguments,
                               const ToolSetting& setting = {}) const;
  /** The same, and expects that it succeeds without a word. */
  void perform(const std::vector<std::string>& arguments, const ToolSetting& setting = {}) const;
  /** The same, and expects that it fails with exactly this message, and changes nothing. */
  void refuse(const std::vector<std::string>& arguments, int status,
              const std::string& message) const;

  /** The report, opened without a lock. */
  [[nodiscard]] std::unique_ptr<Diagnostic::DiagnosticReport> report() const;
  /** The report with its write lock. */
  [[nodiscard]] std::unique_ptr<Diagnostic::DiagnosticReport> locked() const;
  /** The report's directory. */
  [[nodiscard]] std::filesystem::path directory() const;
  /** Takes the report to the end of data collection. */
  void completeCollection() const;

  TemporaryDirectory files_;
  Repository repository_;
  std::string id_;
};

/** Something at the standard input. */
[[nodiscard]] ToolSetting withInput(const std::string& input);

/** Names and values that would do harm where they are not taken as they are. */
[[nodiscard]] const std::vector<std::string>& difficultTexts();

}  // namespace KELP::Test
