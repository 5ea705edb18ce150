// `remove`.

#include "damage.h"
#include "support/childprocess.h"
#include "support/waituntil.h"
#include "tools/support/otheruser.h"

#include <gmock/gmock.h>
#include <json/reader.h>
#include <unistd.h>

#include <csignal>
#include <iterator>
#include <sstream>

namespace KELP::Test {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

const std::string kFirst = idOf(0x11111111);
const std::string kSecond = idOf(0x22222222);
const std::string kThird = idOf(0x33333333);

class Remove : public KeepingTest {
 protected:
  Remove() {
    for (const std::string& id : {kFirst, kSecond, kThird}) {
      makeReport(repository_, id);
    }
  }

  void damage(const std::string& id) const {
    writeFile(repository_.root() / id / "metadata.db", "this is no store of keys");
  }
};

TEST_F(Remove, RemovesReportsWithoutAskingWhenThereIsNoTerminal) {
  const ToolResult result = run({"remove", "2222", "1111"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.output, "removed " + kFirst + "\nremoved " + kSecond + "\n");
  EXPECT_EQ(result.errors, "");
  EXPECT_THAT(names(), ElementsAre(kThird));
}

TEST_F(Remove, TakesAReportThatIsNamedTwiceForOne) {
  const ToolResult result = run({"remove", "1111", kFirst});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.output, "removed " + kFirst + "\n");
}

TEST_F(Remove, AsksOnATerminal) {
  repository_.writeKey(kFirst, "process_name", "\x1b[2J");
  const ToolResult result = runOnTerminal({"remove", "1111", "2222"}, "y\n");
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.output, HasSubstr("  " + kFirst + "  creating  \\x1b[2J\r\n  " + kSecond +
                                       "  creating\r\nRemove 2 reports? [y/N] "));
  EXPECT_THAT(result.output, HasSubstr("removed " + kFirst + "\r\nremoved " + kSecond + "\r\n"));
  EXPECT_THAT(names(), ElementsAre(kThird));
}

TEST_F(Remove, RemovesNothingUnlessTheAnswerIsYes) {
  for (const char* const answer : {"n\n", "\n", "no\n", "x\n", "\x04"}) {
    const ToolResult result = runOnTerminal({"remove", "1111"}, answer);
    EXPECT_EQ(result.status, 1) << answer;
    EXPECT_THAT(result.output, HasSubstr("Remove 1 report? [y/N] "));
    EXPECT_THAT(result.output, HasSubstr("kelp-diagnostics: nothing was removed\r\n"));
  }
  EXPECT_EQ(names().size(), 3U);
}

TEST_F(Remove, EndsWithoutRemovingWhenItIsInterruptedWhileAsking) {
  ToolSetting setting;
  setting.input = "\x03";
  setting.awaited = "[y/N]";
  const ToolResult result = runToolOnTerminal(repository_.arguments({"remove", "1111"}), setting);
  EXPECT_EQ(result.status, 128 + SIGINT);
  EXPECT_EQ(names().size(), 3U);
}

TEST_F(Remove, DoesNotAskWithY) {
  const ToolResult result = runOnTerminal({"remove", "-y", "1111"}, "");
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.output, "removed " + kFirst + "\r\n");
}

TEST_F(Remove, RemovesNothingWhenAReportIsNotFound) {
  const ToolResult result = run({"remove", "1111", "4444"});
  EXPECT_EQ(result.status, 3);
  EXPECT_EQ(result.output, "");
  EXPECT_EQ(result.errors, "kelp-diagnostics: there is no report \"4444\"\n");
  EXPECT_EQ(names().size(), 3U);
}

TEST_F(Remove, RemovesNothingWhenAPrefixHasSeveralReports) {
  makeReport(repository_, idOf(0x11111112));
  EXPECT_EQ(run({"remove", "2222", "1111"}).status, 2);
  EXPECT_EQ(names().size(), 4U);
}

TEST_F(Remove, WantsAReport) {
  EXPECT_EQ(run({"remove"}).status, 2);
  EXPECT_EQ(run({"remove", ""}).status, 3);
  EXPECT_EQ(names().size(), 3U);
}

