#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

/** Looking at directories that others may be changing, and never following a symbolic link. */
namespace KELP::Tool {

/** Something in a directory, or below it. */
struct Entry {
  std::filesystem::path path;
  struct stat status;  ///< Of the entry itself, not of what a link points to.

  [[nodiscard]] bool isDirectory() const { return S_ISDIR(status.st_mode); }
  [[nodiscard]] bool isFile() const { return S_ISREG(status.st_mode); }
  /** "a file", "a directory", "a symbolic link", "a pipe", "a socket", "a device". */
  [[nodiscard]] const char* typeText() const;
};

/** What @p path names; nothing when there is nothing, or it cannot be looked at. */
[[nodiscard]] std::optional<Entry> entryAt(const std::filesystem::path& path);

/** The entries of @p directory in the order of their names; none when it cannot be read. What
 *  disappears meanwhile is left out. */
[[nodiscard]] std::vector<Entry> entriesOf(const std::filesystem::path& directory);

/** Calls @p visit with everything below @p directory, directories before what is in them. However
 * deep the tree is, no stack grows with it. */
void forEachBelow(const std::filesystem::path& directory,
                  const std::function<void(const Entry&)>& visit);

/** The sizes of all files below @p directory, in bytes. */
[[nodiscard]] std::uint64_t sizeBelow(const std::filesystem::path& directory);

/** All of the standard input, 64 MiB at most. Throws a Failure, and Interrupted. */
[[nodiscard]] std::string standardInput();

}  // namespace KELP::Tool
