#include "verbs/protectedfiles.h"

#include "base/files.h"
#include "reports/contents.h"

#include <diagnostic/diagnosticreport.h>

namespace KELP::Tool {

ProtectedFiles::ProtectedFiles(const StoredReport& report, bool allLevels) {
  using Diagnostic::DiagnosticReport;
  const auto store = report.directory / DiagnosticReport::kReportMetadataFilename;
  add(report.directory / DiagnosticReport::kReportLockFilename);
  add(store);
  add(store.native() + ".compact");
  if (allLevels || !report.metadata.contents) {
    return;
  }
  for (const Property& property : *report.metadata.contents) {
    for (const Variation& variation : property.variations) {
      const bool isHidden = !isPermitted(variation, report.metadata.permittedLevel());
      if (const auto file = isHidden && property.isFileProperty() ? storedFile(report, variation)
                                                                  : std::nullopt) {
        add(*file);
      }
    }
  }
}

bool ProtectedFiles::include(const struct stat& file) const {
  return files_.contains({file.st_dev, file.st_ino});
}

void ProtectedFiles::add(const std::filesystem::path& path) {
  if (const auto entry = entryAt(path)) {
    files_.insert({entry->status.st_dev, entry->status.st_ino});
  }
}

}  // namespace KELP::Tool
