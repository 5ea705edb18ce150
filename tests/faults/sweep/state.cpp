#include "faults/sweep/state.h"

#include "faults/sweep/scenes.h"
#include "support/reportkeys.h"
#include "support/temporarydirectory.h"

#include <cstdlib>
#include <ctime>
#include <iterator>
#include <string>
#include <vector>

namespace KELP::Test {
namespace {

namespace fs = std::filesystem;

/** The keys of reports, and those of the scenes with a store alone. */
const std::vector<std::string>& allKeys() {
  static const std::vector<std::string> all = [] {
    std::vector<std::string> keys = reportKeys();
    keys.insert(keys.end(), {"a", "b", "c", "torn", "absent"});
    return keys;
  }();
  return all;
}

bool isStore(const fs::path& path) {
  return path.extension() == ".db";
}

std::string describe(const fs::path& path, const fs::file_status& status) {
  switch (status.type()) {
    case fs::file_type::directory:
      return kDirectoryEntry;
    case fs::file_type::symlink:
      return "link:" + fs::read_symlink(path).string();
    case fs::file_type::regular:
      return kFileEntry + (isStore(path) ? "" : readFile(path));
    default:
      return "something else";
  }
}

/** The path with what is new at each run replaced. */
std::string nameOf(const fs::path& relative) {
  fs::path name;
  for (const fs::path& part : relative) {
    Diagnostic::ReportUuid id;
    const bool isNew = id.parse(part.c_str()) && part != kSweptId && part != kOtherSweptId;
    if (isNew) {
      name /= name.empty() ? kNewReport : kScratchFile;
    } else {
      name /= part;
    }
  }
  return name.string();
}

std::string valueOf(const std::string& key, const std::string& value, const fs::path& directory) {
  constexpr std::time_t kJustNow = 1000;
  if (key == "report_id" && value == directory.filename()) return "the directory's";
  if ((key == "created" || key == "modified") &&
      std::time(nullptr) - std::atol(value.c_str()) < kJustNow) {
    return "now";
  }
  return value;
}

void readStore(const fs::path& path, const std::string& name, State& state) {
  using Option = OS::KVStoreOpenOption;
  OS::KeyValueStore store(path.string(), "", {Option::ReadOnly, Option::Shared});
  if (store.isReady()) state.usable.insert(name);
  for (const std::string& key : allKeys()) {
    if (const auto value = store.get(key)) {
      state.values[name + ":" + key] = valueOf(key, *value, path.parent_path());
    }
  }
}

}  // namespace

State stateOf(const fs::path& root) {
  State state;
  if (!fs::exists(root)) return state;
  for (const auto& entry : fs::recursive_directory_iterator(root)) {
    const fs::path& path = entry.path();
    std::string name = nameOf(path.lexically_relative(root));
    while (state.entries.contains(name))
      name += "+";
    state.entries[name] = describe(path, entry.symlink_status());
    if (isStore(path)) readStore(path, name, state);
    Diagnostic::ReportUuid id;
    if (path.parent_path() == root && id.parse(path.filename().c_str()) &&
        Diagnostic::DiagnosticData(root).openReport(id)) {
      state.usable.insert(name);
    }
  }
  return state;
}

}  // namespace KELP::Test
