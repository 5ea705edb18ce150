#pragma once

#include "support/childprocess.h"

#include <filesystem>
#include <string>
#include <vector>

namespace KELP::Test {

/** Another process that uses reports, and does and answers what it is told, a line at a time. The
 *  commands are those of report_actor.cpp. */
class Actor {
 public:
  /** Starts it on the root directory of all reports, by the command @p starter if there is one:
   *  pid() is then that one's. */
  explicit Actor(const std::filesystem::path& root, std::vector<std::string> starter = {});

  /** Tells it @p command, and returns its answer; throws when there is none. */
  std::string ask(const std::string& command);
  /** Tells it @p command, whose answer is taken later. */
  void tell(const std::string& command) { process_.send(command); }
  /** Its next answer; throws when there is none. */
  std::string answer();

  [[nodiscard]] pid_t pid() const { return process_.pid(); }
  [[nodiscard]] ChildProcess& process() { return process_; }

  /** Waits until it is blocked in a call of `flock`. Throws when that takes very long. */
  void awaitBlockedInFlock() const;
  /** Sends it a signal that it handles by doing nothing, and waits until it got it. */
  void interrupt() const;

 private:
  ChildProcess process_;
};

}  // namespace KELP::Test
