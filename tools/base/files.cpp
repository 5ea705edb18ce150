#include "base/files.h"

#include "base/failure.h"
#include "base/interrupt.h"
#include "base/text.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <optional>
#include <system_error>

namespace KELP::Tool {

namespace fs = std::filesystem;

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

std::optional<Entry> entryAt(const fs::path& path) {
  Entry entry{path, {}};
  if (::lstat(path.c_str(), &entry.status) != 0) {
    return std::nullopt;
  }
  return entry;
}

std::vector<Entry> entriesOf(const fs::path& directory) {
  std::vector<Entry> entries;
  std::error_code error;
  for (fs::directory_iterator at(directory, error), end; !error && at != end; at.increment(error)) {
    if (auto entry = entryAt(at->path())) {
      entries.push_back(*std::move(entry));
    }
  }
  std::sort(entries.begin(), entries.end(),
            [](const Entry& a, const Entry& b) { return a.path.native() < b.path.native(); });
  return entries;
}

void forEachBelow(const fs::path& directory, const std::function<void(const Entry&)>& visit) {
  std::vector<fs::path> left{directory};
  while (!left.empty()) {
    const fs::path next = std::move(left.back());
    left.pop_back();
    for (const Entry& entry : entriesOf(next)) {
      visit(entry);
      if (entry.isDirectory()) {
        left.push_back(entry.path);
      }
    }
  }
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
    pollfd input{STDIN_FILENO, POLLIN, 0};
    while (!waitUntilReady({&input, 1})) {
      checkInterrupt();
    }
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
