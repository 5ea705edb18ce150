#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace KELP::Test {

/**
 * A program of its own, started by fork and exec with a pipe to its standard input and one from its
 * standard output (its standard error is this process's). Killed and reaped at the end if it still
 * runs.
 */
class ChildProcess {
 public:
  /** Starts @p command; the first element is the program's path. Throws when it cannot. */
  explicit ChildProcess(const std::vector<std::string>& command);
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  [[nodiscard]] pid_t pid() const { return pid_; }

  /** Writes @p line and a newline to its standard input. */
  void send(const std::string& line);
  /** Closes its standard input. */
  void closeInput();
  /** The next line of its standard output without the newline; empty at the end of the output, or
   *  when none came within @p limit. */
  [[nodiscard]] std::optional<std::string> receive(
      std::chrono::milliseconds limit = std::chrono::seconds(30));

  /** Sends it @p signal. */
  void signal(int signal) const;
  /** Waits for its end. @return its exit status, or 128 plus the signal that ended it. */
  int wait();

 private:
  pid_t pid_ = -1;
  int input_ = -1;
  int output_ = -1;
  std::string received_;
};

}  // namespace KELP::Test
