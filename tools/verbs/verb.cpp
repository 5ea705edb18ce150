#include "verbs/verb.h"

#include "base/clock.h"

namespace KELP::Tool {

void addJson(CLI::App& verb, Context& context) {
  verb.add_flag("--json", context.json, "Print one JSON document");
}

void addUtc(CLI::App& verb, Context& context) {
  verb.add_flag("--utc", context.utc, "Times in UTC instead of the local zone");
}

void addId(CLI::App& verb, std::string& id) {
  verb.add_option("ID", id, "The report: its identifier, or a beginning that only it has")
      ->required();
}

void addWait(CLI::App& verb, long& waitMs) {
  verb.add_option_function<std::string>(
          "--wait", [&waitMs](const std::string& span) { waitMs = parseSpan(span) * 1000; },
          "How long to wait for a report that is in use, such as 5s")
      ->type_name("SPAN");
}

}  // namespace KELP::Tool
