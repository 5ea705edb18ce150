#pragma once

#include "reports.h"

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace KELP::Test {

/** One way to damage a report, and what `check` makes of it. */
struct Damage {
  std::string name;
  std::string kind;
  std::string path;  ///< Of the finding, from the report's directory on.
  std::string detail;
  bool isRepairable;
  std::function<void(const Repository&, const std::string& id)> make;
};

/** All ways, each of which is one finding. */
[[nodiscard]] const std::vector<Damage>& damages();

/** Makes @p path, and what is below it, look as if nobody wrote to it for two days. */
void makeOld(const std::filesystem::path& path);

/** A file of scratch that nobody wrote to for two days. */
void writeOldFile(const std::filesystem::path& path);

/** A socket in the file system. */
void makeSocket(const std::filesystem::path& path);

/** A record of a file at @p path, under the property "log". */
void addRecord(const Repository& repository, const std::string& id, int level,
               const std::string& path);

}  // namespace KELP::Test
