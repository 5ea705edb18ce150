// How the words of a command line are taken, whatever the verb.

#include "tools/support/repository.h"
#include "tools/support/tool.h"
#include "verbs/verb.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace KELP::Test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

using Words = std::vector<std::string>;

constexpr const char* kId = "10000000-0000-4000-8000-000000000001";
constexpr const char* kHint = "\nRun with --help for more information.\n";

class CommandLine : public testing::Test {
 protected:
  CommandLine() {
    const auto report = repository_.create(kId);
    static_cast<void>(report->createReportStringProperty("log", {}));
  }

  [[nodiscard]] ToolResult run(const Words& words) const {
    return runTool(repository_.arguments(words));
  }

  /** Expects that it is wrong usage, told by exactly @p message, and that nothing changes. */
  void refuse(const Words& words, const std::string& message) const {
    SCOPED_TRACE(testing::PrintToString(words));
    const auto before = repository_.snapshot();
    const ToolResult result = run(words);
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.output, IsEmpty());
    EXPECT_EQ(result.errors, "kelp-diagnostics: " + message);
    EXPECT_EQ(repository_.snapshot(), before);
  }

  void perform(const Words& words) const {
    SCOPED_TRACE(testing::PrintToString(words));
    const ToolResult result = run(words);
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.errors, IsEmpty());
  }

  [[nodiscard]] Json::Value shown() const { return run({"show", kId, "--json"}).json()["report"]; }

  [[nodiscard]] std::set<std::string> tags() const {
    const auto property = report()->getReportContentProperty("log");
    return property ? property->tags : std::set<std::string>();
  }

  [[nodiscard]] std::unique_ptr<Diagnostic::DiagnosticReport> report() const {
    Diagnostic::ReportUuid id;
    id.parse(kId);
    return repository_.data().openReport(id);
  }

  Repository repository_;
};

TEST_F(CommandLine, TakesIntegersAsDecimalAndNothingElse) {
  struct Option {
    Words words;  ///< The number comes behind them.
    std::string range;
  };
  const std::string count = "0 to 4294967295";
  const std::string integer = "-2147483648 to 2147483647";
  for (const Option& option : std::vector<Option>{{{"list", "-n"}, count},
                                                  {{"watch", "-n"}, "1 to 4294967295"},
                                                  {{"prune", "--dry-run", "--max-count"}, count},
                                                  {{"list", "--app"}, integer},
                                                  {{"create", "--app"}, integer},
                                                  {{"create", "--pid"}, integer},
                                                  {{"set", kId, "--consent"}, integer},
                                                  {{"cat", kId, "log", "--level"}, integer},
                                                  {{"variation", "add", kId, "log"}, integer}}) {
    for (const std::string number :
         {"", "0x3", "0b1", "1e2", "1.0", "+1", " 1", "1 ", "5x", "x", "99999999999", "-2147483649",
          "1'000", "18446744073709551617"}) {
      Words words = option.words;
      words.push_back(number);
      if (words[0] == "variation") {
        words.emplace_back("value");
      }
      refuse(words, "\"" + number + "\" is not an integer from " + option.range + "\n");
    }
  }
  refuse({"list", "-n", "-1"}, "\"-1\" is not an integer from 0 to 4294967295\n");
  refuse({"watch", "-n", "0"}, "\"0\" is not an integer from 1 to 4294967295\n");
}

TEST_F(CommandLine, TakesNoughtsInFrontOfANumberForNothing) {
  static_cast<void>(repository_.createMany(12));
  EXPECT_EQ(run({"list", "--no-legend", "-n", "010"}).lines().size(), 10U);
  EXPECT_EQ(run({"list", "--no-legend", "-n", "4294967295"}).lines().size(), 13U);
  EXPECT_EQ(run({"prune", "--max-count", "010", "--dry-run"}).lines().size(), 3U);
  perform({"variation", "add", kId, "log", "010", "ten"});
  EXPECT_EQ(run({"cat", kId, "log", "--level", "0010"}).output, "ten");
  perform({"variation", "add", "--", kId, "log", "-5", "negative"});
  EXPECT_EQ(run({"cat", kId, "log", "--level", "-5"}).output, "negative");
}

TEST_F(CommandLine, KeepsAnEmptyValueBehindAnEqualsSign) {
  perform({"set", kId, "--description=", "--pid", "5"});
  EXPECT_EQ(shown()["description"], "");
  EXPECT_EQ(shown()["pid"], 5);
  perform({"set", "--process=", kId});
  EXPECT_EQ(shown()["process"], "");
  refuse({"list", "--app=", "7"}, "\"\" is not an integer from -2147483648 to 2147483647\n");
  refuse({"list", "--since=", "--json"}, "--since must not be empty\n");
}

TEST_F(CommandLine, TakesAValueAsItIsWhateverItLooksLike) {
  for (const std::string text : {"--name=", "--description=", "++", "--", "-n", "[a,b]", "\x1f",
                                 "\x1f[x]", "list", "{}", "=", ""}) {
    perform({"set", kId, "--description", text});
    EXPECT_EQ(shown()["description"], text);
    perform({"set", kId, "--description=" + text});
    EXPECT_EQ(shown()["description"], text);
  }
}

