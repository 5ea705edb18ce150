#include "diagnostic/removefiles.h"

#include "diagnostic/direntry.h"
#include "diagnostic/reportplace.h"
#include "os/fileio.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <utility>
#include <vector>

namespace KELP::Diagnostic {
namespace {

namespace fs = std::filesystem;
using OS::FileDescriptor;

/** What is in an open directory; nothing when that cannot be read, with the reason in `errno`. */
DirectoryEntries entriesOf(int directory) {
  FileDescriptor again = openAt(directory, ".", O_RDONLY | O_DIRECTORY);
  DirectoryEntries entries(again ? ::fdopendir(again.get()) : nullptr);
  if (entries) {
    again.release();
  }
  return entries;
}

/** Whether an entry could not be removed, for the reason @p code, because it is a directory with
 *  something in it. */
bool isFilledDirectory(int directory, const std::string& name, const std::error_code& code) {
  return code && (code == std::errc::directory_not_empty || typeOf(directory, name) == S_IFDIR);
}

/** A directory that is being emptied. */
struct Level {
  struct stat status {};             ///< Which one it is.
  std::vector<std::string> subdirs;  ///< What is still in it.
};

/** Removes the files of an open directory, and tells its subdirectories. */
std::error_code removeFilesOf(int directory, Level& level) {
  if (::fstat(directory, &level.status) != 0) {
    return lastError();
  }
  const DirectoryEntries entries = entriesOf(directory);
  if (!entries) {
    return lastError();
  }
  errno = 0;
  while (const dirent* const entry = ::readdir(entries.get())) {
    const std::string name = entry->d_name;
    if (name != "." && name != "..") {
      const std::error_code code = removeEntry(directory, name);
      if (isFilledDirectory(directory, name, code)) {
        level.subdirs.push_back(name);
      } else if (code) {
        return code;
      }
    }
    errno = 0;
  }
  return errno == 0 ? std::error_code() : lastError();
}

/** Opens a directory for reading it, by a name that is no symbolic link. */
FileDescriptor openForReading(int directory, const std::string& name) {
  return openAt(directory, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_NONBLOCK);
}

/** Goes into the last subdirectory of where @p directory is, or drops it if it is none any more. */
std::error_code goDown(FileDescriptor& directory, std::vector<Level>& levels) {
  const std::string& name = levels.back().subdirs.back();
  if (FileDescriptor below = openForReading(directory.get(), name)) {
    directory = std::move(below);
    return removeFilesOf(directory.get(), levels.emplace_back());
  }
  const std::error_code unopened = lastError();
  const std::error_code code = removeEntry(directory.get(), name);
  const bool isFilled = isFilledDirectory(directory.get(), name, code);
  levels.back().subdirs.pop_back();
  return isFilled ? unopened : code;
}

/**
 * Removes all that is in an open directory. Goes down into a subdirectory and up again, with one
 * descriptor, however deep it is: up is where it came from, or else somebody moves directories
 * about.
 */
std::error_code emptyDirectory(FileDescriptor directory) {
  std::vector<Level> levels(1);
  std::error_code code = removeFilesOf(directory.get(), levels.back());
  while (!code && (levels.size() > 1 || !levels.back().subdirs.empty())) {
    if (!levels.back().subdirs.empty()) {
      code = goDown(directory, levels);
      continue;
    }
    directory = openForReading(directory.get(), "..");
    levels.pop_back();
    struct stat status {};
    if (!directory || ::fstat(directory.get(), &status) != 0) {
      return lastError();
    }
    if (!OS::sameFile(status, levels.back().status)) {
      return std::make_error_code(std::errc::no_such_file_or_directory);
    }
    code = removeEntry(directory.get(), levels.back().subdirs.back());
    levels.back().subdirs.pop_back();
  }
  return code;
}

bool isDirectoryOrLink(const ReportPlace& place) {
  const mode_t type = typeOf(place.directory.get(), place.name);
  return type == S_IFDIR || type == S_IFLNK;
}

}  // namespace

void removeFiles(const fs::path& report, const fs::path& path) {
  ReportPlace place;
  if (findPlace(report, path, place)) {
    return;
  }
  // A path that ends with a separator names no file.
  if (path.has_filename() || isDirectoryOrLink(place)) {
    removeTree(place.directory.get(), place.name);
  }
}

std::error_code removeTree(int directory, const std::string& name) {
  std::error_code code = removeEntry(directory, name);
  if (!isFilledDirectory(directory, name, code)) {
    return code;
  }
  FileDescriptor opened = openForReading(directory, name);
  if (!opened) {
    return lastError();
  }
  code = emptyDirectory(std::move(opened));
  return code ? code : removeEntry(directory, name);
}

std::error_code removeEntry(int directory, const std::string& name) {
  if (::unlinkat(directory, name.c_str(), 0) == 0 || errno == ENOENT || errno == ENOTDIR) {
    return {};
  }
  const std::error_code code = lastError();
  if (::unlinkat(directory, name.c_str(), AT_REMOVEDIR) == 0 || errno == ENOENT) {
    return {};
  }
  return errno == ENOTDIR ? code : lastError();
}

std::error_code removeReportDirectory(const fs::path& directory) {
  constexpr int kAttempts = 100;
  std::error_code code;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    code = removeTree(AT_FDCWD, directory);
    if (code != std::errc::directory_not_empty && code != std::errc::no_such_file_or_directory) {
      break;
    }
  }
  return code;
}

}  // namespace KELP::Diagnostic
