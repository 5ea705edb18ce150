#pragma once

#include <diagnostic/diagnosticreport.h>

#include <CLI/App.hpp>
#include <optional>
#include <string>
#include <vector>

namespace KELP::Tool {

/** What may be said of a report after it was created; `create` and `set` take it. */
struct Description {
  std::optional<std::string> text;
  std::optional<int> pid;
  std::optional<std::string> process;
  std::vector<std::string> libraries;
  std::optional<int> consent;
  std::optional<int> maxConsent;

  [[nodiscard]] bool isEmpty() const;
  /** Throws a Failure of usage when something cannot be stored as it is. */
  void check() const;
  /** Stores what was given, or nothing of it when the report's stage forbids a part. Throws a
   *  Failure. */
  void store(Diagnostic::DiagnosticReport& report) const;
};

/** Adds the options --description, --pid, --process and --library. */
void addDescription(CLI::App& verb, Description& description);

}  // namespace KELP::Tool
