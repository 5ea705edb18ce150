#include "support/sanitizers.h"
#include "tools/support/systemcallfilter.h"
#include "tools/support/tool.h"
#include "tools/watching/watchtest.h"

#include <gmock/gmock.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <thread>

namespace KELP::Test {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;

constexpr const char* kFirst = "11111111-1111-4111-8111-111111111111";
constexpr const char* kSecond = "22222222-2222-4222-8222-222222222222";
constexpr const char* kLast = "99999999-9999-4999-8999-999999999999";

/** Raises more events in @p report than the kernel keeps for a process that takes none. */
void fillKernelQueue(const std::filesystem::path& report) {
  std::size_t size = 0;
  std::ifstream("/proc/sys/fs/inotify/max_queued_events") >> size;
  ASSERT_GT(size, 0U);
  // Two names in turn, for the kernel counts an event that is as the last one only once.
  for (std::size_t raised = 0; raised < size + 100; raised += 2) {
    writeFile(report / "one", "");
    writeFile(report / "two", "");
  }
}

TEST_F(WatchTest, WhatExistsIsPrintedFirstWithWhatItIs) {
  {
    const auto report = repository_.create(kFirst);
    ASSERT_TRUE(report->setProcessName("camera"));
    ASSERT_TRUE(report->markCreationComplete());
  }
  start({"--utc"});
  EXPECT_THAT(line(), MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}Z  "
                                   "EXISTING  11111111-1111-4111-8111-111111111111  "
                                   "collecting  7  camera"));
  EXPECT_EQ(end(SIGINT), 0);
}

TEST_F(WatchTest, TimesAreLocalUnlessUtcIsWanted) {
  createClosed(kFirst);
  ToolSetting setting;
  setting.environment["TZ"] = "XYZ-5:30";
  const ToolResult result = runTool(repository_.arguments({"watch", "-n", "1"}), setting);
  EXPECT_THAT(result.output, MatchesRegex("[^ ]*[+]05:30  EXISTING  .*\n"));
}

TEST_F(WatchTest, AReportsLifeIsToldAsItHappens) {
  createClosed(kFirst);
  start({});
  EXPECT_THAT(line(), HasSubstr(std::string("EXISTING  ") + kFirst));

  createClosed(kSecond);
  EXPECT_THAT(line(), HasSubstr(std::string("ADDED     ") + kSecond));
  describe(kFirst, "changed");
  lineWith({std::string("UPDATED   ") + kFirst + "  creating  7  -"});
  std::filesystem::remove_all(repository_.root() / kSecond);
  EXPECT_THAT(lineWith({"REMOVED"}), EndsWith(std::string("REMOVED   ") + kSecond));
}

TEST_F(WatchTest, JsonHasOneDocumentOnEachLine) {
  createClosed(kFirst);
  start({"--json", "--utc"});
  const Json::Value existing = event();
  EXPECT_EQ(existing["schema"], 1);
  EXPECT_EQ(existing["event"], "existing");
  EXPECT_EQ(existing["id"], kFirst);
  EXPECT_THAT(existing["time"].asString(), MatchesRegex("[0-9]{4}-.*T.*Z"));
  EXPECT_EQ(existing["stage"], "creating");
  EXPECT_EQ(existing["app"], 7);
  EXPECT_TRUE(existing["process"].isNull());
  EXPECT_THAT(existing.getMemberNames(), SizeIs(7));

  describe(kFirst, "changed");
  EXPECT_EQ(event()["event"], "updated");
  createClosed(kSecond);
  Json::Value added = event();
  while (added["id"] != kSecond) {
    added = event();
  }
  EXPECT_EQ(added["event"], "added");

  std::filesystem::remove_all(repository_.root() / kFirst);
  Json::Value removed = event();
  while (removed["id"] != kFirst) {
    removed = event();
  }
  EXPECT_EQ(removed["event"], "removed");
  EXPECT_THAT(removed.getMemberNames(), SizeIs(7));
  for (const char* const member : {"stage", "app", "process"}) {
    EXPECT_TRUE(removed.isMember(member) && removed[member].isNull()) << member;
  }
}

TEST_F(WatchTest, WhatExistsMayBeLeftOut) {
  createClosed(kFirst);
  createClosed(kSecond);
  start({"--no-existing"});
  ASSERT_TRUE(waitUntil([&] { return watchesOf(tool_->pid()) == 3; }));
  createClosed(kLast);
  EXPECT_THAT(line(), HasSubstr(std::string("ADDED     ") + kLast));
}

