#pragma once

#include "support/childprocess.h"
#include "support/waituntil.h"
#include "tools/support/repository.h"

#include <gtest/gtest.h>
#include <json/value.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace KELP::Test {

/** How many files and directories the process watches. */
[[nodiscard]] std::size_t watchesOf(pid_t process);

/** A repository and the program that watches it. */
class WatchTest : public testing::Test {
 protected:
  /** A report that nobody has open. */
  std::string createClosed(const std::string& id);
  /** A change of a report: its description. */
  void describe(const std::string& id, const std::string& text);

  /** Starts "watch" with @p more behind it. */
  void start(const std::vector<std::string>& more);

  /** The next line. */
  std::string line();
  /** The next line, as JSON. */
  Json::Value event();
  /** Takes lines until one has all of @p parts; fails when none does. */
  std::string lineWith(const std::vector<std::string>& parts);

  /** Sends @p signal and waits for the end. @return the exit status. */
  int end(int signal);

  Repository repository_;
  std::unique_ptr<ChildProcess> tool_;
};

}  // namespace KELP::Test
