// Verbs that only read change nothing, lock nothing, and need no permission to write.

#include "tools/reading/readingfixture.h"
#include "tools/support/otheruser.h"
#include "tools/support/systemcallfilter.h"

#include <diagnostic/diagnosticreport.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

namespace KELP::Test {
namespace {

namespace fs = std::filesystem;

struct Reading {
  const char* name;
  std::vector<std::string> arguments;
  int status = 0;
};

std::ostream& operator<<(std::ostream& out, const Reading& reading) {
  return out << reading.name;
}

class ReadingVerb : public ReadingTest, public testing::WithParamInterface<Reading> {
 protected:
  ReadingVerb() {
    make(kFirst);
    {
      const auto report = open(kFirst);
      report->createReportStringProperty("note", {});
      report->addReportStringVariation("note", 0, "value", false);
      addFile(*report, "log", "content", {10});
    }
    repository_.writeKey(kFirst, "modified", "1000000000");  // Its age stays the same for a while.
    makeDamaged(kSecond);
    makeHalf(kThird);
  }
};

TEST_P(ReadingVerb, ChangesNothing) {
  const auto before = repository_.snapshot();
  const ToolResult result = run(GetParam().arguments);
  EXPECT_EQ(result.status, GetParam().status) << result.errors;
  EXPECT_NE(result.output, "");
  EXPECT_EQ(repository_.snapshot(), before);
}

TEST_P(ReadingVerb, LocksNothingAndOpensNothingForWriting) {
  const ToolResult expected = run(GetParam().arguments);
  bool isForbidden = false;
  ToolResult result;
  // The filter stays with the thread.
  std::thread([&] {
    isForbidden = forbidLocksAndWrites();
    result = run(GetParam().arguments);
  }).join();
  ASSERT_TRUE(isForbidden);
  EXPECT_EQ(result.status, GetParam().status) << result.errors;
  EXPECT_EQ(result.output, expected.output);
}

TEST_P(ReadingVerb, DoesNotWaitForAWriter) {
  const auto first = open(kFirst);
  const int store = ::open(storeOf(kFirst).c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_EQ(::flock(store, LOCK_EX), 0);  // Somebody is in the middle of a change.
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(run(GetParam().arguments).status, GetParam().status);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));
  ::close(store);
}

TEST_P(ReadingVerb, NeedsNoPermissionToWrite) {
  fs::permissions(repository_.root().parent_path(), fs::perms(0755));
  bool mayWrite = true;
  const auto result = runToolAsNobody(repository_.arguments(GetParam().arguments), [&] {
    mayWrite = ::access(repository_.root().c_str(), W_OK) == 0 ||
               ::access(storeOf(kFirst).c_str(), W_OK) == 0;
  });
  if (!result) {
    GTEST_SKIP() << "only root can become another user, who may run " << toolPath();
  }
  ASSERT_FALSE(mayWrite);
  EXPECT_EQ(result->status, GetParam().status) << result->errors;
  EXPECT_EQ(result->output, run(GetParam().arguments).output);
}

INSTANTIATE_TEST_SUITE_P(
    All, ReadingVerb,
    testing::Values(Reading{"List", {"list"}}, Reading{"ListJson", {"list", "--json"}},
                    Reading{"Show", {"show", kFirst, "--all-levels", "--utc"}},
                    Reading{"ShowDamaged", {"show", kSecond}, 5},
                    Reading{"ShowHalfMade", {"show", kThird}, 5},
                    Reading{"CatValue", {"cat", kFirst, "note"}},
                    Reading{"CatFile", {"cat", kFirst, "log"}}, Reading{"Stats", {"stats"}},
                    Reading{"StatsJson", {"stats", "--json"}}, Reading{"Check", {"check"}, 5},
                    Reading{"CheckJson", {"check", "--json"}, 5}),
    [](const auto& test) { return test.param.name; });

class UnreadableReport : public ReadingTest {
 protected:
  UnreadableReport() {
    make(kFirst);
    make(kSecond);
    fs::permissions(repository_.root().parent_path(), fs::perms(0755));
  }

  /** Runs as a user who may not read all. */
  [[nodiscard]] std::optional<ToolResult> runAsNobody(
      const std::vector<std::string>& arguments) const {
    return runToolAsNobody(repository_.arguments(arguments));
  }
};

TEST_F(UnreadableReport, IsListedAsSuchWhateverMayNotBeRead) {
  fs::permissions(repository_.root() / kFirst, fs::perms(0700));
  fs::permissions(storeOf(kSecond), fs::perms(0600));
  const auto result = runAsNobody({"list", "--no-legend"});
  if (!result) {
    GTEST_SKIP() << "only root can become another user";
  }
  EXPECT_EQ(result->status, 0);
  EXPECT_THAT(result->lines(), testing::SizeIs(2));
  EXPECT_THAT(result->lines(), testing::Each(testing::HasSubstr("  unreadable  ")));
}

TEST_F(UnreadableReport, IsNotTakenForADamagedOneByThoseThatLookIntoIt) {
  fs::permissions(storeOf(kFirst), fs::perms(0600));
  const auto shown = runAsNobody({"show", kFirst});
  if (!shown) {
    GTEST_SKIP() << "only root can become another user";
  }
  EXPECT_EQ(shown->status, 1);
  EXPECT_THAT(shown->output, testing::HasSubstr("unreadable (Permission denied)"));
  const auto written = runAsNobody({"cat", kFirst, "note"});
  EXPECT_EQ(written->status, 1);
  EXPECT_EQ(written->errors, std::string("kelp-diagnostics: cannot read the report ") + kFirst +
                                 ": Permission denied\n");
}

// The filter of LocksNothingAndOpensNothingForWriting sees what it is there for.
TEST(SystemCallFilter, EndsWhoLocksOrWrites) {
  const TemporaryDirectory directory;
  const std::string path = (directory / "file").native();
  writeFile(path, "");
  const std::pair<const char*, void (*)(const std::string&)> calls[] = {
      {"flock",
       [](const std::string& file) {
         ::flock(::open(file.c_str(), O_RDONLY | O_CLOEXEC), LOCK_SH);
       }},
      {"open for writing",
       [](const std::string& file) { ::open(file.c_str(), O_WRONLY | O_CLOEXEC); }},
      {"open for both", [](const std::string& file) { ::open(file.c_str(), O_RDWR | O_CLOEXEC); }},
      {"create",
       [](const std::string& file) {
         ::open((file + "2").c_str(), O_RDONLY | O_CREAT | O_CLOEXEC, 0600);
       }},
      {"unlink", [](const std::string& file) { ::unlink(file.c_str()); }},
  };
  for (const auto& [name, call] : calls) {
    const pid_t child = ::fork();
    if (child == 0) {
      if (forbidLocksAndWrites()) {
        call(path);
      }
      ::_exit(0);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGSYS) << name;
  }
}

}  // namespace
}  // namespace KELP::Test
