#pragma once

#include "check/subject.h"

#include <filesystem>
#include <set>
#include <string>

namespace KELP::Tool {

/** What the records of a report lead to: their files, and the links on the way there. */
class NamedPaths {
 public:
  explicit NamedPaths(const Subject& subject);

  /** Whether a record leads to @p path, or through it when it is a link. @p path is one below the
   *  report's directory with no link in between. */
  [[nodiscard]] bool contain(const std::filesystem::path& path) const;

  /** Whether a record leads to @p path, to something below it, or to a directory that it is in. */
  [[nodiscard]] bool touch(const std::filesystem::path& path) const;

 private:
  void follow(const std::filesystem::path& path);
  [[nodiscard]] std::string keyOf(const std::filesystem::path& path) const;

  std::filesystem::path directory_;  ///< The report's, as it was given.
  std::filesystem::path place_;      ///< The same without links.
  std::set<std::string> names_;      ///< Texts, since paths are compared name by name.
};

}  // namespace KELP::Tool
