#include "os/fileio.h"

#include <fcntl.h>
#include <unistd.h>

namespace KELP::OS {

FileDescriptor openFile(const std::string& path, int flags) {
  constexpr mode_t kMode = 0644;
  constexpr int kFlags = O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;
  return FileDescriptor(retryOnSignal([&] { return ::open(path.c_str(), flags | kFlags, kMode); }));
}

bool readAt(int file, std::uint64_t offset, std::string& out) {
  std::size_t done = 0;
  while (done < out.size()) {
    const ssize_t count = retryOnSignal([&] {
      return ::pread(file, out.data() + done, out.size() - done, static_cast<off_t>(offset + done));
    });
    if (count < 0) {
      return false;
    }
    if (count == 0) {
      out.resize(done);
    }
    done += static_cast<std::size_t>(count);
  }
  return true;
}

bool writeAt(int file, std::uint64_t offset, std::string_view bytes) {
  const ssize_t count = retryOnSignal(
      [&] { return ::pwrite(file, bytes.data(), bytes.size(), static_cast<off_t>(offset)); });
  return count == static_cast<ssize_t>(bytes.size());
}

bool syncFile(int file) {
  return retryOnSignal([&] { return ::fsync(file); }) == 0;
}

bool syncDirectoryOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  const std::string directory =
      slash == std::string::npos ? "." : path.substr(0, slash == 0 ? 1 : slash);
  const FileDescriptor opened(
      retryOnSignal([&] { return ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
  return opened && syncFile(opened.get());
}

bool copyOwnership(int from, int to) {
  struct stat wanted {};
  struct stat given {};
  if (::fstat(from, &wanted) != 0 || ::fstat(to, &given) != 0) {
    return false;
  }
  const bool owned = given.st_uid == wanted.st_uid && given.st_gid == wanted.st_gid;
  return (owned || ::fchown(to, wanted.st_uid, wanted.st_gid) == 0) &&
         ::fchmod(to, wanted.st_mode & 07777) == 0;
}

bool sameFile(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

}  // namespace KELP::OS
