#pragma once

#include "support/temporarydirectory.h"

#include <diagnostic/diagnosticdata.h>

#include <cstddef>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace KELP::Test {

/** While it lives, temporary directories are made in memory where the system has a file system for
 *  that: for very many files. */
class TemporaryInMemory {
 public:
  TemporaryInMemory();
  ~TemporaryInMemory();
  TemporaryInMemory(const TemporaryInMemory&) = delete;
  TemporaryInMemory& operator=(const TemporaryInMemory&) = delete;

 private:
  std::string before_;
};

/** A repository in a temporary directory, filled through the library. */
class Repository {
 public:
  Repository();

  [[nodiscard]] const std::filesystem::path& root() const { return root_; }
  [[nodiscard]] const Diagnostic::DiagnosticData& data() const { return data_; }

  /** @p arguments behind "-C ROOT". */
  [[nodiscard]] std::vector<std::string> arguments(const std::vector<std::string>& more) const;

  /** A new report, with application 7, build 2, user 3, "device", "session"; it holds the write
   * lock. */
  [[nodiscard]] std::unique_ptr<Diagnostic::DiagnosticReport> create() const;
  /** The same with an identifier that is given. */
  [[nodiscard]] std::unique_ptr<Diagnostic::DiagnosticReport> create(const std::string& id) const;

  /** Makes @p count reports quickly, by copying one; all have a creation time of their own. @return
   * their identifiers, the newest first. */
  [[nodiscard]] std::vector<std::string> createMany(std::size_t count) const;

  /** The report's directory. */
  [[nodiscard]] std::filesystem::path directoryOf(const Diagnostic::DiagnosticReport& report) const;

  /** Writes a key of a report's store directly. */
  void writeKey(const std::string& id, const std::string& key, const std::string& value) const;

  /** Every path below the root with its type, size, content and time of modification: to see that
   *  nothing was changed. */
  [[nodiscard]] std::map<std::string, std::string> snapshot() const;

 private:
  TemporaryDirectory directory_;
  std::filesystem::path root_;
  Diagnostic::DiagnosticData data_;
};

}  // namespace KELP::Test
