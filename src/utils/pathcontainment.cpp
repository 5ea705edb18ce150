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

/** Whether @p path is the text of @p directory, one separator and one name. */
bool namesEntryOf(std::string_view directory, std::string_view path) {
  if (directory.ends_with('/') || !path.starts_with(directory)) {
    return false;
  }
  const std::string_view rest = path.substr(directory.size());
  return rest.size() > 1 && rest.rfind('/') == 0 && rest != "/." && rest != "/..";
}

/**
 * Whether resolving @p directory is sure to work, found out by one look instead of one for each of
 * its components. False says nothing.
 *
 * When the whole path can be looked up, or all but a missing end of it, then so can each of its
 * beginnings, which is all that resolving does. A relative path also needs the working directory.
 */
bool surelyResolves(const std::string& directory, bool requireExisting) {
  struct stat status {};
  return directory.starts_with('/') &&
         (::stat(directory.c_str(), &status) == 0 ||
          (!requireExisting && (errno == ENOENT || errno == ENOTDIR)));
}

}  // namespace

bool VerifyFilePathIsWithinRequiredDirectory(const std::string& path,
                                             const std::string& requiredDir, bool requireExisting,
                                             bool allowNested) {
  // The usual question, about a file directly in the directory: both sides resolve to the same.
  if (namesEntryOf(requiredDir, path) && surelyResolves(requiredDir, requireExisting)) {
    return true;
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
