#include "faults/sweep/judge.h"

#include "faults/sweep/scenes.h"

#include <algorithm>
#include <iterator>
#include <optional>
#include <set>
#include <sstream>

namespace KELP::Test {
namespace {

using Map = std::map<std::string, std::string>;

std::optional<std::string> in(const Map& map, const std::string& key) {
  const auto found = map.find(key);
  return found == map.end() ? std::nullopt : std::optional(found->second);
}

/** Everything that any of the maps names. */
std::set<std::string> namesOf(const Map& a, const Map& b, const Map& c) {
  std::set<std::string> names;
  for (const Map* map : {&a, &b, &c}) {
    for (const auto& [name, content] : *map)
      names.insert(name);
  }
  return names;
}

/** Whether @p path is one of @p tops, or is below one. */
bool isUnder(const std::vector<std::string>& tops, const std::string& path) {
  return std::ranges::any_of(
      tops, [&](const std::string& top) { return path == top || path.starts_with(top + "/"); });
}

/** Whether it is a directory that one of @p paths needs. */
bool leadsTo(const std::vector<std::string>& paths, const std::string& path) {
  return std::ranges::any_of(paths,
                             [&](const std::string& one) { return one.starts_with(path + "/"); });
}

/** Whether it is a file with the beginning of what is there in the end. */
bool isBeginning(const std::optional<std::string>& found, const std::optional<std::string>& later) {
  return found && later && found->starts_with(kFileEntry) && later->starts_with(*found);
}

/** Whether it is there only while something is under way. */
bool isScratch(const std::string& path) {
  return path.ends_with(".compact") || path.ends_with(kScratchFile);
}

bool isTime(const std::string& name) {
  return name.ends_with(":modified");
}

std::string inShort(const std::optional<std::string>& content) {
  if (!content) return "nothing";
  return content->substr(0, 100) + " (" + std::to_string(content->size()) + ")";
}

/** A complaint about what stands where. */
std::string strange(const std::string& name, const Map& before, const Map& after,
                    const Map& found) {
  return name + " is " + inShort(in(found, name)) + ", was " + inShort(in(before, name)) +
         " and was to be " + inShort(in(after, name));
}

/** The priority that a line is stated to have. */
int priorityOf(const LogLine& line) {
  return line.text.starts_with("Report id mismatch: ") ? kWarning : kError;
}

bool tellsReason(const std::vector<LogLine>& lines, const std::vector<Stated>& stated) {
  return std::ranges::any_of(lines, [&](const LogLine& line) {
    return std::ranges::any_of(
        stated, [&](const Stated& one) { return line.text.starts_with(one.message); });
  });
}

std::set<std::string> wordsOf(const std::string& text) {
  std::istringstream stream(text);
  return {std::istream_iterator<std::string>(stream), {}};
}

}  // namespace

Complaints Judge::ofFault(const Fault& fault, const Report& report, const State& found) const {
  Complaints complaints;
  judgeOutcome(fault, report, complaints);
  // A descriptor that could not be closed stays, by the fault.
  if (report.descriptorsAfter > report.descriptorsBefore && fault.call.name != "close") {
    complaints.push_back("descriptors leaked: " + std::to_string(report.descriptorsAfter) +
                         " instead of " + std::to_string(report.descriptorsBefore));
  }
  Case ending;
  ending.done = report.outcome.kind == Outcome::Kind::Done;
  ending.unremovable = fault.hindersRemoval();
  Complaints ofState;
  judgeState(ending, found, ofState);
  if (!ofState.empty() && report.outcome.kind == Outcome::Kind::ThrewFileError &&
      operation_.expectation.throwsAtEnd) {
    Complaints ofEnd;
    ending.done = true;
    judgeState(ending, found, ofEnd);
    if (ofEnd.empty()) ofState.clear();
  }
  std::ranges::move(ofState, std::back_inserter(complaints));
  return complaints;
}

Complaints Judge::ofKill(const State& found) const {
  Complaints complaints;
  Case ending;
  ending.killed = true;
  judgeState(ending, found, complaints);
  return complaints;
}

bool Judge::isAnswer(const std::string& text) const {
  const Expectation& expected = operation_.expectation;
  return text == answer_ || std::ranges::count(expected.answers, text) > 0 ||
         (expected.partialAnswer && std::ranges::includes(wordsOf(answer_), wordsOf(text)));
}

void Judge::judgeOutcome(const Fault& fault, const Report& report, Complaints& complaints) const {
  const Outcome& outcome = report.outcome;
  if (fault.isInterruption() && outcome.kind != Outcome::Kind::Done &&
      !operation_.expectation.interruptible) {
    complaints.push_back("a signal ended it: " + outcome.text);
  }
  switch (outcome.kind) {
    case Outcome::Kind::Done:
      if (!isAnswer(outcome.text)) complaints.push_back("wrong answer: " + outcome.text);
      break;
    case Outcome::Kind::Failed:
      judgeError(fault, report, complaints);
      break;
    case Outcome::Kind::ThrewFileError:
      if (!operation_.expectation.throws || outcome.code != fault.number()) {
        complaints.push_back("threw " + outcome.text);
      }
      break;
    case Outcome::Kind::ThrewOther:
      complaints.push_back("threw " + outcome.text);
  }
}

void Judge::judgeError(const Fault& fault, const Report& report, Complaints& complaints) const {
  const Outcome& outcome = report.outcome;
  judgeLines(report, complaints);
  if (outcome.text.empty()) return;
  const auto& stated = operation_.expectation.errors;
  const auto error = std::ranges::find(stated, outcome.text, &Stated::message);
  if (error == stated.end()) {
    complaints.push_back("an error that is not stated: " + outcome.text);
  } else if (outcome.code != (error->coded ? fault.number() : 0)) {
    complaints.push_back(outcome.text + " has the code " + std::to_string(outcome.code));
  }
}

/** Looks at what a failure logged. */
void Judge::judgeLines(const Report& report, Complaints& complaints) const {
  const auto& lines = report.lines;
  const std::string& message = report.outcome.text;
  if (operation_.expectation.silent) {
    if (!lines.empty()) complaints.push_back("a line that nobody expects: " + lines[0].text);
    return;
  }
  if (lines.empty() && message != "Filter aborted without error condition") {
    complaints.push_back("a failure without a line: " + message);
  }
  for (const LogLine& line : lines) {
    if (line.priority != priorityOf(line) || line.tag != "diagnosticdata") {
      complaints.push_back("a line of another kind: " + line.text);
    }
  }
  // Where nothing is returned, only the log tells why.
  if (message.empty() && !lines.empty() && !tellsReason(lines, operation_.expectation.errors)) {
    complaints.push_back("a reason that is not stated: " + lines.back().text);
  }
}

/** Whether what was to be removed may be there. */
bool Judge::mayBeLeft(const Case& ending, const std::string& path) const {
  return (ending.killed || ending.unremovable) && isUnder(operation_.expectation.left, path);
}

/** Whether a file does not fit to the list of contents, which is old or new: one that the list
 * names is there, whole, and is removed only when it does not name it any more. */
bool Judge::isAheadOfList(const std::string& path, const State& found) const {
  const std::string list = inReport("metadata.db:report_contents");
  const auto former = in(before_.values, list);
  const auto later = in(after_.values, list);
  const auto now = in(found.values, list);
  if (former == later || isUnder(operation_.expectation.gone, path)) return false;
  const auto entry = in(found.entries, path);
  return (now == former && isUnder(operation_.expectation.left, path) &&
          entry != in(before_.entries, path)) ||
         (now == later && isUnder(operation_.expectation.begun, path) &&
          entry != in(after_.entries, path));
}

bool Judge::mayStand(const Case& ending, const std::string& path, const State& found) const {
  const Expectation& expected = operation_.expectation;
  const auto now = in(found.entries, path);
  const auto former = in(before_.entries, path);
  const auto later = in(after_.entries, path);
  if (now && !former && isScratch(path)) {
    return ending.killed || ending.unremovable || (ending.done && now == later);
  }
  if (ending.killed && isAheadOfList(path, found)) return false;
  if (now == former && (!ending.done || mayBeLeft(ending, path))) return true;
  if (now == later && (ending.done || ending.killed)) return true;
  if (!now && isUnder(expected.gone, path)) return !ending.done;
  if (ending.done) return expected.otherValue && !now && isUnder(expected.left, path);
  if (now == kDirectoryEntry && leadsTo(expected.begun, path)) return true;
  return isUnder(expected.begun, path) && (now == later || isBeginning(now, later));
}

bool Judge::mayHold(const Case& ending, const std::string& name, const State& found) const {
  const Expectation& expected = operation_.expectation;
  const auto now = in(found.values, name);
  const auto former = in(before_.values, name);
  const auto later = in(after_.values, name);
  if (ending.done) {
    const bool isOther = expected.otherValue && name == expected.otherValue->first &&
                         now == expected.otherValue->second;
    return now == later || isOther || (now == former && mayBeLeft(ending, name));
  }
  if (!now && isUnder(expected.gone, name)) return true;
  const bool mayBeNew = ending.killed || isTime(name) || expected.severalKeys;
  return now == former || (mayBeNew && now == later);
}

bool Judge::mustBeUsable(const Case& ending, const std::string& path) const {
  if (ending.done) return after_.usable.contains(path);
  return before_.usable.contains(path) && !isUnder(operation_.expectation.gone, path);
}

void Judge::judgeState(const Case& ending, const State& found, Complaints& complaints) const {
  for (const std::string& path : namesOf(before_.entries, after_.entries, found.entries)) {
    if (!mayStand(ending, path, found)) {
      complaints.push_back(strange(path, before_.entries, after_.entries, found.entries));
    }
  }
  for (const std::string& name : namesOf(before_.values, after_.values, found.values)) {
    if (!mayHold(ending, name, found)) {
      complaints.push_back(strange(name, before_.values, after_.values, found.values));
    }
  }
  for (const auto* usable : {&before_.usable, &after_.usable}) {
    for (const std::string& path : *usable) {
      if (mustBeUsable(ending, path) && !found.usable.contains(path)) {
        complaints.push_back(path + " cannot be used any more");
      }
    }
  }
}

}  // namespace KELP::Test
