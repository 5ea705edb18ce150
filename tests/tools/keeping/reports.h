#pragma once

#include "tools/support/repository.h"
#include "tools/support/tool.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace KELP::Test {

/** A repository, and kelp-diagnostics run on it. */
class KeepingTest : public ::testing::Test {
 protected:
  /** "check …" and the like, by pipes. */
  [[nodiscard]] ToolResult run(const std::vector<std::string>& arguments) const;
  /** The same on a terminal, with @p typed. */
  [[nodiscard]] ToolResult runOnTerminal(const std::vector<std::string>& arguments,
                                         const std::string& typed) const;

  /** The names of what is under the root, sorted. */
  [[nodiscard]] std::vector<std::string> names() const;
  [[nodiscard]] bool exists(const std::string& id) const;

  Repository repository_;
};

/** A number as an identifier: "0000000N-0000-4000-8000-000000000000". */
[[nodiscard]] std::string idOf(unsigned number);

/** Makes a report with all that a healthy one may have: a file "log" of level 0 with "hello", the
 * directory of a variation that was removed, an empty scratch directory, a text. Nobody holds it
 * afterwards. */
void makeReport(const Repository& repository, const std::string& id);

/** The same, created so many seconds ago. */
void makeReportOfAge(const Repository& repository, const std::string& id, long seconds);

/** Takes a report through all its stages. */
void upload(const Repository& repository, const std::string& id);

/** A report that this process holds as long as it has this. */
[[nodiscard]] std::unique_ptr<Diagnostic::DiagnosticReport> hold(const Repository& repository,
                                                                 const std::string& id);

}  // namespace KELP::Test