TEST_F(CommandLine, TakesArgumentsAsTheyAre) {
  perform({"property", "tag", kId, "log", "++"});
  perform({"property", "tag", kId, "log", "[a,b]", "\x1f"});
  perform({"property", "tag", kId, "log", "--", "--wait=", "--tag=", "--", "++", "-n"});
  EXPECT_EQ(tags(),
            (std::set<std::string>{"++", "[a,b]", "\x1f", "--wait=", "--tag=", "--", "-n"}));
}

TEST_F(CommandLine, RefusesEmptyValuesOfWhatCannotBeEmpty) {
  refuse({"create", "--id", ""}, "--id must not be empty\n");
  refuse({"list", "--since", ""}, "--since must not be empty\n");
  refuse({"list", "--until", ""}, "--until must not be empty\n");
  refuse({"prune", "--max-age", "", "--max-count", "5"}, "--max-age must not be empty\n");
  refuse({"prune", "--max-size=", "--max-count", "5"}, "--max-size must not be empty\n");
  refuse({"attach", kId, "log", "0", ""}, "FILE must not be empty\n");
  refuse({"attach", kId, "log", "0", "/etc/hostname", "--name", ""}, "--name must not be empty\n");
  refuse({"export", kId, "-o", ""}, "--output must not be empty\n");
  refuse({"-C", "", "list"}, "-C must not be empty\n");
  refuse({"mark", kId, ""},
         "\"\" is not one of creation, user-interaction, data-collection, data-policy, upload\n");
  refuse({"property", "add", kId, "x", ""},
         "\"\" is not one of file, string, integer, double, boolean\n");
  refuse({"set", kId, "--pid", "5", "--wait", ""},
         "\"\" is not a span of time such as 90s, 12h or 7d\n");
}

TEST_F(CommandLine, TakesEmptyTexts) {
  const ToolResult created =
      run({"create", "--device", "", "--session", "", "--description", "", "--process", ""});
  EXPECT_EQ(created.status, 0);
  perform({"property", "tag", kId, "log", ""});
  EXPECT_THAT(tags(), ElementsAre(""));
  perform({"variation", "add", kId, "log", "0", ""});
  EXPECT_EQ(shown()["contents"][0]["variations"][0]["value"], "");
}

TEST_F(CommandLine, TakesTheLastOfWhatIsGivenSeveralTimes) {
  static_cast<void>(repository_.createMany(3));
  EXPECT_EQ(run({"list", "--no-legend", "-n", "3", "-n", "1"}).lines().size(), 1U);
  EXPECT_EQ(run({"list", "--no-legend", "--app", "8", "--app=7"}).lines().size(), 4U);
  EXPECT_THAT(run({"list", "--no-legend", "--stage", "creating", "--stage", "uploaded"}).output,
              IsEmpty());
  EXPECT_EQ(run({"list", "--json", "--json", "--utc", "--utc"}).json()["schema"], 1);
  EXPECT_EQ(runTool({"-C", "/no/such", "-C", repository_.root(), "show", kId}).status, 0);
  EXPECT_EQ(runTool({"-C", repository_.root(), "-C", "/no/such", "show", kId}).status, 3);
  perform({"set", kId, "--description", "first", "--description", "second", "--pid", "1", "--pid=2",
           "--library", "a", "--library", "b", "--wait", "1s", "--wait", "2s"});
  EXPECT_EQ(shown()["description"], "second");
  EXPECT_EQ(shown()["pid"], 2);
  EXPECT_EQ(shown()["loaded_libraries"].size(), 2U);
}

