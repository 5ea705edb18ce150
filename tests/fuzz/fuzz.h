#pragma once

#include <stdexcept>
#include <string>

/** What the fuzzers and the replay of their corpora share. */
namespace KELP::Fuzz {

/** Something did not keep what it promises. Nobody catches it in a fuzzer, which ends with a
 * finding. */
class Violation : public std::logic_error {
 public:
  using std::logic_error::logic_error;
};

/** Throws a Violation unless @p isKept. @p promise says what is promised. */
inline void require(bool isKept, const char* promise) {
  if (!isKept) {
    throw Violation(promise);
  }
}

/** Has the temporary files of this process in memory, where there is /dev/shm and TMPDIR names no
 * other place. To be called while there is one thread. */
void keepTemporaryFilesInMemory();

/**
 * The subjects, each in the source of its name. Each takes any bytes and tries one thing on them;
 * it throws a Violation when that does not keep its promises. What an input means is said in the
 * source.
 */
void checkContents(const std::string& input);
void checkValues(const std::string& input);
void checkIdentifier(const std::string& input);
void checkStoreFile(const std::string& input);
void checkContainment(const std::string& input);
void checkCommandLine(const std::string& input);
void checkTexts(const std::string& input);

}  // namespace KELP::Fuzz
