#pragma once

#include <fcntl.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>

namespace KELP::Test {

/** While it lives, a directory is a small file system of its own. */
class SmallDisk {
 public:
  /** @param directory is made when it is missing. @param kib how much fits on it. */
  explicit SmallDisk(std::filesystem::path directory, unsigned kib = 256)
      : directory_(std::move(directory)) {
    std::filesystem::create_directories(directory_);
    const std::string options = "size=" + std::to_string(kib) + "k";
    if (::mount("kelp-test", directory_.c_str(), "tmpfs", 0, options.c_str()) != 0) {
      unavailable_ = std::string("no file system can be mounted here: ") + std::strerror(errno);
    }
  }
  ~SmallDisk() {
    if (unavailable_.empty()) ::umount2(directory_.c_str(), MNT_DETACH);
  }
  SmallDisk(const SmallDisk&) = delete;
  SmallDisk& operator=(const SmallDisk&) = delete;

  [[nodiscard]] const std::filesystem::path& path() const { return directory_; }

  /** Why there is none; empty when there is. */
  [[nodiscard]] const std::string& unavailable() const { return unavailable_; }

  /** Leaves no room but for @p pages of 4 KiB, by a file "filler". */
  void fill(std::size_t pages) const {
    const std::string block(4096, 'x');
    for (const char* name : {"room", "filler"}) {
      const int file = ::open((directory_ / name).c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
      for (std::size_t i = 0; name == std::string("filler") || i < pages; ++i) {
        if (::write(file, block.data(), block.size()) <= 0) break;
      }
      ::close(file);
    }
    std::filesystem::remove(directory_ / "room");
  }
  /** Makes room again. */
  void empty() const { std::filesystem::remove(directory_ / "filler"); }

 private:
  std::filesystem::path directory_;
  std::string unavailable_;
};

}  // namespace KELP::Test
