#pragma once

#include <filesystem>
#include <map>
#include <set>
#include <string>

namespace KELP::Test {

/**
 * What another process finds under a root. Names and times that are new at each run are replaced:
 * an identifier that is not one of the scenes' by "{new}", the name of a scratch file by "{file}",
 * and a time of just now by "now".
 */
struct State {
  /** Each path, with what it is; files with their contents, but for those of stores. */
  std::map<std::string, std::string> entries;
  /** The values in each store, by its path, ":" and the key. */
  std::map<std::string, std::string> values;
  /** The stores that are ready, and the reports that open, by their paths. */
  std::set<std::string> usable;
};

[[nodiscard]] State stateOf(const std::filesystem::path& root);

/** How files stand in the state. */
constexpr const char* kDirectoryEntry = "directory";
constexpr const char* kFileEntry = "file:";
/** The names that stand for new ones. */
constexpr const char* kNewReport = "{new}";
constexpr const char* kScratchFile = "{file}";

}  // namespace KELP::Test
