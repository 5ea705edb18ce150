#include "verbs/change.h"
#include "verbs/description.h"

namespace KELP::Tool {
namespace {

struct SetOptions {
  ChangeOptions change;
  Description description;
};

ExitStatus set(const Context& context, const SetOptions& options) {
  if (options.description.isEmpty()) {
    throw Failure(ExitStatus::Usage, "there is nothing to set; see --help");
  }
  options.description.check();
  options.description.store(*openForChange(context, options.change));
  return ExitStatus::Done;
}

}  // namespace

void addSet(CLI::App& program, Context& context) {
  const auto verb = addVerb<SetOptions>(
      program, context, "set", "Change a report's fields, such as its description",
      "  kelp-diagnostics set 3f2a --description 'no sound after resume'\n"
      "  kelp-diagnostics set 3f2a --consent 10\n"
      "  kelp-diagnostics set 3f2a --pid 4711 --process player --library libc.so --library "
      "libm.so\n"
      "\n"
      "Everything is set, or, when the report's stage forbids a part of it, nothing. The "
      "libraries\n"
      "replace all that were there. Process, libraries and the highest level are fixed once\n"
      "creation is complete, the consent level once user interaction is complete too.\n",
      set);
  addChange(*verb.app, verb->change);
  addDescription(*verb.app, verb->description);
  addInteger(*verb.app, "--consent", verb->description.consent,
             "The consent level that the user has given");
  addInteger(*verb.app, "--max-consent", verb->description.maxConsent,
             "The highest consent level that the report may be raised to");
}

}  // namespace KELP::Tool
