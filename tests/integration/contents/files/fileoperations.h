#pragma once

#include <diagnostic/diagnosticreport.h>

#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

namespace KELP::Test {

/**
 * An operation on the files of a report, for a process that is killed in it, and for another that
 * carries on. Both hold the write lock.
 */
struct FileOperation {
  using Report = Diagnostic::DiagnosticReport;

  std::string name;
  /** Brings a new report into the state before. */
  void (*prepare)(Report& report, const std::filesystem::path& outside);
  Report::Result (*run)(Report& report, const std::filesystem::path& outside);
  /** Whether it makes the stored file of what the stored file was: what is lost of that when it is
   *  killed while it copies, no repetition brings back. */
  bool readsStoredFile = false;
};

std::ostream& operator<<(std::ostream& out, const FileOperation& operation);

[[nodiscard]] const std::vector<FileOperation>& fileOperations();
/** Throws when there is none of that name. */
[[nodiscard]] const FileOperation& fileOperation(const std::string& name);

/** What the operations find outside the report: a file to copy, and one to leave alone. */
void makeOutside(const std::filesystem::path& outside);

}  // namespace KELP::Test
