#include "support/childprocess.h"
#include "tools/changing/changingtest.h"

#include <csignal>

namespace KELP::Test {
namespace {

namespace fs = std::filesystem;

/** What every verb that changes a report has to say to one that it cannot have. */
class AccessTest : public ChangingTest {
 protected:
  AccessTest() {
    const auto report = locked();
    EXPECT_TRUE(report->createReportStringProperty("text", {}));
    EXPECT_TRUE(report->addReportStringVariation("text", 0, "v", false));
  }

  /** Every verb, for the report @p id. */
  static std::vector<std::vector<std::string>> verbs(const std::string& id) {
    return {
        {"set", id, "--description", "d"},
        {"property", "add", id, "new", "string"},
        {"property", "remove", id, "text"},
        {"property", "tag", id, "text", "a"},
        {"variation", "add", id, "text", "1", "v"},
        {"variation", "remove", id, "text", "0"},
        {"attach", id, "text", "0", toolPath()},
        {"mark", id, "creation"},
        {"apply-policy", id},
        {"filter", id, "text", "0", "--", "cat"},
    };
  }

  void refuseAll(const std::string& id, int status, const std::string& message) const {
    for (const std::vector<std::string>& arguments : verbs(id)) {
      SCOPED_TRACE(testing::PrintToString(arguments));
      refuse(arguments, status, message);
    }
  }

  /** Starts the program so that what the library logs can be received. */
  [[nodiscard]] std::vector<std::string> logging(const std::vector<std::string>& arguments) const {
    std::vector<std::string> command{"/bin/sh", "-c", "exec \"$@\" 2>&1", "sh", toolPath(), "-v"};
    for (const std::string& argument : repository_.arguments(arguments)) {
      command.push_back(argument);
    }
    return command;
  }
};

TEST_F(AccessTest, WhatIsNotThere) {
  refuseAll("ffffffff-ffff", 3, "there is no report \"ffffffff-ffff\"");
}

TEST_F(AccessTest, WhatAnotherProcessWrites) {
  const auto writer = locked();
  refuseAll(id_, 4, "the report " + id_ + " is in use by another process");
}

TEST_F(AccessTest, WhatAnotherProcessReads) {
  const auto reader = report();
  ASSERT_TRUE(reader->acquireReadLock(false));
  refuseAll(id_, 4, "the report " + id_ + " is in use by another process");
}

TEST_F(AccessTest, WhatIsDamaged) {
  writeFile(directory() / "metadata.db", "no store");
  refuseAll(id_, 5, "the report " + id_ + " is damaged");
}

TEST_F(AccessTest, WhatIsHalfMade) {
  fs::remove(directory() / "lock");
  refuseAll(id_, 5, "the report " + id_ + " is half-made");
}

TEST_F(AccessTest, WhatSaysAnotherIdentifier) {
  repository_.writeKey(id_, "report_id", "8c5f2e1a-3b7d-4f60-9a1e-d2c4b6a80f13");
  refuseAll(id_, 5, "the report " + id_ + " is mismatched");
}

TEST_F(AccessTest, WhatIsOneOfSeveral) {
  const std::string first = "abcdef00-0000-4000-8000-000000000001";
  const std::string second = "abcdef00-0000-4000-8000-000000000002";
  static_cast<void>(repository_.create(first));
  static_cast<void>(repository_.create(second));
  refuseAll("ABCDEF", 2,
            "\"ABCDEF\" is the beginning of 2 reports, such as " + first + " and " + second);
}

TEST_F(AccessTest, WithTooFewArguments) {
  for (std::vector<std::string> arguments : verbs(id_)) {
    arguments.resize(arguments[0] == "property" || arguments[0] == "variation" ? 2 : 1);
    SCOPED_TRACE(testing::PrintToString(arguments));
    const ToolResult result = run(arguments);
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.errors, testing::StartsWith("kelp-diagnostics: ID is required\n"));
  }
}

TEST_F(AccessTest, EveryVerbHasHelpWithExamples) {
  std::vector<std::vector<std::string>> all = verbs(id_);
  all.push_back({"create"});
  for (std::vector<std::string> arguments : all) {
    arguments.resize(arguments[0] == "property" || arguments[0] == "variation" ? 2 : 1);
    arguments.emplace_back("--help");
    SCOPED_TRACE(testing::PrintToString(arguments));
    const ToolResult result = run(arguments);
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.output, testing::HasSubstr("\nExamples:\n  kelp-diagnostics "));
    EXPECT_THAT(result.output, testing::HasSubstr("kelp-diagnostics " + arguments[0]));
    EXPECT_THAT(result.output, testing::HasSubstr("--wait SPAN"));
  }
}

TEST_F(AccessTest, NoFileTakesThePlaceOfAClosedDescriptor) {
  std::vector<std::string> command{"/bin/sh", "-c", "exec \"$@\" 2>&-", "sh", toolPath(), "-v"};
  for (const std::string& argument : repository_.arguments({"mark", id_, "upload"})) {
    command.push_back(argument);
  }
  EXPECT_EQ(ChildProcess(command).wait(), 1);
  EXPECT_EQ(readFile(directory() / "lock"), "");
}

TEST_F(AccessTest, GivesUpWhenTheTimeIsOver) {
  const auto reader = report();
  ASSERT_TRUE(reader->acquireReadLock(false));
  refuse({"mark", id_, "creation", "--wait", "1s"}, 4,
         "the report " + id_ + " is in use by another process");
}

TEST_F(AccessTest, WaitsForTheLock) {
  auto reader = report();
  ASSERT_TRUE(reader->acquireReadLock(false));
  ChildProcess tool(logging({"mark", id_, "creation", "--wait", "1h"}));
  ASSERT_TRUE(tool.receive());  // An attempt has failed.
  ASSERT_TRUE(reader->releaseLock());
  EXPECT_EQ(tool.wait(), 0);
  EXPECT_TRUE(report()->isCreationComplete());
}

TEST_F(AccessTest, WaitsForAWriter) {
  auto writer = locked();
  ChildProcess tool(logging({"mark", id_, "creation", "--wait", "1h"}));
  ASSERT_TRUE(tool.receive());
  ASSERT_TRUE(writer->releaseLock());
  EXPECT_EQ(tool.wait(), 0);
  EXPECT_TRUE(report()->isCreationComplete());
}

TEST_F(AccessTest, ASignalEndsTheWaiting) {
  auto reader = report();
  ASSERT_TRUE(reader->acquireReadLock(false));
  ChildProcess tool(logging({"mark", id_, "creation", "--wait", "1h"}));
  ASSERT_TRUE(tool.receive());
  tool.signal(SIGINT);
  EXPECT_EQ(tool.wait(), 128 + SIGINT);
  EXPECT_FALSE(report()->isCreationComplete());
}

}  // namespace
}  // namespace KELP::Test
