#include "diagnostic/reportmetadata.h"

#include <diagnostic/diagnosticreport.h>

#include <ctime>

namespace KELP::Diagnostic {
namespace {

namespace keys = MetadataKeys;

/** What was read, or the refusal @p absent. */
template <typename T>
OS::expected<T, DiagnosticError> required(std::optional<T> value, OS::LogFormat<> absent) {
  if (!value) {
    return fail(absent);
  }
  return *std::move(value);
}

}  // namespace

ReportUuid DiagnosticReport::getId() const {
  return id_;
}

DiagnosticReport::PathResult DiagnosticReport::getReportDirPath() const {
  return _getReportDirPath();
}

OS::expected<int, DiagnosticError> DiagnosticReport::getReporterAppId() const {
  return required(read(keys::kAppId), "Report doesn't have an associated App Id");
}

OS::expected<int, DiagnosticError> DiagnosticReport::getBuildId() const {
  return required(read(keys::kBuildId), "Report doesn't have an associated Build Id");
}

OS::expected<int, DiagnosticError> DiagnosticReport::getUserId() const {
  return required(read(keys::kUserId), "Report doesn't have an associated User Id");
}

OS::expected<std::string, DiagnosticError> DiagnosticReport::getDeviceId() const {
  return required(read(keys::kDeviceId), "Report doesn't have an associated Device Id");
}

OS::expected<std::string, DiagnosticError> DiagnosticReport::getSessionId() const {
  return required(read(keys::kSessionId), "Report doesn't have an associated Session Id");
}

long DiagnosticReport::getCreatedTime() const {
  return read(keys::kCreated).value_or(std::time(nullptr));
}

long DiagnosticReport::getModifiedTime() const {
  return read(keys::kModified).value_or(std::time(nullptr));
}

}  // namespace KELP::Diagnostic
