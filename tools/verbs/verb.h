#pragma once

#include "base/failure.h"

#include <CLI/App.hpp>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <utility>

/**
 * The verbs. Each is one source file with its options, a function that does it, and a function,
 * named here, that adds it to the program:
 *
 *     void addList(CLI::App& program, Context& context) {
 *       const auto verb = addVerb<ListOptions>(program, context, "list", "List the reports",
 *                                              "  kelp-diagnostics list\n", list);
 *       addCount(*verb.app, "-n", verb->limit, 0, "At most so many");
 *     }
 */
namespace KELP::Tool {

/** What the options before the verb say, and what the verb leaves to main(). */
struct Context {
  std::filesystem::path root;  ///< Absolute.
  bool json = false;
  bool utc = false;
  bool verbose = false;
  std::function<ExitStatus()> run;  ///< The verb that was given.
};

/** A verb that is being added: its command line, and what that fills. */
template <typename Options>
struct Verb {
  CLI::App* app;
  std::shared_ptr<Options> options;

  Options* operator->() const { return options.get(); }
};

/**
 * Adds a verb to @p program.
 *
 * @param name    what is typed.
 * @param summary one line for `--help`, without a full stop.
 * @param example lines for the end of the verb's `--help`.
 * @param run     does it; called with the context and the options.
 */
template <typename Options>
Verb<Options> addVerb(CLI::App& program, Context& context, const std::string& name,
                      const std::string& summary, const std::string& example,
                      ExitStatus (*run)(const Context&, const Options&)) {
  CLI::App* const app = program.add_subcommand(name, summary);
  app->footer("Examples:\n" + example);
  auto options = std::make_shared<Options>();
  app->callback([&context, options, run] {
    context.run = [&context, options, run] { return run(context, *options); };
  });
  return {app, options};
}

/** Adds the option --json to a verb that can print a document. */
void addJson(CLI::App& verb, Context& context);
/** Adds --utc to a verb that prints or takes times. */
void addUtc(CLI::App& verb, Context& context);
/** Adds the argument ID. */
void addId(CLI::App& verb, std::string& id);
/** Adds the option --wait SPAN: how long to wait for a report that is in use. @p waitMs is in
 *  milliseconds, 0 at first, a year at most. */
void addWait(CLI::App& verb, long& waitMs);

void addList(CLI::App& program, Context& context);
void addShow(CLI::App& program, Context& context);
void addCat(CLI::App& program, Context& context);
void addCreate(CLI::App& program, Context& context);
void addSet(CLI::App& program, Context& context);
void addProperty(CLI::App& program, Context& context);
void addVariation(CLI::App& program, Context& context);
void addAttach(CLI::App& program, Context& context);
void addMark(CLI::App& program, Context& context);
void addApplyPolicy(CLI::App& program, Context& context);
void addFilter(CLI::App& program, Context& context);
void addWatch(CLI::App& program, Context& context);
void addExport(CLI::App& program, Context& context);
void addRemove(CLI::App& program, Context& context);
void addPrune(CLI::App& program, Context& context);
void addCheck(CLI::App& program, Context& context);
void addStats(CLI::App& program, Context& context);

}  // namespace KELP::Tool