TEST_F(Remove, LeavesAReportThatIsInUse) {
  const auto holder = hold(repository_, kFirst);
  for (const bool reads : {false, true}) {
    if (reads) {
      ASSERT_TRUE(holder->acquireReadLock(false));
    }
    const ToolResult result = run({"remove", "--force", "1111"});
    EXPECT_EQ(result.status, 4);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.errors,
              "kelp-diagnostics: the report " + kFirst + " was not removed: in use\n");
  }
  EXPECT_EQ(names().size(), 3U);
}

TEST_F(Remove, LeavesWhatIsBeingCreatedAlsoByForce) {
  const auto creator = hold(repository_, kFirst);
  fs::remove(repository_.root() / kFirst / "metadata.db");
  EXPECT_EQ(run({"remove", "--force", "1111"}).status, 4);
  EXPECT_TRUE(exists(kFirst));
}

TEST_F(Remove, RemovesTheOthersWhenOneIsInUse) {
  const auto holder = hold(repository_, kFirst);
  damage(kSecond);
  const ToolResult result = run({"remove", "1111", "2222", "3333"});
  EXPECT_EQ(result.status, 4);
  EXPECT_EQ(result.output, "removed " + kThird + "\n");
  EXPECT_THAT(result.errors, HasSubstr(kFirst + " was not removed: in use\n"));
  EXPECT_THAT(result.errors, HasSubstr(kSecond + " was not removed: damaged (--force removes it"));
  EXPECT_THAT(names(), ElementsAre(kFirst, kSecond));
}

TEST_F(Remove, LeavesWhatIsDamagedUnlessForced) {
  damage(kFirst);
  fs::remove(repository_.root() / kSecond / "lock");
  repository_.writeKey(kThird, "report_id", kFirst);
  const ToolResult refused = run({"remove", "1111", "2222", "3333"});
  EXPECT_EQ(refused.status, 5);
  EXPECT_EQ(refused.output, "");
  const std::string hint = " (--force removes it all the same)\n";
  EXPECT_EQ(refused.errors,
            "kelp-diagnostics: the report " + kFirst + " was not removed: damaged" + hint +
                "kelp-diagnostics: the report " + kSecond + " was not removed: half-made" + hint +
                "kelp-diagnostics: the report " + kThird + " was not removed: mismatched" + hint);
  EXPECT_EQ(names().size(), 3U);
  const ToolResult forced = run({"remove", "--force", "1111", "2222", "3333"});
  EXPECT_EQ(forced.status, 0);
  EXPECT_EQ(forced.errors, "");
  EXPECT_THAT(names(), IsEmpty());
}

TEST_F(Remove, RemovesEveryKindOfDamagedReportByForce) {
  std::vector<std::string> arguments{"remove", "--force", kFirst, kSecond, kThird};
  for (unsigned number = 0; number < damages().size(); ++number) {
    makeReport(repository_, idOf(number));
    damages()[number].make(repository_, idOf(number));
    arguments.push_back(idOf(number));
    // Directories in the places of files are removed only when they are empty.
    for (const char* const inside : {"lock/inside", "metadata.db/inside"}) {
      std::error_code ignored;
      fs::remove(repository_.root() / idOf(number) / inside, ignored);
    }
  }
  const ToolResult result = run(arguments);
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.errors, "");
  EXPECT_EQ(result.lines().size(), damages().size() + 3);
  EXPECT_THAT(names(), IsEmpty());
}

TEST_F(Remove, TellsWhatForceCouldNotRemove) {
  fs::remove(repository_.root() / kFirst / "lock");
  fs::create_directories(repository_.root() / kFirst / "lock" / "inside");
  const ToolResult result = run({"remove", "--force", "1111"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.errors, "kelp-diagnostics: the report " + kFirst +
                               " was not removed: Failed to remove lock file from report while "
                               "force deleting: Directory not empty\n");
  EXPECT_TRUE(exists(kFirst));
}

TEST_F(Remove, NeverTouchesWhatALinkLeadsTo) {
  const TemporaryDirectory elsewhere;
  writeFile(elsewhere / "lock", "");
  writeFile(elsewhere / "metadata.db", "data");
  const std::string out = idOf(0x44444444);
  const std::string toAnother = idOf(0x55555555);
  fs::create_directory_symlink(elsewhere.path(), repository_.root() / out);
  fs::create_directory_symlink(repository_.root() / kFirst, repository_.root() / toAnother);
  const auto before = repository_.snapshot();
  for (const std::string& link : {out, toAnother}) {
    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{"remove", link}, {"remove", "--force", link}}) {
      const ToolResult result = run(arguments);
      EXPECT_EQ(result.status, 3);
      EXPECT_EQ(result.errors, "kelp-diagnostics: there is no report \"" + link + "\"\n");
    }
  }
  EXPECT_EQ(repository_.snapshot(), before);
  EXPECT_EQ(readFile(elsewhere / "metadata.db"), "data");
}

