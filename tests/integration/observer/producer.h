#pragma once

#include "support/childprocess.h"

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace KELP::Test {

/** Another process that makes, changes and deletes reports, and does and answers what it is told, a
 *  line at a time. The commands are those of producer_actor.cpp. */
class Producer {
 public:
  /** Starts it on the root directory of all reports. */
  explicit Producer(const std::filesystem::path& root);

  /** Has it do a command, and waits until it is done. Throws what went wrong. */
  void request(const std::string& command);
  /** Has it begin a command that may take long. */
  void begin(const std::string& command) { process_.send(command); }
  /** Waits for what it began; a command that goes on for ever ends now. Throws what went wrong. */
  void end();
  void await();

  /** Ends it wherever it is. */
  void kill();

  /** The command line of a process that does one command between saying "begin" and "end". */
  [[nodiscard]] static std::vector<std::string> commandLine(const std::filesystem::path& root,
                                                            const std::string& command);

 private:
  ChildProcess process_;
};

}  // namespace KELP::Test
