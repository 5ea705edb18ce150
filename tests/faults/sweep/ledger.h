#pragma once

#include "faults/sweep/operation.h"
#include "support/logcapture.h"

#include <sys/types.h>

#include <filesystem>
#include <vector>

namespace KELP::Test {

/** What a process tells of its operation. */
struct Report {
  pid_t process = 0;
  bool begun = false;
  bool ended = false;  ///< The operation returned.
  Outcome outcome;
  std::vector<LogLine> lines;
  int descriptorsBefore = 0;  ///< Before anything was opened.
  int descriptorsAfter = 0;   ///< When everything had been closed.
};

/**
 * A page of memory that a process shares with the one that watches it. A process tells things
 * without any system call, since these may be the ones that fail.
 */
class Ledger {
 public:
  /** @param file is made, and emptied, when @p fresh. */
  Ledger(const std::filesystem::path& file, bool fresh);
  ~Ledger();
  Ledger(const Ledger&) = delete;
  Ledger& operator=(const Ledger&) = delete;

  void begin();
  void end(const Outcome& outcome, const std::vector<LogLine>& lines);
  void close(int descriptorsBefore, int descriptorsAfter);

  void clear();
  [[nodiscard]] Report read() const;

 private:
  struct Page;
  Page* page_;
};

}  // namespace KELP::Test
