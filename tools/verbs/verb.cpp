#include "verbs/verb.h"

#include "base/clock.h"
#include "verbs/argument.h"

#include <algorithm>

namespace KELP::Tool {
namespace {

/** A year, in milliseconds: far from where additions to clocks overflow. */
constexpr long kLongestWait = 365 * 86'400'000L;

}  // namespace

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
  addValue(
      verb, "--wait",
      [&waitMs](const std::string& span) { waitMs = std::min(parseWait(span), kLongestWait); },
      "How long to wait for a report that is in use, such as 5s")
      ->type_name("SPAN");
}

}  // namespace KELP::Tool
