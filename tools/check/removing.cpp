#include "check/removing.h"

#include "base/files.h"
#include "base/interrupt.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace KELP::Tool {
namespace {

namespace fs = std::filesystem;

enum class What { Everything, Directories };

/** What came of trying to remove one entry of a directory. */
enum class Outcome { Gone, NotEmpty, Failed };

std::error_code systemError() {
  return {errno, std::system_category()};
}

class Removing {
 public:
  Removing(fs::path top, What what) : top_(std::move(top)), what_(what) {}

  /** Goes down to what is to be removed next from the top each time: not more than one directory is
   * open, and ".." of a directory that is moved meanwhile leads nobody elsewhere. */
  std::error_code run(const fs::path& name) {
    way_.assign(name.begin(), name.end());
    const std::size_t least = way_.size();
    while (way_.size() >= least) {
      checkInterrupt();
      const OpenDirectory parent = open(std::span(way_).first(way_.size() - 1));
      if (!parent) {
        return errno == ENOENT ? std::error_code() : systemError();
      }
      switch (remove(parent.get(), way_.back().c_str())) {
        case Outcome::Gone:
          way_.pop_back();
          break;
        case Outcome::NotEmpty:
          if (!removeContents(openDirectory(::dirfd(parent.get()), way_.back().c_str()))) {
            return systemError();
          }
          break;
        case Outcome::Failed:
          return systemError();
      }
    }
    return {};
  }

 private:
  /** The directory to which @p names lead from the top. */
  [[nodiscard]] OpenDirectory open(std::span<const std::string> names) const {
    OpenDirectory directory = openDirectory(AT_FDCWD, top_.c_str());
    for (const std::string& name : names) {
      if (directory) {
        directory = openDirectory(::dirfd(directory.get()), name.c_str());
      }
    }
    return directory;
  }

  /** Removes one entry, unless it is a directory that is not empty. */
  [[nodiscard]] Outcome remove(DIR* parent, const char* name) const {
    struct stat status {};
    if (::fstatat(::dirfd(parent), name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
      return errno == ENOENT ? Outcome::Gone : Outcome::Failed;
    }
    const bool isDirectory = S_ISDIR(status.st_mode);
    if (!isDirectory && what_ == What::Directories) {
      errno = ENOTEMPTY;
      return Outcome::Failed;
    }
    if (::unlinkat(::dirfd(parent), name, isDirectory ? AT_REMOVEDIR : 0) == 0 || errno == ENOENT) {
      return Outcome::Gone;
    }
    return isDirectory && (errno == ENOTEMPTY || errno == EEXIST) ? Outcome::NotEmpty
                                                                  : Outcome::Failed;
  }

  /** Removes what is in a directory, up to a directory that is not empty, which is the next one to
   * be removed. @return false, with errno, when something cannot be removed. */
  bool removeContents(const OpenDirectory& directory) {
    if (!directory) {
      return errno == ENOENT;
    }
    errno = 0;
    while (const dirent* const entry = ::readdir(directory.get())) {
      const std::string_view name = entry->d_name;
      const Outcome outcome =
          name == "." || name == ".." ? Outcome::Gone : remove(directory.get(), entry->d_name);
      if (outcome == Outcome::NotEmpty) {
        way_.emplace_back(name);
        return true;
      }
      if (outcome == Outcome::Failed) {
        return false;
      }
      errno = 0;
    }
    return errno == 0;
  }

  fs::path top_;
  What what_;
  std::vector<std::string> way_;  ///< To what is removed next.
};

}  // namespace

std::error_code removeTree(const fs::path& top, const fs::path& name) {
  return Removing(top, What::Everything).run(name);
}

std::error_code removeEmptyDirectories(const fs::path& top, const fs::path& name) {
  return Removing(top, What::Directories).run(name);
}

}  // namespace KELP::Tool
