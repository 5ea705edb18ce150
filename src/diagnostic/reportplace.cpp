#include "diagnostic/reportplace.h"

#include "diagnostic/direntry.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>

namespace KELP::Diagnostic {
namespace {

namespace fs = std::filesystem;
using OS::FileDescriptor;

/** What to do about directories that are missing. */
enum class Missing { MakeDirectories, Fail };

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

/** Opens what is below @p directory by the names from @p step on, none of which is a link. */
FileDescriptor enterAll(FileDescriptor directory, fs::path::iterator step, fs::path::iterator end,
                        Missing missing) {
  for (; directory && step != end; ++step) {
    if (!step->empty()) {
      directory = enter(directory.get(), *step, missing);
    }
  }
  return directory;
}

/**
 * Opens the directory @p directory of a report without resolving it; nothing when its text does not
 * lead from the report downwards, when a link is on the way, or when anything fails.
 */
FileDescriptor openAsWritten(const fs::path& report, const fs::path& directory) {
  const auto end = directory.end();
  const auto [rest, below] = std::mismatch(report.begin(), report.end(), directory.begin(), end);
  if (rest != report.end() || std::find(below, end, "..") != end) {
    return {};
  }
  return enterAll(openAt(AT_FDCWD, report, O_PATH | O_DIRECTORY), below, end, Missing::Fail);
}

/**
 * Opens the directory @p directory of a report, by what it resolves to. The system finds nothing
 * by ".." behind what is missing or is no directory; only what is to be made is resolved beyond.
 */
std::error_code openWithin(const fs::path& report, const fs::path& directory, Missing missing,
                           FileDescriptor& opened) {
  std::error_code code;
  const fs::path top = fs::canonical(report, code);
  fs::path resolved;
  if (!code) {
    resolved = missing == Missing::Fail ? fs::canonical(directory, code)
                                        : fs::weakly_canonical(directory, code);
  }
  if (code) {
    return code;
  }
  const fs::path way = resolved.lexically_relative(top);
  if (way.empty() || *way.begin() == "..") {
    return std::make_error_code(std::errc::too_many_symbolic_link_levels);
  }
  opened = enterAll(openAt(AT_FDCWD, top, O_PATH | O_DIRECTORY), way.begin(), way.end(), missing);
  return opened ? std::error_code() : lastError();
}

}  // namespace

std::error_code findPlace(const fs::path& report, const fs::path& path, ReportPlace& place) {
  const fs::path entry = path.has_filename() ? path : path.parent_path();
  const fs::path directory = entry.parent_path();
  place.name = entry.filename();
  place.directory = openAsWritten(report, directory);
  return place.directory ? std::error_code()
                         : openWithin(report, directory, Missing::Fail, place.directory);
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

}  // namespace KELP::Diagnostic
