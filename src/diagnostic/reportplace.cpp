#include "diagnostic/reportplace.h"

#include <diagnostic/reportuuid.h>

#include <dirent.h>
#include <fcntl.h>
#include <sys/sendfile.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <utility>
#include <vector>

namespace KELP::Diagnostic {
namespace {

namespace fs = std::filesystem;
using OS::FileDescriptor;

/** What the standard library's own file operations give. */
std::error_code lastError() {
  return {errno, std::generic_category()};
}

FileDescriptor openAt(int directory, const std::string& name, int flags, mode_t mode = 0) {
  return FileDescriptor(OS::retryOnSignal(
      [&] { return ::openat(directory, name.c_str(), flags | O_CLOEXEC, mode); }));
}

/** The type of what has that name; 0 when there is nothing. */
mode_t typeOf(int directory, const std::string& name) {
  struct stat status {};
  return ::fstatat(directory, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0
             ? status.st_mode & S_IFMT
             : 0;
}

/** Opens a directory in an open one, and makes it when it is missing and that is wanted. */
FileDescriptor enter(int directory, const std::string& name, Missing missing) {
  FileDescriptor entered = openDirectory(directory, name);
  if (entered || missing == Missing::Fail) {
    return entered;
  }
  if (errno == ENOENT && (::mkdirat(directory, name.c_str(), 0777) == 0 || errno == EEXIST)) {
    entered = openDirectory(directory, name);
  }
  if (const int error = errno; !entered) {
    errno = typeOf(directory, name) == S_IFLNK ? EEXIST : error;  // As mkdir() has it.
  }
  return entered;
}

/** Opens the directory @p directory of a report. */
std::error_code openWithin(const fs::path& report, const fs::path& directory, Missing missing,
                           FileDescriptor& opened) {
  std::error_code code;
  const fs::path top = fs::canonical(report, code);
  const fs::path resolved = code ? fs::path() : fs::weakly_canonical(directory, code);
  if (code) {
    return code;
  }
  const fs::path way = resolved.lexically_relative(top);
  if (way.empty() || *way.begin() == "..") {
    return std::make_error_code(std::errc::too_many_symbolic_link_levels);
  }
  opened = openAt(AT_FDCWD, top, O_PATH | O_DIRECTORY);
  for (const fs::path& step : way) {
    if (opened && !step.empty()) {
      opened = enter(opened.get(), step, missing);
    }
  }
  return opened ? std::error_code() : lastError();
}

bool isSameFile(const struct stat& one, const struct stat& other) {
  return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

/** What is copied: a file that is open, and what it is. */
struct Source {
  FileDescriptor file;
  struct stat status {};
};

/** Opens the file, and only looks at what is none: to open a fifo or a device may take for ever. */
std::error_code openSource(const fs::path& path, Source& source) {
  if (::stat(path.c_str(), &source.status) != 0) {
    return lastError();
  }
  if (S_ISREG(source.status.st_mode)) {
    source.file = openAt(AT_FDCWD, path, O_RDONLY | O_NONBLOCK | O_NOCTTY);
    if (!source.file || ::fstat(source.file.get(), &source.status) != 0) {
      return lastError();
    }
  }
  return S_ISREG(source.status.st_mode) ? std::error_code()
                                        : std::make_error_code(std::errc::invalid_argument);
}

/** Copies by reading and writing. @return whether all was copied. */
bool pump(int from, int to, off_t done, off_t size) {
  std::array<char, 65536> buffer{};
  while (done < size) {
    const auto wanted = std::min(static_cast<off_t>(buffer.size()), size - done);
    const ssize_t count = OS::retryOnSignal(
        [&] { return ::pread(from, buffer.data(), static_cast<std::size_t>(wanted), done); });
    if (count <= 0) {
      return false;
    }
    for (ssize_t written = 0; written < count;) {
      const ssize_t part = OS::retryOnSignal([&] {
        return ::write(to, buffer.data() + written, static_cast<std::size_t>(count - written));
      });
      if (part < 0) {
        return false;
      }
      written += part;
    }
    done += count;
  }
  return true;
}

/** Fills the empty file @p to. What fails after a part was copied is an input/output error. */
std::error_code fill(const Source& source, FileDescriptor& to) {
  if (::fchmod(to.get(), source.status.st_mode & 07777) != 0) {
    return lastError();
  }
  const off_t size = source.status.st_size;
  off_t done = 0;
  ssize_t count = 1;
  while (done < size && count > 0) {
    count = ::sendfile(to.get(), source.file.get(), &done, static_cast<std::size_t>(size - done));
  }
  if (count < 0 && done == 0 && errno != EINVAL && errno != ENOSYS && errno != EINTR) {
    return lastError();
  }
  if (!pump(source.file.get(), to.get(), done, size)) {
    return std::make_error_code(std::errc::io_error);
  }
  return to.close() ? std::error_code() : lastError();
}

/** Copies into a file of another name, and gives it the name when it is complete. */
std::error_code replaceLink(const Source& source, const ReportPlace& place) {
  ReportUuid random;
  random.randomize();
  const std::string name = random.toString();
  const int directory = place.directory.get();
  FileDescriptor copy = openAt(directory, name, O_WRONLY | O_CREAT | O_EXCL, S_IWUSR);
  if (!copy) {
    return lastError();
  }
  std::error_code code = fill(source, copy);
  if (!code && ::renameat(directory, name.c_str(), directory, place.name.c_str()) != 0) {
    code = lastError();
  }
  if (code) {
    ::unlinkat(directory, name.c_str(), 0);
  }
  return code;
}

/** Why nothing can be copied over what is there. */
std::error_code whyNoDestination(const struct stat& status, const Source& source) {
  if (!S_ISREG(status.st_mode)) {
    return std::make_error_code(std::errc::invalid_argument);
  }
  return isSameFile(status, source.status) ? std::make_error_code(std::errc::file_exists)
                                           : std::error_code();
}

/** Copies over the file of that name, which is made when there is none. */
std::error_code overwriteFile(const Source& source, const ReportPlace& place) {
  FileDescriptor copy = openAt(place.directory.get(), place.name,
                               O_WRONLY | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY, S_IWUSR);
  struct stat status {};
  if (!copy || ::fstat(copy.get(), &status) != 0) {
    return lastError();
  }
  if (const std::error_code code = whyNoDestination(status, source)) {
    return code;
  }
  return ::ftruncate(copy.get(), 0) == 0 ? fill(source, copy) : lastError();
}

struct CloseDirectory {
  void operator()(DIR* directory) const { ::closedir(directory); }
};

using Entries = std::unique_ptr<DIR, CloseDirectory>;

/** What is in an open directory; nothing when that cannot be read, with the reason in `errno`. */
Entries entriesOf(int directory) {
  FileDescriptor again = openAt(directory, ".", O_RDONLY | O_DIRECTORY);
  Entries entries(again ? ::fdopendir(again.get()) : nullptr);
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
  const Entries entries = entriesOf(directory);
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
    if (!isSameFile(status, levels.back().status)) {
      return std::make_error_code(std::errc::no_such_file_or_directory);
    }
    code = removeEntry(directory.get(), levels.back().subdirs.back());
    levels.back().subdirs.pop_back();
  }
  return code;
}

}  // namespace

std::error_code findPlace(const fs::path& report, const fs::path& path, Missing missing,
                          ReportPlace& place) {
  const fs::path entry = path.has_filename() ? path : path.parent_path();
  place.name = entry.filename();
  return openWithin(report, entry.parent_path(), missing, place.directory);
}

std::error_code makeDirectories(const fs::path& report, const fs::path& directory) {
  FileDescriptor opened;
  fs::path way;
  for (const fs::path& step : directory) {
    if (step == "..") {
      // The system only finds ".." in what is there. Outside of the report nothing is made.
      openWithin(report, way, Missing::MakeDirectories, opened);
    }
    way /= step;
  }
  return openWithin(report, directory, Missing::MakeDirectories, opened);
}

std::error_code copyFile(const fs::path& source, const ReportPlace& place) {
  Source opened;
  if (const std::error_code code = openSource(source, opened)) {
    return code;
  }
  struct stat status {};
  if (::fstatat(place.directory.get(), place.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0) {
    if (S_ISLNK(status.st_mode)) {
      return replaceLink(opened, place);
    }
    if (const std::error_code code = whyNoDestination(status, opened)) {
      return code;
    }
  } else if (errno != ENOENT) {
    return lastError();  // There may be a link.
  }
  return overwriteFile(opened, place);
}

void removeFiles(const fs::path& report, const fs::path& path) {
  ReportPlace place;
  if (findPlace(report, path, Missing::Fail, place)) {
    return;
  }
  const mode_t type = typeOf(place.directory.get(), place.name);
  if (path.has_filename() || type == S_IFDIR || type == S_IFLNK) {
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

FileDescriptor openDirectory(int directory, const std::string& name) {
  return openAt(directory, name, O_PATH | O_DIRECTORY | O_NOFOLLOW);
}

}  // namespace KELP::Diagnostic
