#pragma once

#include <dirent.h>
#include <sys/stat.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
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

/** Leaves `errno` alone. */
struct DirectoryCloser {
  void operator()(DIR* directory) const;
};
using OpenDirectory = std::unique_ptr<DIR, DirectoryCloser>;

/** Opens the directory @p name in the directory @p at, or AT_FDCWD. Null, with errno, when it
 * cannot be opened, or is no directory; a link to one is none. */
[[nodiscard]] OpenDirectory openDirectory(int at, const char* name);

/** What @p path names; nothing when there is nothing, or it cannot be looked at. */
[[nodiscard]] std::optional<Entry> entryAt(const std::filesystem::path& path);

/** The same; @p error says why it cannot be looked at. That there is nothing is no error. */
[[nodiscard]] std::optional<Entry> entryAt(const std::filesystem::path& path,
                                           std::error_code& error);

/** The entries of @p directory in the order of their names; none when it is no directory. What
 *  disappears meanwhile is left out. @p error says why some may be missing. */
[[nodiscard]] std::vector<Entry> entriesOf(const std::filesystem::path& directory,
                                           std::error_code& error);

/** Calls @p visit with everything below @p directory, directories before what is in them. However
 * deep the tree is, no stack grows with it. @return why some may have been missed. */
std::error_code forEachBelow(const std::filesystem::path& directory,
                             const std::function<void(const Entry&)>& visit);

/** The sizes of all files below @p directory, in bytes, as far as it can be read. */
[[nodiscard]] std::uint64_t sizeBelow(const std::filesystem::path& directory);

/** All of the standard input, 64 MiB at most. Throws a Failure, and Interrupted. */
[[nodiscard]] std::string standardInput();

}  // namespace KELP::Tool
