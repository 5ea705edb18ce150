#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace KELP::Test {

/** A system call of a program: which one of those of its name since the program's start. */
struct CountedCall {
  std::string name;
  int count = 0;
};

/**
 * Those of @p calls at which a program is to be killed, one run for each: all of them. With a
 * sanitizer, which makes each run take ten times as long, and has nothing to say of a process that
 * is killed, every third.
 */
[[nodiscard]] std::vector<CountedCall> callsToKillAt(const std::vector<CountedCall>& calls);

/**
 * Runs of a program that says "begin" and "end", under strace. What it does in between must be the
 * same system calls at each run.
 */
class TracedRun {
 public:
  explicit TracedRun(std::vector<std::string> command) : command_(std::move(command)) {}

  /** Lets the program run. @return its calls after "begin", up to the one that says "end". */
  [[nodiscard]] std::vector<CountedCall> calls(const std::filesystem::path& traceFile) const;

  /** Lets the program run and kills it where it enters @p call. @return what it had said last;
   * empty when nothing, or when it was not killed. */
  [[nodiscard]] std::string lastWordsWhenKilledAt(const CountedCall& call) const;

  /** The command that runs the program under strace with @p options. */
  [[nodiscard]] std::vector<std::string> traced(const std::vector<std::string>& options) const;

 private:
  std::vector<std::string> command_;
};

}  // namespace KELP::Test
