#pragma once

#include "support/childprocess.h"
#include "unit/os/storefixture.h"

#include <chrono>
#include <string>
#include <vector>

namespace KELP::Test {

/** Another process that uses a store on command; storeactor.cpp lists the commands. */
class Actor {
 public:
  /** Starts the process, by the command @p starter if there is one. */
  explicit Actor(std::vector<std::string> starter = {});

  /** Sends a command and returns its answer, or "(no answer)". */
  std::string ask(const std::string& command);
  /** Sends a command whose answer is read later, by answer(). */
  void tell(const std::string& command) { process_.send(command); }
  std::string answer(std::chrono::milliseconds limit = std::chrono::seconds(60));

  bool open(const std::filesystem::path& file, unsigned long options = kReportOptions);
  bool set(const std::string& key, std::uint64_t seed, std::size_t size);
  bool remove(const std::string& key);
  std::string get(const std::string& key);

  ChildProcess& process() { return process_; }

 private:
  ChildProcess process_;
};

/** Takes the time of something that waits for a lock, which it does for 5 seconds. */
class Stopwatch {
 public:
  /** Whether it lasted about as long as a change waits for others, or longer. */
  [[nodiscard]] bool waitedForLock() const { return elapsed() > std::chrono::milliseconds(4500); }
  /** Whether it ended well before that. */
  [[nodiscard]] bool didNotWait() const { return elapsed() < std::chrono::milliseconds(4000); }
  [[nodiscard]] std::chrono::steady_clock::duration elapsed() const {
    return std::chrono::steady_clock::now() - start_;
  }

 private:
  const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

/** How a test tells another process's answer for a value from patternValue(). */
[[nodiscard]] std::string describePattern(std::uint64_t seed, std::size_t size);

}  // namespace KELP::Test
