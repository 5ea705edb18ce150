#pragma once

#include "reports/contents.h"
#include "reports/describe.h"

#include <sys/stat.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace KELP::Tool {

/** The file of a variation, open to be read in pieces, however large it is. No link is followed to
 * it, and nothing is waited for when it is a pipe. */
class StoredFile {
 public:
  StoredFile(const StoredReport& report, const Variation& variation);
  ~StoredFile();
  StoredFile(const StoredFile&) = delete;
  StoredFile& operator=(const StoredFile&) = delete;

  /** What was opened. Throws a Failure when it is there but may not be read. */
  [[nodiscard]] FileState state() const;

  /** As it was when it was opened. */
  [[nodiscard]] const struct stat& status() const { return status_; }

  /** The next bytes, at most @p size; none at the end. Only when it is Present. Throws a Failure,
   * and Interrupted. */
  [[nodiscard]] std::string_view read(std::size_t size);

  /** Back to its beginning. */
  void rewind();

  /** Whether it was written to since it was opened. */
  [[nodiscard]] bool hasChanged() const;

 private:
  [[noreturn]] void fail(int error) const;

  std::string name_;  ///< For messages.
  bool isOutside_ = false;
  int descriptor_ = -1;
  int error_ = 0;
  struct stat status_ {};
  std::string buffer_;
};

}  // namespace KELP::Tool
