#pragma once

#include "os/filedescriptor.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <memory>
#include <string>
#include <system_error>

/** @file Entries of open directories. */
namespace KELP::Diagnostic {

struct CloseDirectory {
  void operator()(DIR* directory) const { ::closedir(directory); }
};

/** A directory that is being listed. */
using DirectoryEntries = std::unique_ptr<DIR, CloseDirectory>;

/** What the standard library's own file operations give. */
inline std::error_code lastError() {
  return {errno, std::generic_category()};
}

inline OS::FileDescriptor openAt(int directory, const std::string& name, int flags,
                                 mode_t mode = 0) {
  return OS::FileDescriptor(OS::retryOnSignal(
      [&] { return ::openat(directory, name.c_str(), flags | O_CLOEXEC, mode); }));
}

/** The type of what has that name; 0 when there is nothing. */
inline mode_t typeOf(int directory, const std::string& name) {
  struct stat status {};
  return ::fstatat(directory, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0
             ? status.st_mode & S_IFMT
             : 0;
}

/** Opens a directory for what is done with its entries, by a name that is no symbolic link. */
inline OS::FileDescriptor openDirectory(int directory, const std::string& name) {
  return openAt(directory, name, O_PATH | O_DIRECTORY | O_NOFOLLOW);
}

}  // namespace KELP::Diagnostic
