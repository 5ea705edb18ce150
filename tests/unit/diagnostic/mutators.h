#pragma once

#include <diagnostic/diagnosticreport.h>

#include <filesystem>
#include <functional>
#include <ostream>
#include <string>
#include <vector>

namespace KELP::Test {

/** The five stages, each done or not. */
struct Stages {
  bool creation = false;
  bool interaction = false;
  bool collection = false;
  bool policy = false;
  bool upload = false;
};

/** The stages whose bits are set in @p bits, the lowest for creation. */
[[nodiscard]] Stages stagesOf(unsigned bits);

/** Writes the stages into a store: "1" for what is done, @p undone for the others. */
void storeStages(const std::filesystem::path& metadataFile, const Stages& stages,
                 const std::optional<std::string>& undone);

/** One operation that changes a report, and what it must do. */
struct Mutator {
  std::string name;
  std::function<Diagnostic::DiagnosticReport::Result(Diagnostic::DiagnosticReport&)> call;
  std::function<bool(const Stages&)> allowed;
  /** Stages in which it is allowed. */
  Stages allowing;
  std::string key;
  std::string text;
  std::string refusal;
  std::string writeFailure;
};

std::ostream& operator<<(std::ostream& out, const Mutator& mutator);

/** All operations that change a report and nothing but one value of it. */
[[nodiscard]] const std::vector<Mutator>& mutators();

constexpr const char* kNoWriteLock = "Cannot modify report without a write lock";
constexpr const char* kTouchFailure = "Failed to update report modified time";

}  // namespace KELP::Test
