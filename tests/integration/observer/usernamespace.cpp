#include "integration/observer/usernamespace.h"

#include "support/childprocess.h"
#include "support/startedby.h"
#include "support/temporarydirectory.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <vector>

namespace KELP::Test {
namespace {

/** Tells the program that it is in the namespace already. */
constexpr const char* kMark = "KELP_TEST_IN_USER_NAMESPACE";

std::string currentTest() {
  const testing::TestInfo& test = *testing::UnitTest::GetInstance()->current_test_info();
  return std::string(test.test_suite_name()) + "." + test.name();
}

/** The command in a new namespace. A program that has threads already cannot go there itself. */
std::vector<std::string> unshared(const std::vector<std::string>& command) {
  return startedBy({"/usr/bin/unshare", "--user", "--map-root-user"}, command);
}

std::string reasonAgainst() {
  ChildProcess probe(unshared({"/bin/sh", "-c",
                               "for limit in max_inotify_watches max_inotify_instances; do "
                               "echo 1000 >/proc/sys/user/$limit || exit 1; done"}));
  return probe.wait() == 0 ? "" : "no user namespace with limits of its own can be made here";
}

}  // namespace

void inOwnUserNamespace(const std::function<void()>& body) {
  if (std::getenv(kMark) != nullptr) {
    body();
    return;
  }
  if (const std::string reason = reasonAgainst(); !reason.empty()) {
    GTEST_SKIP() << reason;
  }
  const auto program = std::filesystem::read_symlink("/proc/self/exe").string();
  // A program that runs a part of its tests would leave this one out.
  ChildProcess process(unshared({"/usr/bin/env", "--unset=GTEST_TOTAL_SHARDS",
                                 "--unset=GTEST_SHARD_INDEX", std::string(kMark) + "=1", program,
                                 "--gtest_filter=" + currentTest(), "--gtest_brief=1"}));
  std::string output;
  while (const std::optional<std::string> line = process.receive(std::chrono::seconds(120))) {
    output += *line + "\n";
  }
  EXPECT_EQ(process.wait(), 0) << output;
  EXPECT_NE(output.find("1 test from"), std::string::npos) << "it was not run:\n" << output;
}

void setUserLimit(const std::string& name, int value) {
  writeFile("/proc/sys/user/" + name, std::to_string(value));
}

}  // namespace KELP::Test
