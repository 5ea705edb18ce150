#include "tools/help/shell.h"

#include "support/childprocess.h"
#include "support/startedby.h"
#include "tools/support/tool.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

namespace KELP::Test {

std::vector<std::string> linesOfShell(const std::vector<std::string>& command) {
  const std::string folder = std::filesystem::path(toolPath()).parent_path();
  ChildProcess shell(startedBy(
      {"/usr/bin/env", "LC_ALL=C.UTF-8", "PATH=" + folder + ":" + std::getenv("PATH")}, command));
  shell.closeInput();
  std::vector<std::string> lines;
  while (auto line = shell.receive()) {
    lines.push_back(*std::move(line));
  }
  EXPECT_EQ(shell.wait(), 0);
  return lines;
}

}  // namespace KELP::Test
