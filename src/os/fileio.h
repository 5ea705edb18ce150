#pragma once

#include "os/filedescriptor.h"

#include <sys/stat.h>

#include <cstdint>
#include <string>
#include <string_view>

/** Thin functions over the system's calls on regular files. None logs; `errno` tells why one
 * failed. */
namespace KELP::OS {

/** Opens @p path itself, never what a symbolic link there points to, and never waits for the other
 *  end of a fifo. A created file gets the mode 0644 less the process's mask. */
[[nodiscard]] FileDescriptor openFile(const std::string& path, int flags);

/** Fills @p out with the bytes from @p offset on; shortens it when the file ends before. */
[[nodiscard]] bool readAt(int file, std::uint64_t offset, std::string& out);

/** Writes @p bytes at @p offset with one call. False when not all of them were written. */
[[nodiscard]] bool writeAt(int file, std::uint64_t offset, std::string_view bytes);

/** Makes the content of @p file durable. */
[[nodiscard]] bool syncFile(int file);

/** Makes the directory entry of the file at @p path durable. */
[[nodiscard]] bool syncDirectoryOf(const std::string& path);

/** Gives the file @p to the owner, group and mode of the file @p from. */
[[nodiscard]] bool copyOwnership(int from, int to);

/** Whether both are about one and the same file. */
[[nodiscard]] bool sameFile(const struct stat& a, const struct stat& b);

}  // namespace KELP::OS