TEST_F(Remove, SaysWhyAReportMayNotBeRemoved) {
  fs::permissions(repository_.root().parent_path(), fs::perms(0755));
  fs::permissions(repository_.root(), fs::perms(0777));
  fs::permissions(repository_.root() / kFirst / "metadata.db", fs::perms(0600));
  const auto unreadable = runToolAsNobody(repository_.arguments({"remove", "--force", kFirst}));
  if (!unreadable) {
    GTEST_SKIP() << "only root can become another user";
  }
  EXPECT_EQ(unreadable->status, 1);
  EXPECT_EQ(unreadable->errors,
            "kelp-diagnostics: the report " + kFirst + " was not removed: Permission denied\n");
  EXPECT_TRUE(fs::exists(repository_.root() / kFirst / "metadata.db"));
}

TEST(RemoveOfMany, TellsWhatItHasRemovedWhenItIsInterrupted) {
  constexpr std::size_t kMany = 1000;
  const TemporaryInMemory inMemory;
  const Repository repository;
  std::vector<std::string> command = repository.arguments({"remove", "-y", "--json"});
  command.insert(command.begin(), toolPath());
  const std::vector<std::string> ids = repository.createMany(kMany);
  command.insert(command.end(), ids.begin(), ids.end());
  const auto left = [&] {
    return static_cast<std::size_t>(
        std::distance(fs::directory_iterator(repository.root()), fs::directory_iterator()));
  };
  ChildProcess tool(command);
  ASSERT_TRUE(waitUntil([&] { return left() < kMany; }));
  tool.signal(SIGINT);
  std::string document;
  while (const auto line = tool.receive()) {
    document += *line;
  }
  EXPECT_EQ(tool.wait(), 128 + SIGINT);
  Json::Value value;
  std::istringstream stream(document);
  stream >> value;
  EXPECT_GT(left(), 0U);
  EXPECT_EQ(value["removed"].size(), kMany - left());
}

TEST_F(Remove, SaysThatAPartIsLeft) {
  fs::permissions(repository_.root().parent_path(), fs::perms(0755));
  fs::permissions(repository_.root(), fs::perms(0777));
  // All is this user's, but for the directory of a file.
  const fs::path directory = repository_.root() / kFirst;
  constexpr uid_t kNobody = 65534;
  for (const char* const name : {"", "lock", "metadata.db", "contentfiles"}) {
    if (::chown((directory / name).c_str(), kNobody, kNobody) != 0) {
      GTEST_SKIP() << "only root can give files away";
    }
  }
  const auto result = runToolAsNobody(repository_.arguments({"remove", kFirst}));
  if (!result) {
    GTEST_SKIP() << "only root can become another user";
  }
  EXPECT_EQ(result->status, 1);
  EXPECT_THAT(result->errors, HasSubstr("; a part of it is left\n"));
  EXPECT_THAT(result->errors, Not(HasSubstr("--force")));
  EXPECT_TRUE(fs::exists(directory / "contentfiles" / "log"));
}

TEST_F(Remove, PrintsOneDocument) {
  const auto holder = hold(repository_, kFirst);
  damage(kSecond);
  const ToolResult result = run({"remove", "--json", "1111", "2222", "3333"});
  EXPECT_EQ(result.status, 4);
  const Json::Value document = result.json();
  EXPECT_EQ(document["schema"], 1);
  ASSERT_EQ(document["removed"].size(), 1U);
  EXPECT_EQ(document["removed"][0]["id"], kThird);
  ASSERT_EQ(document["failed"].size(), 2U);
  EXPECT_EQ(document["failed"][0]["id"], kFirst);
  EXPECT_EQ(document["failed"][0]["reason"], "busy");
  EXPECT_EQ(document["failed"][0]["message"], "in use");
  EXPECT_EQ(document["failed"][1]["reason"], "damaged");
}

TEST_F(Remove, FailsWithoutARoot) {
  EXPECT_EQ(runTool({"-C", "/nowhere/at/all", "remove", "1"}).status, 3);
}

}  // namespace
}  // namespace KELP::Test
