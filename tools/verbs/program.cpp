#include "verbs/program.h"

#include "base/log.h"
#include "base/output.h"
#include "base/text.h"
#include "verbs/argument.h"
#include "verbs/commandline.h"

#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

namespace KELP::Tool {
namespace {

constexpr const char* kSummary = "Look at and keep a repository of diagnostic reports";

constexpr const char* kRootVariable = "KELP_DIAGNOSTICS_ROOT";

constexpr const char* kExamples =
    "Examples:\n"
    "  kelp-diagnostics -C /data/reports list\n"
    "  kelp-diagnostics show 3f2a\n"
    "  kelp-diagnostics cat 3f2a log > log.txt\n"
    "  kelp-diagnostics watch --json\n"
    "\n"
    "Exit status: 0 done, 1 failed, 2 wrong usage, 3 not found, 4 in use, 5 damage found.\n";

/** Sets what all options of @p program and its verbs have in common. */
void prepareOptions(CLI::App& program) {
  std::vector<CLI::App*> left{&program};
  while (!left.empty()) {
    CLI::App* const app = left.back();
    left.pop_back();
    for (CLI::Option* const option : app->get_options()) {
      takeMarkOff(*option);
      if (option->nonpositional() && option->get_items_expected_max() == 1) {
        option->take_last();  // An alias may have given the others.
      }
    }
    for (CLI::App* const verb : app->get_subcommands(nullptr)) {
      left.push_back(verb);
    }
  }
}

constexpr void (*kVerbs[])(CLI::App&, Context&) = {
    addList,      addShow,   addCat,   addCreate,      addSet,    addProperty,
    addVariation, addAttach, addMark,  addApplyPolicy, addFilter, addWatch,
    addExport,    addRemove, addPrune, addCheck,       addStats,
};

[[noreturn]] void failAsUsage(const std::string& message) {
  throw Failure(ExitStatus::Usage, message + "\nRun with --help for more information.");
}

}  // namespace

std::unique_ptr<CLI::App> makeProgram(Context& context) {
  auto program = std::make_unique<CLI::App>(kSummary, "kelp-diagnostics");
  program->footer(kExamples);
  program->require_subcommand(1);
  program->set_help_all_flag("--help-all", "Print the help of all verbs and exit");
  program->set_version_flag("--version", "kelp-diagnostics " KELP_VERSION,
                            "Print the version and exit");
  addWord(*program, "-C", context.root, "The directory of all reports")
      ->type_name("ROOT")
      ->envname(kRootVariable);
  program->add_flag("-v,--verbose", context.verbose,
                    "Print what the library logs on the standard error");
  for (const auto add : kVerbs) {
    add(*program, context);
  }
  prepareOptions(*program);
  return program;
}

ExitStatus runProgram(int argc, const char* const* argv) {
  Context context;
  const std::unique_ptr<CLI::App> program = makeProgram(context);
  const CommandLine line(*program, argc, argv);
  try {
    program->parse(line.argumentsForParser());
  } catch (const CLI::ParseError& error) {
    std::ostringstream out;
    std::ostringstream complaint;
    if (program->exit(error, out, complaint) != 0) {
      const std::string aboutVerb = line.complaintAboutVerb();
      failAsUsage(aboutVerb.empty() ? escaped(withoutMarks(error.what())) : aboutVerb);
    }
    print(out.str());
    return ExitStatus::Done;
  }
  if (context.root.empty()) {
    failAsUsage(std::string("no repository is named: give -C ROOT, or set ") + kRootVariable);
  }
  context.root = std::filesystem::absolute(context.root);
  redirectLog(context.verbose);
  return context.run();
}

}  // namespace KELP::Tool
