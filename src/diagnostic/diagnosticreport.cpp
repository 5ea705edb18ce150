#include "diagnostic/removefiles.h"
#include "diagnostic/reportmetadata.h"

#include <diagnostic/diagnosticreport.h>

#include <ctime>
#include <system_error>
#include <utility>

namespace KELP::Diagnostic {

namespace keys = MetadataKeys;

DiagnosticReport::DiagnosticReport() = default;

DiagnosticReport::DiagnosticReport(DiagnosticReport&& other) noexcept {
  *this = std::move(other);
}

DiagnosticReport& DiagnosticReport::operator=(DiagnosticReport&& other) noexcept {
  if (this != &other) {
    root_ = std::move(other.root_);
    id_ = other.id_;
    locked_ = other.locked_;
    shared_ = other.shared_;
    touched_ = other.touched_;
    lockDescriptor_ = other.lockDescriptor_;
    store_ = std::move(other.store_);
  }
  return *this;
}

DiagnosticReport::~DiagnosticReport() {
  if (lockDescriptor_ >= 0) {
    releaseLock();
    resetLock(-1);
  }
}

DiagnosticReport::Result DiagnosticReport::touch() {
  if (!locked_ || shared_) {
    return fail("Cannot modify report without a write lock");
  }
  if (!write(keys::kModified, static_cast<long>(std::time(nullptr)))) {
    return fail("Failed to update report modified time");
  }
  touched_ = true;
  return true;
}

DiagnosticReport::Result DiagnosticReport::deleteReport() {
  if (!locked_ || shared_) {
    return fail("Cannot delete report without a write lock");
  }
  const PathResult directory = _getReportDirPath();
  if (!directory) {
    return passOn(directory.error(), "Unable to determine directory to delete for report");
  }
  releaseLock();
  resetLock(-1);
  store_.reset();
  id_ = ReportUuid();

  if (const std::error_code code = removeReportDirectory(*directory)) {
    return fail(code, "Encountered errors while removing report files",
                "Encountered errors while removing report files: %s", code.message().c_str());
  }
  return true;
}

}  // namespace KELP::Diagnostic
