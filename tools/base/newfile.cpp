#include "base/newfile.h"

#include "base/failure.h"
#include "base/text.h"

#include <diagnostic/reportuuid.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <system_error>
#include <utility>

namespace KELP::Tool {
namespace {

namespace fs = std::filesystem;

fs::path directoryOf(const fs::path& path) {
  return path.has_parent_path() ? path.parent_path() : fs::path(".");
}

/** A name that nobody else uses, short enough for any file system. */
fs::path temporaryFor(const fs::path& path) {
  Diagnostic::ReportUuid random;
  random.randomize();
  return directoryOf(path) / (".kelp-diagnostics-" + random.toString() + ".tmp");
}

/** Throws a Failure unless @p path is free, or may be replaced. */
void requireFree(const fs::path& path, bool mayReplace) {
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0) {
    return;
  }
  if (!mayReplace) {
    throw Failure(ExitStatus::Failed,
                  escaped(path.native()) + " exists already; --force replaces it");
  }
  if (!S_ISREG(status.st_mode) && !S_ISLNK(status.st_mode)) {
    throw Failure(ExitStatus::Failed, escaped(path.native()) + " is no file to be replaced");
  }
}

}  // namespace

NewFile::NewFile(fs::path path, bool mayReplace)
    : path_(std::move(path)), temporary_(temporaryFor(path_)), mayReplace_(mayReplace) {
  requireFree(path_, mayReplace_);
  descriptor_ =
      ::open(temporary_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666);
  if (descriptor_ < 0) {
    fail(errno);
  }
}

NewFile::~NewFile() {
  ::close(descriptor_);
  if (!temporary_.empty()) {
    ::unlink(temporary_.c_str());
  }
}

void NewFile::commit() {
  if (::fsync(descriptor_) != 0) {
    fail(errno);
  }
  giveName();
  temporary_.clear();
  // The name too shall survive a power cut; some file systems cannot say so.
  const int directory = ::open(directoryOf(path_).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (directory >= 0) {
    ::fsync(directory);
    ::close(directory);
  }
}

void NewFile::fail(int error) const {
  throw Failure(ExitStatus::Failed, "cannot write " + escaped(path_.native()) + ": " +
                                        std::system_category().message(error));
}

void NewFile::giveName() const {
  const unsigned flags = mayReplace_ ? 0 : RENAME_NOREPLACE;
  if (::renameat2(AT_FDCWD, temporary_.c_str(), AT_FDCWD, path_.c_str(), flags) == 0) {
    return;
  }
  int error = errno;
  if (!mayReplace_ && (error == EINVAL || error == ENOSYS)) {  // This file system cannot do that.
    requireFree(path_, false);
    error = ::rename(temporary_.c_str(), path_.c_str()) == 0 ? 0 : errno;
  }
  if (error == EEXIST) {
    requireFree(path_, false);
  }
  if (error != 0) {
    fail(error);
  }
}

}  // namespace KELP::Tool
