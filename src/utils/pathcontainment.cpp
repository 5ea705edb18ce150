#include "os/log.h"

#include <utils/pathcontainment.h>

#include <filesystem>
#include <system_error>

namespace KELP::Utils {
namespace {

namespace fs = std::filesystem;

fs::path resolve(const fs::path& path, bool requireExisting, std::error_code& error) {
  error.clear();
  return requireExisting ? fs::canonical(path, error) : fs::weakly_canonical(path, error);
}

/**
 * Whether resolving @p directory is sure to work, found out by one look instead of one for each of
 * its components. False says nothing.
 *
 * When the whole path can be looked up, or all but a missing end of it, then so can each of its
 * beginnings, which is all that resolving does. A relative path also needs the working directory.
 */
bool surelyResolves(const fs::path& directory, bool requireExisting) {
  std::error_code error;
  const fs::file_type type = fs::status(directory, error).type();
  return directory.is_absolute() && fs::status_known(fs::file_status(type)) &&
         (!requireExisting || type != fs::file_type::not_found);
}

}  // namespace

bool VerifyFilePathIsWithinRequiredDirectory(const std::string& path,
                                             const std::string& requiredDir, bool requireExisting,
                                             bool allowNested) {
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
  // The usual question, about a file directly in the directory: both resolve to the same.
  if (parent.native() == requiredDir && surelyResolves(parent, requireExisting)) {
    return true;
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