TEST_F(WatchTest, OnlyThoseThatAreAskedForAreTold) {
  createClosed(kFirst);
  createClosed(kSecond);
  start({"2222", "99999999-9999-4999-8999-99999999999"});
  EXPECT_THAT(line(), HasSubstr(kSecond));
  // Before what is waited for comes what must not be told.
  describe(kFirst, "changed");
  createClosed("33333333-3333-4333-8333-333333333333");
  createClosed(kLast);
  EXPECT_THAT(line(), HasSubstr(std::string("ADDED     ") + kLast));
}

TEST_F(WatchTest, LettersOfAnIdentifierMayBeOfEitherCase) {
  createClosed("abcdef00-1111-4111-8111-111111111111");
  const ToolResult result = runTool(repository_.arguments({"watch", "-n", "1", "ABCDEF"}));
  EXPECT_THAT(result.output, HasSubstr("abcdef00-1111-4111-8111-111111111111"));
}

TEST_F(WatchTest, ItEndsAfterSoManyEvents) {
  for (const char* const id : {kFirst, kSecond, kLast}) {
    createClosed(id);
  }
  const ToolResult result = runTool(repository_.arguments({"watch", "-n", "2"}));
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.lines(), SizeIs(2));
  EXPECT_EQ(result.errors, "");
}

TEST_F(WatchTest, AProcessNameCannotWriteToTheTerminal) {
  {
    const auto report = repository_.create(kFirst);
    ASSERT_TRUE(report->setProcessName("cam\033[2J\nera"));
  }
  const ToolResult text = runTool(repository_.arguments({"watch", "-n", "1"}));
  EXPECT_THAT(text.lines(), SizeIs(1));
  EXPECT_THAT(text.output, EndsWith("cam\\x1b[2J\\nera\n"));
  const ToolResult json = runTool(repository_.arguments({"watch", "-n", "1", "--json"}));
  EXPECT_THAT(json.lines(), SizeIs(1));
  EXPECT_EQ(json.json()["process"], "cam\033[2J\nera");
}

TEST_F(WatchTest, EventsAreColouredOnATerminalUnlessThatIsNotWanted) {
  createClosed(kFirst);
  const auto arguments = repository_.arguments({"watch", "-n", "1"});
  EXPECT_THAT(runToolOnTerminal(arguments).output, HasSubstr("\033[2mEXISTING\033[0m"));
  ToolSetting plain;
  plain.environment["NO_COLOR"] = "1";
  EXPECT_THAT(runToolOnTerminal(arguments, plain).output, Not(HasSubstr("\033")));
  EXPECT_THAT(runTool(arguments).output, Not(HasSubstr("\033")));
}

TEST_F(WatchTest, AHalfMadeReportIsToldAsSuch) {
  createClosed(kFirst);
  start({});
  line();
  std::filesystem::create_directory(repository_.root() / kSecond);
  writeFile(repository_.root() / kSecond / "metadata.db", "");
  EXPECT_THAT(line(), EndsWith(std::string("ADDED     ") + kSecond + "  half-made  -  -"));
}

TEST_F(WatchTest, NothingIsChangedInTheRepository) {
  createClosed(kFirst);
  const auto before = repository_.snapshot();
  start({});
  line();
  EXPECT_EQ(end(SIGTERM), 0);
  EXPECT_EQ(repository_.snapshot(), before);
}

TEST_F(WatchTest, NothingIsLockedOrOpenedForWriting) {
  if (kHasThreadSanitizer) {
    GTEST_SKIP() << "the sanitizer itself opens files for writing";
  }
  createClosed(kFirst);
  const auto written = repository_.create(kSecond);
  ASSERT_TRUE(written->acquireWriteLock(true));
  bool isForbidden = false;
  ToolResult result;
  // The filter stays with the thread.
  std::thread([&] {
    isForbidden = forbidLocksAndWrites();
    result = runTool(repository_.arguments({"watch", "-n", "2"}));
  }).join();
  ASSERT_TRUE(isForbidden);
  EXPECT_EQ(result.status, 0) << result.errors;
  EXPECT_THAT(result.lines(), SizeIs(2));
}

TEST_F(WatchTest, AReportThatIsBeingWrittenIsToldToo) {
  const auto written = repository_.create(kFirst);
  ASSERT_TRUE(written->acquireWriteLock(true));
  start({});
  EXPECT_THAT(line(), HasSubstr(std::string("EXISTING  ") + kFirst));
  ASSERT_TRUE(written->setDescription("changed"));
  EXPECT_THAT(line(), HasSubstr(std::string("UPDATED   ") + kFirst));
}

