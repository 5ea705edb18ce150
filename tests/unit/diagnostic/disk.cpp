#include "unit/diagnostic/disk.h"

#include "support/descriptors.h"
#include "support/temporarydirectory.h"

#include <algorithm>

namespace KELP::Test {
namespace {

namespace fs = std::filesystem;

std::string describe(const fs::path& path) {
  const fs::file_status status = fs::symlink_status(path);
  const std::string mode = std::to_string(static_cast<unsigned>(status.permissions()));
  switch (status.type()) {
    case fs::file_type::directory:
      return "directory " + mode;
    case fs::file_type::symlink:
      return "link to " + fs::read_symlink(path).string();
    case fs::file_type::regular:
      return "file " + mode + ": " + readFile(path);
    default:
      return "other";
  }
}

bool isAtOrBelow(const std::string& path, const fs::path& top) {
  const std::string prefix = top.string();
  return path == prefix || path.starts_with(prefix + "/");
}

}  // namespace

Tree treeOf(const fs::path& top) {
  Tree tree;
  if (fs::symlink_status(top).type() == fs::file_type::not_found) {
    return tree;
  }
  tree["."] = describe(top);
  if (fs::is_directory(fs::symlink_status(top))) {
    for (const auto& entry : fs::recursive_directory_iterator(top)) {
      tree[entry.path().lexically_relative(top).string()] = describe(entry.path());
    }
  }
  return tree;
}

std::vector<std::string> namesIn(const fs::path& directory) {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(directory)) {
    names.push_back(entry.path().filename());
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::vector<int> descriptorsBelow(const fs::path& top) {
  std::vector<int> numbers;
  for (const auto& [number, target] : descriptorsOf("self")) {
    if (isAtOrBelow(target, top)) {
      numbers.push_back(number);
    }
  }
  return numbers;
}

std::vector<std::string> openFilesBelow(const fs::path& top, int pid) {
  std::vector<std::string> files;
  for (const auto& [number, target] : descriptorsOf(std::to_string(pid))) {
    if (isAtOrBelow(target, top)) {
      files.push_back(target);
    }
  }
  return files;
}

}  // namespace KELP::Test
