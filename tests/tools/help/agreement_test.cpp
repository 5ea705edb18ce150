// The manual page and both completions know the same verbs, options and stages as the program
// itself.

#include "reports/stage.h"
#include "support/temporarydirectory.h"
#include "verbs/program.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace KELP::Tool {
namespace {

using namespace KELP::Test;

/** The options of each verb, such as "-n" and "--json", by "list" or "property add"; those before
 * the verb by "". */
using Verbs = std::map<std::string, std::set<std::string>>;

std::string source(const std::string& name) {
  return readFile(std::string(KELP_TOOL_SOURCE) + "/" + name);
}

/** Of every verb; but for the program itself. */
const std::set<std::string> kHelp{"-h", "--help", "--help-all"};

void collect(const CLI::App& app, const std::string& name, Verbs& verbs) {
  const auto subcommands = app.get_subcommands([](const CLI::App*) { return true; });
  for (const CLI::App* const subcommand : subcommands) {
    collect(*subcommand, (name.empty() ? "" : name + " ") + subcommand->get_name(), verbs);
  }
  if (!subcommands.empty() && !name.empty()) {
    return;
  }
  std::set<std::string>& options = verbs[name];
  for (const CLI::Option* const option : app.get_options()) {
    for (const std::string& letter : option->get_snames()) {
      options.insert("-" + letter);
    }
    for (const std::string& word : option->get_lnames()) {
      options.insert("--" + word);
    }
  }
  if (!name.empty()) {
    for (const std::string& help : kHelp) {
      options.erase(help);
    }
  }
}

Verbs verbsOfProgram() {
  Context context;
  Verbs verbs;
  collect(*makeProgram(context), "", verbs);
  return verbs;
}

/** In the manual page a verb is a subsection, and an option the tag of a paragraph. */
Verbs verbsOfManual() {
  Verbs verbs;
  std::istringstream lines(source("kelp-diagnostics.1"));
  bool isTag = false;
  bool isAboutOptions = false;
  std::string verb;
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with(".SH ")) {
      isAboutOptions = line == ".SH OPTIONS";
      verb.clear();
    } else if (line.starts_with(".SS ")) {
      isAboutOptions = true;
      verb = line.substr(4);
      verbs[verb];
    } else if (isTag && isAboutOptions) {
      const std::string tag = std::regex_replace(line, std::regex(R"(\\-)"), "-");
      const std::regex option(R"((^|[ "])(--?[a-zA-Z0-9][-a-z]*))");
      for (std::sregex_iterator at(tag.begin(), tag.end(), option), end; at != end; ++at) {
        verbs[verb].insert((*at)[2]);
      }
    }
    isTag = line == ".TP";
  }
  return verbs;
}

/** The entries of a completion's table, one on a line: a verb, perhaps in quotes and brackets, and
 * its words in quotes. */
Verbs verbsOfTable(const std::string& text, const std::regex& entry) {
  Verbs verbs;
  for (std::sregex_iterator at(text.begin(), text.end(), entry), end; at != end; ++at) {
    std::set<std::string>& options = verbs[(*at)[1]];
    std::istringstream words((*at)[2]);
    for (std::string word; words >> word;) {
      if (word.starts_with("-")) {
        options.insert(word.substr(0, word.find_first_of(":=")));
      }
    }
  }
  return verbs;
}

/** The words between what @p before and @p after match in a file of the program, in order. In the
 * manual there are commas between them, and "or" before the last. */
std::vector<std::string> wordsBetween(const std::string& name, const std::string& before,
                                      const std::string& after) {
  const std::string text = source(name);
  std::smatch found;
  if (!std::regex_search(text, found, std::regex(before + "([-a-z,\\s]*)" + after))) {
    ADD_FAILURE() << name << " has no list behind " << before;
    return {};
  }
  std::istringstream listed(std::regex_replace(found[1].str(), std::regex(",|\\bor\\b"), " "));
  std::vector<std::string> words;
  for (std::string word; listed >> word;) {
    words.push_back(word);
  }
  return words;
}

TEST(ToolHelp, TheManualPageAndTheCompletionsKnowEveryStage) {
  const std::vector<std::string> expected = allStageTexts();
  EXPECT_EQ(wordsBetween("kelp-diagnostics.1", "Only those at this stage: ", "\\.\n"), expected);
  EXPECT_EQ(wordsBetween("completion/kelp-diagnostics.bash", "stage\\) found=\\(", "\\)"),
            expected);
  EXPECT_EQ(wordsBetween("completion/_kelp-diagnostics", "stage\\) REPLY='\\(", "\\)'"), expected);
}

TEST(ToolHelp, TheManualPageAgreesWithTheProgram) {
  EXPECT_EQ(verbsOfManual(), verbsOfProgram());
}

TEST(ToolHelp, TheCompletionForBashAgreesWithTheProgram) {
  const std::string text = source("completion/kelp-diagnostics.bash");
  const std::string options = text.substr(0, text.find("_kelp_diagnostics_arguments"));
  Verbs expected = verbsOfProgram();
  expected["-"].swap(expected[""]);
  expected.erase("");
  EXPECT_EQ(verbsOfTable(options, std::regex(R"re(\n  \["([^"]*)"\]="([^"]*)")re")), expected);
}

TEST(ToolHelp, TheCompletionForZshAgreesWithTheProgram) {
  const std::string text = source("completion/_kelp-diagnostics");
  Verbs expected = verbsOfProgram();
  // Those before the verb are not in its table.
  for (const std::string& option : expected[""]) {
    const std::regex mentioned("['{,*]" + option + R"([,}+\[])");
    EXPECT_TRUE(std::regex_search(text, mentioned)) << option;
  }
  expected.erase("");
  EXPECT_EQ(verbsOfTable(text, std::regex(R"re(\n  "?([a-z][a-z -]*[a-z])"? "([^"]*)")re")),
            expected);
}

}  // namespace
}  // namespace KELP::Tool
