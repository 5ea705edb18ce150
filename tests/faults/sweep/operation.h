#pragma once

#include <diagnostic/diagnosticreport.h>
#include <os/keyvaluestore.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace KELP::Test {

/** What an operation works on. */
struct Scene {
  std::filesystem::path root;     ///< Of the repository, or the directory of a store.
  std::filesystem::path outside;  ///< A directory of files that are copied into reports.
  std::unique_ptr<Diagnostic::DiagnosticReport> report;
  std::shared_ptr<Diagnostic::ReportTemporaryFile> file;
  std::unique_ptr<OS::KeyValueStore> store;
};

/** What an operation told its caller. */
struct Outcome {
  enum class Kind { Done, Failed, ThrewFileError, ThrewOther };

  Kind kind = Kind::Failed;
  std::string text;  ///< The answer, the error's message (empty when there is none), or what().
  int code = 0;      ///< The error's.
};

/** An error that an operation is stated to return, or a line that it is stated to log where it only
 *  returns nothing. */
struct Stated {
  std::string message;
  bool coded = false;  ///< Whether it comes with the system's code; otherwise with 0.
};

/**
 * What is stated of an operation that the system fails, or whose process is killed.
 *
 * Paths are relative to the root. Without any, a failure leaves everything but the time of
 * modification as it was.
 */
struct Expectation {
  std::vector<Stated> errors;
  /** What is answered instead when it cannot be found out. */
  std::vector<std::string> answers = {};
  /** Whether some words of the answer may be missing. */
  bool partialAnswer = false;
  /** Whether the place of a file that cannot be examined is an exception. */
  bool throws = false;
  /** Whether it can still be one when everything else is done. */
  bool throwsAtEnd = false;
  /** Whether a failure is not logged. */
  bool silent = false;
  /** Whether a signal may end it. */
  bool interruptible = false;
  /** Whether it sets several keys, and may stop between them. */
  bool severalKeys = false;
  /** What may be there, whole or its beginning, though it failed or was killed. */
  std::vector<std::string> begun = {};
  /** What may still be there though it succeeded, because it could not be removed. */
  std::vector<std::string> left = {};
  /** What may be removed in part though it failed or was killed. */
  std::vector<std::string> gone = {};
  /** Where it may come to something else than usual when it cannot find out. */
  std::optional<std::pair<std::string, std::string>> otherValue = std::nullopt;
};

/** An operation that is made to fail, and killed, at each of its system calls. */
struct Operation {
  std::string name;
  /** Makes what the operation finds under the root. */
  void (*prepare)(Scene& scene);
  /** What its process does before, unharmed. */
  void (*arrange)(Scene& scene);
  Outcome (*act)(Scene& scene);
  Expectation expectation;
};

inline std::ostream& operator<<(std::ostream& out, const Operation& operation) {
  return out << operation.name;
}

/** All operations, by family. */
[[nodiscard]] const std::vector<Operation>& allOperations();
/** Throws when there is none of that name. */
[[nodiscard]] const Operation& operationNamed(const std::string& name);

[[nodiscard]] std::vector<Operation> contentOperations();
[[nodiscard]] std::vector<Operation> fieldOperations();
[[nodiscard]] std::vector<Operation> fileOperationsOfReports();
[[nodiscard]] std::vector<Operation> lockOperations();
[[nodiscard]] std::vector<Operation> queryOperations();
[[nodiscard]] std::vector<Operation> repositoryOperations();
[[nodiscard]] std::vector<Operation> storeOperations();

}  // namespace KELP::Test
