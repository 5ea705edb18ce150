#pragma once

#include <diagnostic/diagnosticdata.h>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace KELP::Test {

/** On what an operation is tried. */
struct Subject {
  std::filesystem::path root;
  Diagnostic::ReportUuid id;
  std::filesystem::path source;  ///< A file of its own, to be copied into the report.
};

/** A public operation, and what it came to in words. */
struct Operation {
  const char* name;
  std::function<std::string(const Subject&)> run;
};

/** All that a client can do with a repository and a report: each opens the report by itself. */
[[nodiscard]] const std::vector<Operation>& operations();

}  // namespace KELP::Test
