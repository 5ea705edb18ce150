#include "diagnostic/copyfile.h"

#include "diagnostic/direntry.h"
#include "os/fileio.h"

#include <diagnostic/reportuuid.h>

#include <fcntl.h>
#include <sys/sendfile.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <optional>

namespace KELP::Diagnostic {
namespace {

namespace fs = std::filesystem;
using OS::FileDescriptor;

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

/** Copies by reading and writing, up to @p size or, when that is empty, to the end. @return whether
 * all was copied. */
bool pump(int from, int to, off_t done, std::optional<off_t> size) {
  std::array<char, 65536> buffer{};
  while (done != size) {
    const auto most = static_cast<off_t>(buffer.size());
    const auto wanted = size ? std::min(most, *size - done) : most;
    const ssize_t count = OS::retryOnSignal(
        [&] { return ::pread(from, buffer.data(), static_cast<std::size_t>(wanted), done); });
    if (count <= 0) {
      return count == 0 && !size;
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

/** How much there is to copy; empty for a file that the system makes while it is read, as in /proc:
 * such a file has no size. */
std::optional<off_t> sizeOf(const Source& source) {
  struct stat now = source.status;
  char first = 0;
  if (now.st_size == 0 &&
      OS::retryOnSignal([&] { return ::pread(source.file.get(), &first, 1, 0); }) > 0 &&
      ::fstat(source.file.get(), &now) == 0 && now.st_size == 0) {
    return std::nullopt;
  }
  return now.st_size;  // It may have grown just now.
}

/** Fills the empty file @p to. What fails after a part was copied is an input/output error. */
std::error_code fill(const Source& source, FileDescriptor& to) {
  if (::fchmod(to.get(), source.status.st_mode & 07777) != 0) {
    return lastError();
  }
  const std::optional<off_t> size = sizeOf(source);
  off_t done = 0;
  ssize_t count = 1;
  while (size && done < *size && count > 0) {
    count = ::sendfile(to.get(), source.file.get(), &done, static_cast<std::size_t>(*size - done));
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
  return OS::sameFile(status, source.status) ? std::make_error_code(std::errc::file_exists)
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
  // ext4 writes a file out when it is closed after it was cut to nothing, even one that was empty.
  if (status.st_size > 0 && ::ftruncate(copy.get(), 0) != 0) {
    return lastError();
  }
  return fill(source, copy);
}

}  // namespace

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

}  // namespace KELP::Diagnostic
