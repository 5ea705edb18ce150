#pragma once

#include "support/temporarydirectory.h"

#include <filesystem>
#include <string>

namespace KELP::Test {

/** Sets the working directory, and sets it back at the end. */
class WorkingDirectory {
 public:
  explicit WorkingDirectory(const std::filesystem::path& path)
      : before_(std::filesystem::current_path()) {
    std::filesystem::current_path(path);
  }
  ~WorkingDirectory() {
    std::error_code ignored;
    std::filesystem::current_path(before_, ignored);
  }
  WorkingDirectory(const WorkingDirectory&) = delete;
  WorkingDirectory& operator=(const WorkingDirectory&) = delete;

 private:
  std::filesystem::path before_;
};

/**
 * Real directories as reports have them, with what could lead out of a report:
 *
 *     u1/file                 u2/         u10/
 *     u1/contentfiles/a/b/
 *     u1/link-in   -> u1/contentfiles    u1/link-loop     -> itself
 *     u1/link-out  -> u2                 u1/link-dangling -> missing
 *     link-to-u1   -> u1
 */
class PathTree {
 public:
  PathTree() {
    namespace fs = std::filesystem;
    fs::create_directories(root_ / "u1/contentfiles/a/b");
    fs::create_directory(root_ / "u2");
    fs::create_directory(root_ / "u10");
    writeFile(root_ / "u1/file", "content");
    fs::create_symlink(root_ / "u1/contentfiles", root_ / "u1/link-in");
    fs::create_symlink("../u2", root_ / "u1/link-out");
    fs::create_symlink("link-loop", root_ / "u1/link-loop");
    fs::create_symlink(root_ / "missing", root_ / "u1/link-dangling");
    fs::create_symlink("u1", root_ / "link-to-u1");
  }

  [[nodiscard]] const std::filesystem::path& root() const { return root_.path(); }

  /** @p text with the tree's own path for each "@". */
  [[nodiscard]] std::string at(std::string text) const {
    const std::string& root = root_.path().native();
    for (auto i = text.find('@'); i != std::string::npos; i = text.find('@', i + root.size())) {
      text.replace(i, 1, root);
    }
    return text;
  }

 private:
  TemporaryDirectory root_;
};

}  // namespace KELP::Test
