#include "faults/power/promises.h"

#include "faults/power/runs.h"

#include <algorithm>
#include <sstream>
#include <stdexcept>

namespace KELP::Test {
namespace {

namespace fs = std::filesystem;

constexpr const char* kStore = "store.db";

/** The errors that opening a part of a report may come to, and what is said of a store. */
const std::set<std::string>& statedErrors() {
  static const std::set<std::string> all{
      "Lock file does not exist for diagnostic report",
      "Metadata file does not exist for diagnostic report",
      "Failed to initialize metadata kv store for report",
      "Report id mismatch",
      "not ready",
  };
  return all;
}

/** What a store's file holds, by the tests' own reader; behind its last whole record may be what an
 *  earlier cut has left. */
std::string stateOf(const std::string& content) {
  static std::map<std::string, std::string> known;
  const auto [entry, isNew] = known.try_emplace(content);
  for (std::size_t size = content.size(); isNew; --size) {
    try {
      entry->second = describeState(decodeStore(content.substr(0, size)));
      break;
    } catch (const std::runtime_error&) {
      if (size == 0) throw;
    }
  }
  return entry->second;
}

fs::path storeOf(const std::string& subject) {
  return subject == kStore ? fs::path(subject) : fs::path(subject) / "metadata.db";
}

/** The last of @p counts that is not after @p cut. */
std::optional<std::size_t> lastUpTo(std::size_t cut, const std::set<std::size_t>& counts) {
  const auto after = counts.upper_bound(cut);
  return after == counts.begin() ? std::nullopt : std::optional(*std::prev(after));
}

}  // namespace

Promises::Promises(const FileTree& before, const std::vector<Effect>& effects) {
  FileSystemModel model(before);
  for (const char* id : {kBystander, kFirst, kSecond})
    subjects_[std::string("reports/") + id];
  subjects_[kStore];
  lookAtStores(0, model);
  for (auto& [name, subject] : subjects_) {
    if (subject.states[0] && !subject.states[0]->empty()) subject.seals.insert(0);
  }
  for (std::size_t i = 0; i < effects.size(); ++i) {
    model.apply(effects[i]);
    trackSyncs(effects[i]);
    lookAtStores(i + 1, model);
    if (effects[i].kind == EffectKind::Say) note(effects[i].data, i + 1, model);
  }
}

std::optional<std::size_t> Promises::Subject::sealBefore(std::size_t cut,
                                                         FileSystemPromises given) const {
  const auto byOrder = given.namesInOrder ? lastUpTo(cut, sealsByOrder) : std::nullopt;
  return std::max(lastUpTo(cut, seals), byOrder);
}

void Promises::trackSyncs(const Effect& effect) {
  if (effect.isAboutContent()) dirty_.insert(effect.object);
  if (effect.kind != EffectKind::Sync) return;
  dirty_.erase(effect.object);
  for (auto& [name, subject] : subjects_) {
    if (effect.object == subject.directory) subject.files.clear();  // But for the one of now.
  }
}

/** Takes down what the stores hold after @p count effects. */
void Promises::lookAtStores(std::size_t count, const FileSystemModel& model) {
  for (auto& [name, subject] : subjects_) {
    const auto store = model.find(storeOf(name));
    subject.states.push_back(store ? std::optional(stateOf(model.contentOf(*store)))
                                   : std::nullopt);
    if (store) {
      subject.files.insert(*store);
      subject.directory = model.find(storeOf(name).parent_path());
    }
    if (std::ranges::any_of(subject.files, [&](auto file) { return dirty_.contains(file); })) {
      subject.unsynced.insert(count);
    }
  }
}

/** Takes down what the program said. */
void Promises::note(const std::string& said, std::size_t count, const FileSystemModel& model) {
  std::istringstream words(said);
  std::string word;
  std::string name;
  words >> word >> name;
  if (word == "sealed") {
    subjects_.at(name).seals.insert(count);
  } else if (word == "sealed-in-order") {
    subjects_.at(name).sealsByOrder.insert(count);
  } else if (word == "deleting") {
    subjects_.at(name).deletion = count;
  } else if (word == "whole") {
    wholeFiles_.push_back({count, name, model.contentOf(model.find(name).value())});
  } else {
    throw std::runtime_error("the program said " + said);
  }
}

std::vector<std::string> Promises::broken(std::size_t cut, FileSystemPromises given,
                                          const FileTree& tree, const Examination& found) const {
  std::vector<std::string> out = found.faults;
  for (const auto& [name, subject] : subjects_) {
    const auto state = found.states.find(name);
    const auto failure = found.failures.find(name);
    const std::string what =
        brokenOf(subject, cut, given,
                 state == found.states.end() ? std::nullopt : std::optional(state->second),
                 failure == found.failures.end() ? "" : failure->second);
    if (!what.empty()) out.push_back(name + ": " + what);
  }
  for (const WholeFile& file : wholeFiles_) {
    const auto entry = tree.entries.find(file.path);
    if (cut >= file.since &&
        (entry == tree.entries.end() || entry->second.content != file.content)) {
      out.push_back("not whole: " + file.path.string());
    }
  }
  return out;
}

std::string Promises::brokenOf(const Subject& subject, std::size_t cut, FileSystemPromises given,
                               const std::optional<std::string>& state,
                               const std::string& failure) {
  const auto seal = subject.sealBefore(cut, given);
  if (state) {
    const auto oldest = subject.states.begin() + static_cast<std::ptrdiff_t>(seal.value_or(0));
    const auto end = subject.states.begin() + static_cast<std::ptrdiff_t>(cut) + 1;
    return std::find(oldest, end, state) == end ? "opens with a state that is none: " + *state : "";
  }
  const bool mayGo = !seal || (subject.deletion && *subject.deletion <= cut);
  if (failure.empty()) return mayGo ? "" : "is not there";
  if (!statedErrors().contains(failure)) return "fails by: " + failure;
  const bool mayBeDamaged = !given.appendsInOrder && subject.unsynced.contains(cut);
  return mayGo || mayBeDamaged ? "" : "does not open: " + failure;
}

}  // namespace KELP::Test
