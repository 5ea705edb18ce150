#include "os/log.h"

#include <utils/pathcontainment.h>

#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <string_view>
#include <system_error>

namespace KELP::Utils {
namespace {

namespace fs = std::filesystem;

fs::path resolve(const fs::path& path, bool requireExisting, std::error_code& error) {
  error.clear();
  return requireExisting ? fs::canonical(path, error) : fs::weakly_canonical(path, error);
}

/** Whether @p path is the text of @p directory, followed by separators and plain names in turn. */
bool isBelowByText(std::string_view directory, std::string_view path) {
  if (directory.ends_with('/') || directory.size() >= path.size() || !path.starts_with(directory)) {
    return false;
  }
  path.remove_prefix(directory.size());
  while (path.starts_with('/')) {
    path.remove_prefix(1);
    const std::string_view name = path.substr(0, path.find('/'));
    if (name.empty() || name == "." || name == "..") {
      return false;
    }
    path.remove_prefix(name.size());
  }
  return path.empty();
}

/** Whether the system can look up all of @p path, or all but a missing end of it. */
bool canBeLookedUp(const std::string& path, bool requireExisting) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 ||
         (!requireExisting && (errno == ENOENT || errno == ENOTDIR));
}

/**
 * Whether resolving @p directory is sure to work, found out by one look instead of one for each of
 * its components. False says nothing.
 *
 * When the whole path can be looked up, then so can each of its beginnings. A relative path also
 * needs the working directory. (Resolving refuses what is within all the same if its links come to
 * a path longer than the system takes, or if one in /proc leads to a removed directory.)
 */
bool surelyResolves(const std::string& directory, bool requireExisting) {
  return directory.starts_with('/') && canBeLookedUp(directory, requireExisting);
}

/**
 * Whether @p path, which is below @p directory by its text, is sure to resolve to a place there,
 * found out by one look at each directory in between. False says nothing.
 *
 * Where none of them is a symbolic link, both sides resolve to the same beginning.
 */
bool surelyStaysBelow(const std::string& directory, const std::string& path, bool requireExisting) {
  for (std::size_t end = path.find('/', directory.size() + 1); end != std::string::npos;
       end = path.find('/', end + 1)) {
    struct stat status {};
    if (::lstat(path.substr(0, end).c_str(), &status) != 0) {
      // Behind the first that is missing there is no link, but the whole may be too long.
      return !requireExisting && canBeLookedUp(path.substr(0, path.rfind('/')), false);
    }
    if (S_ISLNK(status.st_mode)) {
      return false;
    }
  }
  return true;
}

}  // namespace

bool VerifyFilePathIsWithinRequiredDirectory(const std::string& path,
                                             const std::string& requiredDir, bool requireExisting,
                                             bool allowNested) {
  // The usual questions, about a file that the caller has put below the directory.
  if (isBelowByText(requiredDir, path)) {
    const bool nested = path.find('/', requiredDir.size() + 1) != std::string::npos;
    // With a name in between, the directory has to be there: what is left to the text behind a
    // missing one may lead out of it again.
    if ((allowNested || !nested) && surelyResolves(requiredDir, requireExisting || nested) &&
        surelyStaysBelow(requiredDir, path, requireExisting)) {
      return true;
    }
  }

  fs::path file(path);
  if (file.filename().empty()) {
    file = file.parent_path();
  }
  if (file.filename() == "." || file.filename() == "..") {
    return false;
  }
  const fs::path parent = file.parent_path();
  if (file == parent) {
    return false;
  }
  std::error_code error;
  fs::path found = resolve(parent, requireExisting, error);
  if (error) {
    OS::logError("Error %s while attempting to resolve path: %s", error.message().c_str(),
                 parent.c_str());
    return false;
  }
  const fs::path required = resolve(requiredDir, requireExisting, error);
  if (error) {
    OS::logError("Error %s while attempting to resolve required path: %s", error.message().c_str(),
                 requiredDir.c_str());
    return false;
  }
  if (allowNested) {
    // The root directory is its own parent, and may still be longer than an empty requiredDir.
    while (found.native().size() > required.native().size() && found.has_relative_path()) {
      found = found.parent_path();
    }
  }
  return found == required;
}

}  // namespace KELP::Utils
