#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <ostream>
#include <vector>

namespace KELP::Test {

/** One inotify watch of this process, as the kernel lists it. */
struct KernelWatch {
  int wd;
  ino_t inode;
  std::uint32_t mask;

  bool operator==(const KernelWatch&) const = default;
};

std::ostream& operator<<(std::ostream& out, const KernelWatch& watch);

/** The watches of each inotify instance of this process, by descriptor. */
[[nodiscard]] std::vector<std::vector<KernelWatch>> inotifyInstances();

/** The watches of the only inotify instance of this process. One that is just ending is waited for;
 *  throws when there are none, or others, for long. */
[[nodiscard]] std::vector<KernelWatch> kernelWatches();

/** The inode of what a path leads to. */
[[nodiscard]] ino_t inodeOf(const std::filesystem::path& path);

/** How many descriptors and threads this process has. */
struct Resources {
  std::size_t descriptors;
  std::size_t threads;

  bool operator==(const Resources&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Resources& resources);

[[nodiscard]] Resources resourcesNow();
/** What is in use when it has come back to @p before, or after a long time. A thread that has been
 *  joined may be listed for a moment longer. */
[[nodiscard]] Resources resourcesAfterReturnTo(const Resources& before);

}  // namespace KELP::Test