TEST_F(WatchTest, ADirectoryThatIsMovedAwayIsRemovedAndWhereItComesAdded) {
  createClosed(kFirst);
  const std::filesystem::path aside = repository_.root() / "aside";
  start({});
  line();
  std::filesystem::rename(repository_.root() / kFirst, aside);
  EXPECT_THAT(line(), EndsWith(std::string("REMOVED   ") + kFirst));
  std::filesystem::rename(aside, repository_.root() / kFirst);
  EXPECT_THAT(line(), HasSubstr(std::string("ADDED     ") + kFirst));
  describe(kFirst, "changed");
  EXPECT_THAT(line(), HasSubstr(std::string("UPDATED   ") + kFirst));
}

TEST_F(WatchTest, ADirectoryThatGetsAnotherNameIsAnotherReport) {
  createClosed(kFirst);
  start({});
  line();
  std::filesystem::rename(repository_.root() / kFirst, repository_.root() / kSecond);
  EXPECT_THAT(line(), EndsWith(std::string("REMOVED   ") + kFirst));
  EXPECT_THAT(line(), HasSubstr(std::string("ADDED     ") + kSecond + "  mismatched"));
}

TEST_F(WatchTest, MetadataThatGoesAndComesIsARemovalAndAnAddition) {
  createClosed(kFirst);
  const std::filesystem::path store = repository_.root() / kFirst / "metadata.db";
  const std::filesystem::path aside = repository_.root() / kFirst / "aside";
  start({});
  line();
  std::filesystem::rename(store, aside);
  EXPECT_THAT(line(), EndsWith(std::string("REMOVED   ") + kFirst));
  std::filesystem::rename(aside, store);
  EXPECT_THAT(line(), HasSubstr(std::string("ADDED     ") + kFirst));
  std::filesystem::remove(store);
  EXPECT_THAT(line(), EndsWith(std::string("REMOVED   ") + kFirst));
}

TEST_F(WatchTest, AReportInPlaceOfAnotherIsARemovalAndAnAddition) {
  createClosed(kFirst);
  start({});
  line();
  tool_->signal(SIGSTOP);  // It sees both at once.
  std::filesystem::remove_all(repository_.root() / kFirst);
  createClosed(kFirst);
  tool_->signal(SIGCONT);
  EXPECT_THAT(line(), EndsWith(std::string("REMOVED   ") + kFirst));
  EXPECT_THAT(line(), HasSubstr(std::string("ADDED     ") + kFirst));
  describe(kFirst, "changed");
  EXPECT_THAT(line(), HasSubstr(std::string("UPDATED   ") + kFirst));
}

TEST_F(WatchTest, WhatTheKernelLosesIsLookedFor) {
  createClosed(kFirst);
  createClosed(kSecond);
  start({});
  line();
  line();
  tool_->signal(SIGSTOP);
  fillKernelQueue(repository_.root() / kFirst);
  std::filesystem::remove_all(repository_.root() / kSecond);
  createClosed(kLast);
  tool_->signal(SIGCONT);
  lineWith({std::string("REMOVED   ") + kSecond});
  lineWith({std::string("ADDED     ") + kLast});
  describe(kLast, "changed");
  lineWith({std::string("UPDATED   ") + kLast});
}

TEST_F(WatchTest, ARootThatIsNotThereIsNotFound) {
  const ToolResult result = runTool({"-C", "/nowhere/at/all", "watch"});
  EXPECT_EQ(result.status, 3);
  EXPECT_THAT(result.errors, StartsWith("kelp-diagnostics: cannot read /nowhere/at/all: "));
}

class WatchUsageTest : public WatchTest,
                       public testing::WithParamInterface<std::vector<std::string>> {};

TEST_P(WatchUsageTest, IsRefused) {
  std::vector<std::string> arguments{"watch"};
  arguments.insert(arguments.end(), GetParam().begin(), GetParam().end());
  const ToolResult result = runTool(repository_.arguments(arguments));
  EXPECT_EQ(result.status, 2);
  EXPECT_EQ(result.output, "");
  EXPECT_NE(result.errors, "");
}

INSTANTIATE_TEST_SUITE_P(All, WatchUsageTest,
                         testing::Values(std::vector<std::string>{"xyz"},
                                         std::vector<std::string>{"1111-1111"},
                                         std::vector<std::string>{std::string(kFirst) + "1"},
                                         std::vector<std::string>{""},
                                         std::vector<std::string>{"-n", "0"},
                                         std::vector<std::string>{"-n", "some"},
                                         std::vector<std::string>{"--existing"}));

}  // namespace
}  // namespace KELP::Test