TEST_F(CommandLine, NamesTheVerbThatIsNotThere) {
  refuse({"lst"}, std::string("there is no verb \"lst\"; did you mean \"list\"?") + kHint);
  refuse({"lsit", "--json"},
         std::string("there is no verb \"lsit\"; did you mean \"list\"?") + kHint);
  refuse({"frobnicate", "list"}, std::string("there is no verb \"frobnicate\"") + kHint);
  refuse({"property", "ad", kId, "x"},
         std::string("there is no verb \"property ad\"; did you mean \"property add\"?") + kHint);
  refuse({""}, std::string("there is no verb \"\"") + kHint);
  refuse({std::string(100'000, 'x')},
         "there is no verb \"" + std::string(100'000, 'x') + "\"" + kHint);
  refuse({}, std::string("a verb is missing") + kHint);
  refuse({"variation"}, std::string("a verb is missing behind \"variation\"") + kHint);
  EXPECT_THAT(run({"--no-such", "x", "list"}).errors, HasSubstr("--no-such"));
}

TEST_F(CommandLine, WantsARootInOneWayOrTheOther) {
  const std::string message = std::string(
                                  "kelp-diagnostics: no repository is named: give -C ROOT, or set "
                                  "KELP_DIAGNOSTICS_ROOT") +
                              kHint;
  ToolSetting setting;
  EXPECT_EQ(runTool({"list"}, setting).errors, message);
  EXPECT_EQ(runTool({"list"}, setting).status, 2);
  setting.environment["KELP_DIAGNOSTICS_ROOT"] = "";
  EXPECT_EQ(runTool({"list"}, setting).errors, message);
  setting.environment["KELP_DIAGNOSTICS_ROOT"] = repository_.root();
  EXPECT_EQ(runTool({"show", kId}, setting).status, 0);
  EXPECT_EQ(runTool({"-C", "/no/such", "show", kId}, setting).status, 3);
}

TEST_F(CommandLine, PrintsTheVersion) {
  for (const Words& words : {Words{"--version"}, Words{"-C", "/no/such", "--version"}}) {
    const ToolResult result = runTool(words);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, "kelp-diagnostics " KELP_PROJECT_VERSION "\n");
    EXPECT_THAT(result.errors, IsEmpty());
  }
}

TEST_F(CommandLine, EscapesWhatItRepeatsInMessages) {
  const std::string fake = "x\nkelp-diagnostics: removed everything\x1b[2J";
  const std::string harmless = "x\\nkelp-diagnostics: removed everything\\x1b[2J";
  for (const Words& words : std::vector<Words>{{fake},
                                               {"list", fake},
                                               {"list", "--" + fake},
                                               {"list", "-" + fake},
                                               {"list", "--json=" + fake},
                                               {"list", "-n", fake},
                                               {"list", "--app=" + fake},
                                               {"list", "--stage", fake},
                                               {"list", "--since", fake},
                                               {"prune", "--max-size", fake},
                                               {"prune", "--max-age", fake},
                                               {"create", "--id", fake},
                                               {"property", fake},
                                               {"property", "add", kId, "x", fake},
                                               {"mark", kId, fake},
                                               {"set", kId, "--pid", "1", "--wait", fake},
                                               {"export", kId, "-o", fake}}) {
    SCOPED_TRACE(testing::PrintToString(words));
    const ToolResult result = run(words);
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.errors, HasSubstr(harmless));
    EXPECT_THAT(result.errors, Not(HasSubstr("\nkelp-diagnostics: ")));
    EXPECT_THAT(result.errors, Not(HasSubstr("\x1b")));
  }
}

TEST_F(CommandLine, TakesLetterOptionsTogetherAndWithTheirValues) {
  const std::string root = repository_.root();
  EXPECT_EQ(runTool({"-vC" + root, "show", kId}).status, 0);
  EXPECT_EQ(runTool({"-vC", root, "show", kId}).status, 0);
  EXPECT_EQ(run({"list", "--no-legend", "-n0"}).output, "");
  refuse({"list", "-n[1]"}, "\"[1]\" is not an integer from 0 to 4294967295\n");
}

TEST_F(CommandLine, RemovesNothingForASizeThatIsNone) {
  for (const std::string size : {"1e-5", "0.1", "inf", "1KB", "-1"}) {
    refuse({"prune", "--max-size", size}, "\"" + size + "\" is not a size such as 500K or 2MiB\n");
  }
}

TEST_F(CommandLine, RefusesLongTimesWithoutHarm) {
  const std::string digits = "2026-03-01T12:00:00." + std::string(120'000, '1') + "Z";
  refuse({"list", "--since", digits}, "\"" + digits +
                                          "\" is not a time such as 2026-03-01T12:30:00Z, "
                                          "2026-03-01 or 7d (ago)\n");
}

TEST_F(CommandLine, WaitsAtOnceForWhatIsFreeHoweverLongItMay) {
  perform({"set", kId, "--pid", "1", "--wait", "1000000000w"});
  perform({"set", kId, "--pid", "2", "--wait", "20000w"});
  const TemporaryDirectory directory;
  perform({"export", kId, "-o", directory / "a.zip", "--wait", "1000000000w"});
}

TEST_F(CommandLine, WaitsAYearAtMost) {
  constexpr long kYear = 365 * 86'400'000L;
  for (const auto& [span, expected] :
       std::vector<std::pair<std::string, long>>{{"364d", kYear - 86'400'000},
                                                 {"365d", kYear},
                                                 {"366d", kYear},
                                                 {"20000w", kYear},
                                                 {"1000000000w", kYear},
                                                 {"1000000000ms", 1'000'000'000},
                                                 {"0s", 0}}) {
    CLI::App verb;
    long waitMs = -1;
    Tool::addWait(verb, waitMs);
    verb.parse("--wait " + span);
    EXPECT_EQ(waitMs, expected) << span;
  }
}

TEST_F(CommandLine, WaitsForMilliseconds) {
  const auto holder = report();
  ASSERT_TRUE(holder->acquireWriteLock(false));
  const ToolResult result = run({"set", kId, "--pid", "1", "--wait", "20ms"});
  EXPECT_EQ(result.status, 4);
  EXPECT_THAT(result.errors, HasSubstr("in use by another process"));
}

}  // namespace
}  // namespace KELP::Test
