#pragma once

#include "reports/repository.h"

#include <sys/stat.h>

#include <filesystem>
#include <set>
#include <utility>

namespace KELP::Tool {

/** The files whose content must not be handed on under any name: those that make the report, and
 * those of variations above the permitted level. */
class ProtectedFiles {
 public:
  /** @param allLevels whether no level is above what is permitted. */
  ProtectedFiles(const StoredReport& report, bool allLevels);

  [[nodiscard]] bool include(const struct stat& file) const;

 private:
  void add(const std::filesystem::path& path);

  std::set<std::pair<dev_t, ino_t>> files_;
};

}  // namespace KELP::Tool
