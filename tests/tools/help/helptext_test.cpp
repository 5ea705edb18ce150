#include "tools/support/tool.h"
#include "verbs/program.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace KELP::Test {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

/** Every verb as it is typed, those with a second word too. */
std::vector<std::vector<std::string>> allVerbs() {
  Tool::Context context;
  const auto program = Tool::makeProgram(context);
  std::vector<std::vector<std::string>> verbs;
  const auto all = [](const CLI::App*) { return true; };
  for (const CLI::App* const verb : program->get_subcommands(all)) {
    verbs.push_back({verb->get_name()});
    for (const CLI::App* const second : verb->get_subcommands(all)) {
      verbs.push_back({verb->get_name(), second->get_name()});
    }
  }
  return verbs;
}

TEST(ToolHelpText, OfEveryVerbHasExamplesAndNeedsNoRepository) {
  for (std::vector<std::string> verb : allVerbs()) {
    SCOPED_TRACE(verb.back());
    verb.emplace_back("--help");
    const ToolResult help = runTool(verb);
    EXPECT_EQ(help.status, 0);
    EXPECT_THAT(help.errors, IsEmpty());
    EXPECT_THAT(help.output, HasSubstr("Examples:\n  kelp-diagnostics "));
  }
}

TEST(ToolHelpText, OfTheProgramNamesEveryVerbAndTheExitStatuses) {
  const ToolResult help = runTool({"--help"});
  EXPECT_EQ(help.status, 0);
  for (const std::vector<std::string>& verb : allVerbs()) {
    if (verb.size() == 1) {
      EXPECT_THAT(help.output, HasSubstr("\n  " + verb[0] + " "));
    }
  }
  EXPECT_THAT(help.output,
              HasSubstr("Exit status: 0 done, 1 failed, 2 wrong usage, 3 not found, 4 in use, 5 "
                        "damage found."));
}

TEST(ToolHelpText, OfAVerbWithASecondWordHasExamplesOfItsOwn) {
  for (const std::string verb : {"property", "variation"}) {
    const std::string help = runTool({verb, "--help"}).output;
    const std::string examples = help.substr(help.find("Examples:"));
    EXPECT_THAT(examples, HasSubstr("  kelp-diagnostics " + verb + " add "));
    EXPECT_THAT(examples, Not(HasSubstr("watch")));
  }
}

TEST(ToolHelpText, SaysWhatIsNeeded) {
  EXPECT_THAT(runTool({"--help"}).output, HasSubstr("-C ROOT (Env:KELP_DIAGNOSTICS_ROOT)"));
  EXPECT_THAT(runTool({"watch", "--help"}).output, HasSubstr("one JSON document on each line"));
  EXPECT_THAT(runTool({"list", "--help"}).output, HasSubstr("awaiting-consent, awaiting-policy"));
}

TEST(ToolHelpText, PointsToItselfAfterWrongUsage) {
  for (const std::vector<std::string>& arguments :
       std::vector<std::vector<std::string>>{{},
                                             {"-C", "/tmp"},
                                             {"-C", "/tmp", "no-such-verb"},
                                             {"-C", "/tmp", "list", "--no-such-option"},
                                             {"-C", "/tmp", "show"},
                                             {"list"}}) {
    const ToolResult result = runTool(arguments);
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.output, IsEmpty());
    EXPECT_THAT(result.errors, HasSubstr("kelp-diagnostics: "));
    EXPECT_THAT(result.errors, HasSubstr("--help"));
    EXPECT_THAT(result.errors, Not(HasSubstr("\n\n")));
  }
}

}  // namespace
}  // namespace KELP::Test
