#include "verbs/program.h"

#include "base/log.h"
#include "base/output.h"
#include "base/text.h"

#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <algorithm>
#include <sstream>
#include <vector>

namespace KELP::Tool {
namespace {

constexpr const char* kSummary = "Look at and keep a repository of diagnostic reports";

constexpr const char* kExamples =
    "Examples:\n"
    "  kelp-diagnostics -C /data/reports list\n"
    "  kelp-diagnostics show 3f2a\n"
    "  kelp-diagnostics cat 3f2a log > log.txt\n"
    "  kelp-diagnostics watch --json\n"
    "\n"
    "Exit status: 0 done, 1 failed, 2 wrong usage, 3 not found, 4 in use, 5 damage found.\n";

/** In front of an argument such as "[a,b]", which would be taken for a list. */
constexpr char kMark = '\x1f';

std::string marked(std::string argument) {
  const bool isListLike = !argument.empty() && argument.front() == '[' && argument.back() == ']';
  if (isListLike || argument.starts_with(kMark)) {
    argument.insert(argument.begin(), kMark);
  }
  return argument;
}

/** The arguments in the order in which the parser wants them, the last first. */
std::vector<std::string> markedArguments(int argc, const char* const* argv) {
  std::vector<std::string> arguments;
  for (int at = argc - 1; at > 0; --at) {
    arguments.push_back(marked(argv[at]));
  }
  return arguments;
}

/** Lets every option of @p app and its subcommands take its arguments as they were given. */
void takeMarksOff(CLI::App& app) {
  std::vector<CLI::App*> left{&app};
  while (!left.empty()) {
    CLI::App* const next = left.back();
    left.pop_back();
    for (CLI::Option* const option : next->get_options()) {
      option->transform(CLI::Validator(
          [](std::string& argument) {
            argument.erase(0, argument.starts_with(kMark) ? 1 : 0);
            return std::string();
          },
          ""));
    }
    for (CLI::App* const subcommand : next->get_subcommands(nullptr)) {
      left.push_back(subcommand);
    }
  }
}

constexpr void (*kVerbs[])(CLI::App&, Context&) = {
    addList,      addShow,   addCat,   addCreate,      addSet,    addProperty,
    addVariation, addAttach, addMark,  addApplyPolicy, addFilter, addWatch,
    addExport,    addRemove, addPrune, addCheck,       addStats,
};

}  // namespace

std::unique_ptr<CLI::App> makeProgram(Context& context) {
  auto program = std::make_unique<CLI::App>(kSummary, "kelp-diagnostics");
  program->footer(kExamples);
  program->require_subcommand(1);
  program->set_help_all_flag("--help-all", "Print the help of all verbs and exit");
  program->add_option("-C", context.root, "The directory of all reports")
      ->type_name("ROOT")
      ->envname("KELP_DIAGNOSTICS_ROOT")
      ->required();
  program->add_flag("-v,--verbose", context.verbose,
                    "Print what the library logs on the standard error");
  for (const auto add : kVerbs) {
    add(*program, context);
  }
  takeMarksOff(*program);
  return program;
}

ExitStatus runProgram(int argc, const char* const* argv) {
  Context context;
  const std::unique_ptr<CLI::App> program = makeProgram(context);
  try {
    program->parse(markedArguments(argc, argv));
  } catch (const CLI::ParseError& error) {
    std::ostringstream out;
    std::ostringstream complaint;
    const bool isHelp = program->exit(error, out, complaint) == 0;
    print(out.str());
    if (isHelp) {
      return ExitStatus::Done;
    }
    std::string text = complaint.str();
    text.erase(text.find_last_not_of('\n') + 1);
    text.erase(std::remove(text.begin(), text.end(), kMark), text.end());
    throw Failure(ExitStatus::Usage, escapedLines(text));
  }
  context.root = std::filesystem::absolute(context.root);
  redirectLog(context.verbose);
  return context.run();
}

}  // namespace KELP::Tool
