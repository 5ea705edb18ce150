#pragma once

#include "connection.h"
#include "crashnotice.h"
#include "program.h"

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace CrashDemo {

/**
 * A program that is watched for a crash.
 *
 * Life cycle:
 *  1. The constructor starts it.
 *  2. waitForCrash() returns when it has crashed. It then holds still, and all that the kernel
 * knows of it can be read.
 *  3. letGo() lets it die, and tells how it did.
 *
 * The kernel's tools for watching a process from outside (ptrace) are closed in many containers,
 * and a process that has ended has no memory map any more. So the program itself holds still, in
 * its signal handler, until its watcher has seen enough.
 */
class WatchedProcess {
 public:
  /** @param command the program's path and its arguments. */
  explicit WatchedProcess(std::vector<std::string> command);

  [[nodiscard]] pid_t pid() const { return program_.pid(); }

  /** @return what the process says of its crash; empty when it ended without one. */
  [[nodiscard]] std::optional<CrashNotice> waitForCrash();

  /** The name of the process. */
  [[nodiscard]] std::string name() const;

  /** What is mapped into its memory, as the kernel shows it: a line for each range. */
  [[nodiscard]] std::string memoryMap() const;

  /** The libraries in its memory map: every file that is mapped as code, but for the program. */
  [[nodiscard]] std::vector<std::string> loadedLibraries() const;

  /** For how long it has been running. */
  [[nodiscard]] std::chrono::duration<double> age() const {
    return std::chrono::steady_clock::now() - start_;
  }

  /** @return the status of its end, as `waitpid` gives it. */
  int letGo();

 private:
  [[nodiscard]] std::filesystem::path proc(const char* name) const;

  std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
  Connection connection_;
  Program program_;
};

}  // namespace CrashDemo
