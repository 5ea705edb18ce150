#include "base/files.h"

#include "base/failure.h"
#include "base/interrupt.h"
#include "base/text.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <optional>
#include <string_view>
#include <system_error>
#include <utility>

namespace KELP::Tool {

namespace fs = std::filesystem;

namespace {

/** Nothing when @p error only means that there is no such thing. */
std::error_code errorUnlessAbsent(int error) {
  const bool isAbsent = error == ENOENT || error == ENOTDIR || error == ELOOP;
  return isAbsent ? std::error_code() : std::error_code(error, std::system_category());
}

}  // namespace

const char* Entry::typeText() const {
  switch (status.st_mode & S_IFMT) {
    case S_IFREG:
      return "a file";
    case S_IFDIR:
      return "a directory";
    case S_IFLNK:
      return "a symbolic link";
    case S_IFIFO:
      return "a pipe";
    case S_IFSOCK:
      return "a socket";
    default:
      return "a device";
  }
}

void DirectoryCloser::operator()(DIR* directory) const {
  const int before = errno;
  ::closedir(directory);
  errno = before;
}

OpenDirectory openDirectory(int at, const char* name) {
  const int descriptor = ::openat(at, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (descriptor < 0) {
    return nullptr;
  }
  OpenDirectory directory(::fdopendir(descriptor));
  if (!directory) {
    const int error = errno;
    ::close(descriptor);
    errno = error;
  }
  return directory;
}

std::optional<Entry> entryAt(const fs::path& path, std::error_code& error) {
  Entry entry{path, {}};
  if (::lstat(path.c_str(), &entry.status) == 0) {
    error.clear();
    return entry;
  }
  error = errorUnlessAbsent(errno);
  if (path.filename().native().size() > NAME_MAX) {
    error.clear();  // Nothing can have such a name.
  }
  return std::nullopt;
}

std::optional<Entry> entryAt(const fs::path& path) {
  std::error_code ignored;
  return entryAt(path, ignored);
}

std::vector<Entry> entriesOf(const fs::path& directory, std::error_code& error) {
  error.clear();
  const OpenDirectory open = openDirectory(AT_FDCWD, directory.c_str());
  if (!open) {
    error = errorUnlessAbsent(errno);
    return {};
  }
  std::vector<Entry> entries;
  errno = 0;
  while (const dirent* const at = ::readdir(open.get())) {
    const std::string_view name = at->d_name;
    if (name != "." && name != "..") {
      Entry entry{directory / name, {}};
      if (::fstatat(::dirfd(open.get()), at->d_name, &entry.status, AT_SYMLINK_NOFOLLOW) == 0) {
        entries.push_back(std::move(entry));
      } else if (const std::error_code failure = errorUnlessAbsent(errno)) {
        error = failure;
      }
    }
    errno = 0;
  }
  if (errno != 0) {
    error = errorUnlessAbsent(errno);
  }
  std::sort(entries.begin(), entries.end(),
            [](const Entry& a, const Entry& b) { return a.path.native() < b.path.native(); });
  return entries;
}

std::error_code forEachBelow(const fs::path& directory,
                             const std::function<void(const Entry&)>& visit) {
  std::error_code failure;
  std::vector<fs::path> left{directory};
  while (!left.empty()) {
    const fs::path next = std::move(left.back());
    left.pop_back();
    std::error_code error;
    for (const Entry& entry : entriesOf(next, error)) {
      visit(entry);
      if (entry.isDirectory()) {
        left.push_back(entry.path);
      }
    }
    failure = error ? error : failure;
  }
  return failure;
}

std::uint64_t sizeBelow(const fs::path& directory) {
  std::uint64_t size = 0;
  forEachBelow(directory, [&](const Entry& entry) {
    size += entry.isFile() ? static_cast<std::uint64_t>(entry.status.st_size) : 0;
  });
  return size;
}

/** Of one value: as much as is stored in one record with room to spare. */
constexpr std::size_t kMostInput = 64UL * 1024 * 1024;

std::string standardInput() {
  std::string content;
  std::array<char, 65536> piece{};
  for (;;) {
    waitUntilReady(STDIN_FILENO, POLLIN);
    const ssize_t size = ::read(STDIN_FILENO, piece.data(), piece.size());
    if (size == 0) {
      return content;
    }
    if (size > 0) {
      content.append(piece.data(), static_cast<std::size_t>(size));
      if (content.size() > kMostInput) {
        throw Failure(ExitStatus::Failed,
                      "there is more than " + sizeText(kMostInput) + " at the standard input");
      }
    } else if (errno != EINTR) {
      throw Failure(ExitStatus::Failed,
                    "cannot read the standard input: " + std::system_category().message(errno));
    }
  }
}

}  // namespace KELP::Tool
