#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace KELP::Test {

/** Everything at and below a path: for each entry its type, permissions and content. */
using Tree = std::map<std::string, std::string>;

[[nodiscard]] Tree treeOf(const std::filesystem::path& top);

/** The names directly inside a directory, sorted. */
[[nodiscard]] std::vector<std::string> namesIn(const std::filesystem::path& directory);

/** This process's descriptors of files at or below @p top, removed files included. */
[[nodiscard]] std::vector<int> descriptorsBelow(const std::filesystem::path& top);

/** The paths of the files that the process @p pid has open at or below @p top. */
[[nodiscard]] std::vector<std::string> openFilesBelow(const std::filesystem::path& top, int pid);

}  // namespace KELP::Test
