#include "diagnostic/direntry.h"
#include "diagnostic/removefiles.h"
#include "diagnostic/reportcontentsformat.h"
#include "diagnostic/reportmetadata.h"

#include <diagnostic/diagnosticreport.h>

#include <fcntl.h>
#include <sys/stat.h>

#include <string>
#include <utility>
#include <vector>

// What reduces a report before it leaves the device: the data policy, and filters of stored files.

namespace KELP::Diagnostic {
namespace {

namespace fs = std::filesystem;
namespace keys = MetadataKeys;
using Result = DiagnosticReport::Result;

/**
 * Opens a stored file as its filter gets it. A fifo or a device in its place is not opened, which
 * might take for ever; the stream has then failed, as that of a file that cannot be read.
 */
std::ifstream openStored(const fs::path& path) {
  std::ifstream stream;
  stream.setstate(std::ios::failbit);
  const OS::FileDescriptor file = openAt(AT_FDCWD, path, O_RDONLY | O_NONBLOCK | O_NOCTTY);
  struct stat status {};
  if (file && ::fstat(file.get(), &status) == 0 &&
      (S_ISREG(status.st_mode) || S_ISDIR(status.st_mode))) {
    // By its number, since the path may name another file by now.
    stream.open("/proc/self/fd/" + std::to_string(file.get()), std::ios::binary | std::ios::in);
    if (!stream.is_open()) {
      stream.open(path, std::ios::binary | std::ios::in);  // Where there is no /proc.
    }
  }
  return stream;
}

/**
 * Makes the file for a filter's output as private as the stored file, whose mode it hands on when
 * it is copied there. When that fails, opening the output makes the file.
 */
void makeOutput(const fs::path& path, fs::perms stored) {
  constexpr fs::perms kOwners = fs::perms::owner_read | fs::perms::owner_write;
  const OS::FileDescriptor file =
      openAt(AT_FDCWD, path, O_WRONLY | O_CREAT | O_EXCL, static_cast<mode_t>(kOwners));
  if (file) {
    ::fchmod(file.get(), static_cast<mode_t>((stored & fs::perms::all) | kOwners));
  }
}

}  // namespace

Result DiagnosticReport::applyPolicyFilters() {
  std::optional<ReportContents> contents = getReportContents();
  if (!contents) {
    return fail("Cannot remove content property variations from report with no contents");
  }
  const int permitted = permittedLevel();
  std::vector<fs::path> files;
  for (Properties& property : *contents) {
    std::erase_if(property.variations, [&](const Variations& variation) {
      if (variation.sensitivity_level <= permitted) {
        return false;
      }
      if (property.isFileProperty()) {
        if (PathResult path = _getReportRelativePath(variation.relative_path)) {
          files.push_back(*std::move(path));
        } else {
          OS::logError("Unable to determine destination path for file to remove");
        }
      }
      return true;
    });
  }
  Result changed = change(keys::kReportContents, *std::move(contents),
                          "Failed to write updated contents for variation removal");
  if (changed) {
    for (const fs::path& file : files) {
      removeFiles(*_getReportDirPath(), file);
    }
  }
  return changed;
}

DiagnosticReport::TemporaryFileResult DiagnosticReport::filterFileVariationToTemporaryFile(
    std::string name, int variation, FileFilter filter) {
  TemporaryFileResult created = createReportTemporaryFile();
  if (!created) {
    return passOn(created.error(), "Failed to write updated contents for file variation filter");
  }
  std::shared_ptr<ReportTemporaryFile> temporary = *std::move(created);
  if (!temporary) {
    return fail("Temporary file to filter is null");
  }
  if (!temporary->isValid()) {
    return fail("Temporary file to filter is not valid");
  }
  const std::optional<fs::path> path = temporary->getPath();
  if (!path) {
    return fail("Temporary file to filter has no path");
  }
  const PathResult stored = getReportFileVariationPath(std::move(name), variation);
  if (!stored) {
    return stored.error();
  }
  const fs::file_status status = fs::status(*stored);
  if (!fs::exists(status)) {
    return fail(noCode(), "Temporary file to filter does not exist",
                "Temporary file (%s) to filter does not exist", stored->c_str());
  }

  makeOutput(*path, status.permissions());
  std::ofstream output(*path, std::ios::binary | std::ios::in | std::ios::out | std::ios::trunc);
  std::ifstream input = openStored(*stored);
  if (!filter(input, output)) {
    return DiagnosticError(noCode(), "Filter aborted without error condition");
  }
  output.close();
  input.close();
  return temporary;
}

Result DiagnosticReport::filterFileVariation(std::string name, int variation, FileFilter filter) {
  TemporaryFileResult filtered =
      filterFileVariationToTemporaryFile(name, variation, std::move(filter));
  if (!filtered) {
    return std::move(filtered).error();
  }
  if (*filtered == nullptr) {
    return fail("Filtered temporary file is null");
  }
  if (!(*filtered)->isValid()) {
    return fail("Filtered temporary file is not valid");
  }
  return moveReportTemporaryFileToFileProperty(std::move(name), variation, *std::move(filtered), "",
                                               true);
}

}  // namespace KELP::Diagnostic
