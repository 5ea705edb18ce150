#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>
#include <vector>

namespace CrashDemo {

/** The running program itself. */
[[nodiscard]] std::filesystem::path ownPath();

/** Another program, started as a child process. Killed and reaped at the end if it still runs. */
class Program {
 public:
  /**
   * Starts the program.
   *
   * @param command   its path and its arguments.
   * @param inherited a descriptor that it gets under the number @p as; -1 for none.
   */
  explicit Program(std::vector<std::string> command, int inherited = -1, int as = -1);
  ~Program();
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  [[nodiscard]] pid_t pid() const { return pid_; }

  /** Waits for its end. @return its status as `waitpid` gives it. */
  int wait();

 private:
  pid_t pid_ = -1;
  bool running_ = false;
};

}  // namespace CrashDemo
