// What `check` finds, and that it only looks.

#include "damage.h"
#include "support/childprocess.h"
#include "support/startedby.h"
#include "support/strace.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <set>
#include <sstream>

namespace KELP::Test {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

class Check : public KeepingTest {
 protected:
  /** One report for each way to damage one; the first is healthy. */
  void damageAll() {
    makeReport(repository_, idOf(0));
    for (unsigned number = 0; number < damages().size(); ++number) {
      makeReport(repository_, idOf(number + 1));
      damages()[number].make(repository_, idOf(number + 1));
    }
  }

  void expectFinding(const Json::Value& finding, unsigned number) const {
    const Damage& damage = damages().at(number);
    EXPECT_EQ(finding["report"].asString(), idOf(number + 1));
    EXPECT_EQ(finding["kind"].asString(), damage.kind);
    if (damage.path.find('\x9b') == std::string::npos) {  // Which is no UTF-8.
      EXPECT_EQ(finding["path"].asString(), pathOf(number));
    }
    EXPECT_EQ(finding["detail"].asString(), damage.detail);
    EXPECT_EQ(finding["repaired"], Json::Value(false));
    EXPECT_EQ(finding["left"], Json::Value());
  }

 private:
  [[nodiscard]] std::string pathOf(unsigned number) const {
    const fs::path report = repository_.root() / idOf(number + 1);
    const std::string& path = damages()[number].path;
    const bool isDirectory = path.empty() && damages()[number].kind == "half-made";
    return isDirectory ? report : report / path;
  }
};

TEST_F(Check, FindsEachKindOfDamageAndOnlyThat) {
  damageAll();
  const ToolResult all = run({"check", "--json"});
  EXPECT_EQ(all.status, 5);
  EXPECT_EQ(all.errors, "");
  const Json::Value document = all.json();
  EXPECT_EQ(document["schema"], 1);
  EXPECT_EQ(document["unchecked"], Json::Value(Json::arrayValue));
  ASSERT_EQ(document["findings"].size(), damages().size());
  for (unsigned number = 0; number < damages().size(); ++number) {
    SCOPED_TRACE(damages()[number].name);
    expectFinding(document["findings"][number], number);
    const ToolResult alone = run({"check", "--json", idOf(number + 1)});
    EXPECT_EQ(alone.status, 5);
    EXPECT_EQ(alone.json()["findings"][0], document["findings"][number]);
    EXPECT_EQ(alone.json()["findings"].size(), 1U);
  }
}

TEST_F(Check, TellsOneLineForEachFinding) {
  damageAll();
  const ToolResult result = run({"check"});
  EXPECT_EQ(result.status, 5);
  const std::vector<std::string> lines = result.lines();
  ASSERT_EQ(lines.size(), damages().size() + 1);
  EXPECT_THAT(lines[0], ::testing::MatchesRegex("REPORT +KIND +DETAIL"));
  for (unsigned number = 0; number < damages().size(); ++number) {
    EXPECT_THAT(lines[number + 1], StartsWith(idOf(number + 1) + "  " + damages()[number].kind));
    EXPECT_THAT(lines[number + 1], ::testing::EndsWith("  " + damages()[number].detail));
  }
}

TEST_F(Check, LeavesEverythingAsItIs) {
  damageAll();
  const auto before = repository_.snapshot();
  EXPECT_EQ(run({"check"}).status, 5);
  EXPECT_EQ(repository_.snapshot(), before);
}

TEST_F(Check, FindsNothingInHealthyReports) {
  makeReport(repository_, idOf(1));
  upload(repository_, idOf(1));
  static_cast<void>(repository_.create(idOf(2)));
  const ToolResult text = run({"check"});
  EXPECT_EQ(text.status, 0);
  EXPECT_EQ(text.output, "");
  EXPECT_EQ(text.errors, "");
  const ToolResult json = run({"check", "--json"});
  EXPECT_EQ(json.status, 0);
  EXPECT_EQ(json.json()["findings"], Json::Value(Json::arrayValue));
}

TEST_F(Check, FindsNothingInATornTail) {
  makeReport(repository_, idOf(1));
  const fs::path store = repository_.root() / idOf(1) / "metadata.db";
  const std::string whole = readFile(store);
  for (const std::string& tail : {std::string("\x05\0\0", 3), std::string(4096, '\0')}) {
    writeFile(store, whole + tail);
    EXPECT_EQ(run({"check"}).status, 0);
  }
}

TEST_F(Check, FindsNothingUnderAnEmptyRoot) {
  EXPECT_EQ(run({"check", "--json"}).json()["findings"], Json::Value(Json::arrayValue));
  EXPECT_EQ(run({"check"}).status, 0);
}

TEST_F(Check, FindsSeveralThingsInOneReport) {
  makeReport(repository_, idOf(1));
  const fs::path report = repository_.root() / idOf(1);
  fs::remove(report / "lock");
  fs::remove(report / "metadata.db");
  writeFile(report / "tmp" / "left", "");
  const Json::Value findings = run({"check", "--json"}).json()["findings"];
  ASSERT_EQ(findings.size(), 3U);
  EXPECT_EQ(findings[0]["detail"], "\"lock\" is missing");
  EXPECT_EQ(findings[1]["detail"], "\"metadata.db\" is missing");
  EXPECT_EQ(findings[2]["kind"], "leftover-temporary");
}

TEST_F(Check, FindsWhatIsNoReport) {
  const fs::path& root = repository_.root();
  makeReport(repository_, idOf(1));
  writeFile(root / ".hidden", "");
  fs::create_directory(root / ".directory");
  fs::create_directory(root / "ABCDEFAB-0000-4000-8000-000000000000");
  fs::create_directory(root / "00000000-0000-0000-0000-000000000000");
  fs::create_directory(root / "lost+found");
  fs::create_directory_symlink(root / idOf(1), root / idOf(2));
  writeFile(root / idOf(3), "");
  writeFile(root / "no\x1b[1mtes\n", "");
  ASSERT_EQ(::mkfifo((root / "pipe").c_str(), 0644), 0);
  ASSERT_EQ(::mkfifo((root / idOf(4)).c_str(), 0644), 0);
  makeSocket(root / "socket");
  const ToolResult result = run({"check"});
  EXPECT_EQ(result.status, 5);
  const std::string begin = "-       no-report  ";
  EXPECT_THAT(
      result.lines(),
      ElementsAre("REPORT  KIND       DETAIL",
                  begin + "\"00000000-0000-0000-0000-000000000000\" is a directory with the null "
                          "identifier",
                  begin + "\"" + idOf(2) + "\" is a symbolic link in the place of a report",
                  begin + "\"" + idOf(3) + "\" is a file in the place of a report",
                  begin + "\"" + idOf(4) + "\" is a pipe in the place of a report",
                  begin + "\"ABCDEFAB-0000-4000-8000-000000000000\" is a directory with an "
                          "identifier in upper case",
                  begin + "\"lost+found\" is a directory that is no report",
                  begin + "\"no\\x1b[1mtes\\n\" is a file that is no report",
                  begin + "\"pipe\" is a pipe that is no report",
                  begin + "\"socket\" is a socket that is no report"));
  const Json::Value finding = run({"check", "--json"}).json()["findings"][5];
  EXPECT_EQ(finding["report"], Json::Value());
  EXPECT_EQ(finding["path"], (root / "lost+found").native());
}

TEST_F(Check, LooksOnlyAtTheReportsThatAreNamed) {
  makeReport(repository_, idOf(0x11111111));
  makeReport(repository_, idOf(0x22222222));
  fs::create_directory(repository_.root() / "lost+found");
  fs::remove(repository_.root() / idOf(0x22222222) / "lock");
  EXPECT_EQ(run({"check", "1111"}).status, 0);
  EXPECT_EQ(run({"check", "1111", "2222"}).status, 5);
  EXPECT_EQ(run({"check", "1111", "3333"}).status, 3);
}

TEST_F(Check, FailsWithoutARoot) {
  const ToolResult result = runTool({"-C", "/nowhere/at/all", "check"});
  EXPECT_EQ(result.status, 3);
  EXPECT_EQ(result.output, "");
  EXPECT_THAT(result.errors, HasSubstr("cannot read /nowhere/at/all: No such file or directory"));
}

TEST_F(Check, ExplainsEveryKindInItsHelp) {
  const ToolResult result = run({"check", "--help"});
  EXPECT_EQ(result.status, 0);
  std::set<std::string> kinds{"no-report"};
  for (const Damage& damage : damages()) {
    kinds.insert(damage.kind);
  }
  EXPECT_EQ(kinds.size(), 10U);
  for (const std::string& kind : kinds) {
    EXPECT_THAT(result.output, HasSubstr("\n  " + kind + "\n"));
  }
}

TEST_F(Check, TakesNoLockAndOpensNothingForWriting) {
  if (const std::string why = whyNoStrace(); !why.empty()) GTEST_SKIP() << why;
  damageAll();
  const TemporaryDirectory elsewhere;
  const fs::path trace = elsewhere / "trace";
  ChildProcess run(startedBy(tracer({"-y", "-e", "trace=%file,%desc", "-o", trace}),
                             {toolPath(), "-C", repository_.root(), "check"}));
  ASSERT_EQ(run.wait(), 5);
  std::size_t opened = 0;
  std::istringstream lines(readFile(trace));
  for (std::string line; std::getline(lines, line);) {
    EXPECT_THAT(line, Not(HasSubstr(" flock("))) << line;
    if (line.find(repository_.root()) == std::string::npos) {
      continue;
    }
    ++opened;
    for (const char* const change : {"O_WRONLY", "O_RDWR", "O_CREAT", "O_TRUNC", " unlink",
                                     " rmdir", " rename", " mkdir", " write", " pwrite", "trunc"}) {
      EXPECT_THAT(line, Not(HasSubstr(change)));
    }
  }
  EXPECT_GT(opened, damages().size());
}

TEST_F(Check, EscapesNothingOnATerminalButColoursTheKind) {
  makeReport(repository_, idOf(1));
  writeFile(repository_.root() / idOf(1) / "contentfiles" / "\x1b[2J", "");
  const ToolResult result = runOnTerminal({"check"}, "");
  EXPECT_EQ(result.status, 5);
  EXPECT_THAT(result.output, HasSubstr("\x1b[31morphan-file\x1b[0m"));
  EXPECT_THAT(result.output, HasSubstr("\"contentfiles/\\x1b[2J\" is named by no record"));
  EXPECT_THAT(result.output, Not(HasSubstr("\x1b[2J")));
}

}  // namespace
}  // namespace KELP::Test
