#include "diagnostic/reportmetadata.h"

#include <diagnostic/diagnosticreport.h>

// The stages of a report and its consent levels. A flag that is absent or unreadable is not set.

namespace KELP::Diagnostic {

namespace keys = MetadataKeys;

int DiagnosticReport::getCurrentConsentLevel() const {
  return read(keys::kCurrentConsentLevel).value_or(0);
}

DiagnosticReport::Result DiagnosticReport::setCurrentConsentLevel(int level) {
  if (isCreationComplete() && isUserInteractionComplete()) {
    return fail("Current report status does not support consent level changes");
  }
  return change(keys::kCurrentConsentLevel, level,
                "Failed to write updated consent level to report");
}

int DiagnosticReport::getMaxConsentLevel() const {
  return read(keys::kMaxConsentLevel).value_or(0);
}

DiagnosticReport::Result DiagnosticReport::setMaxConsentLevel(int level) {
  if (isCreationComplete()) {
    return fail("Current report status does not support max consent level changes");
  }
  return change(keys::kMaxConsentLevel, level,
                "Failed to write updated max consent level to report");
}

bool DiagnosticReport::isCreationComplete() const {
  return read(keys::kReportCreationComplete).value_or(false);
}

DiagnosticReport::Result DiagnosticReport::markCreationComplete() {
  if (isCreationComplete()) {
    return fail("Report creation is already complete");
  }
  return change(keys::kReportCreationComplete, true,
                "Failed to write updated creation status to report");
}

bool DiagnosticReport::isUserInteractionComplete() const {
  return read(keys::kUserInteractionComplete).value_or(false);
}

DiagnosticReport::Result DiagnosticReport::markUserInteractionComplete() {
  if (isUserInteractionComplete()) {
    return fail("User interaction is already complete");
  }
  return change(keys::kUserInteractionComplete, true,
                "Failed to write updated interaction status to report");
}

bool DiagnosticReport::canCollectData() const {
  return isCreationComplete() && !isDataCollectionComplete();
}

bool DiagnosticReport::isDataCollectionComplete() const {
  return read(keys::kDataCollectionComplete).value_or(false);
}

DiagnosticReport::Result DiagnosticReport::markDataCollectionComplete() {
  if (!canCollectData()) {
    return fail("Current report status does not support marking data collection as completed");
  }
  return change(keys::kDataCollectionComplete, true,
                "Failed to write updated data collection status to report");
}

bool DiagnosticReport::canApplyDataPolicy() const {
  return isCreationComplete() && isUserInteractionComplete() && isDataCollectionComplete() &&
         !isDataPolicyApplied();
}

bool DiagnosticReport::isDataPolicyApplied() const {
  return read(keys::kDataPolicyApplied).value_or(false);
}

DiagnosticReport::Result DiagnosticReport::markDataPolicyApplied() {
  if (!canApplyDataPolicy()) {
    return fail("Current report status does not support marking policy application as completed");
  }
  return change(keys::kDataPolicyApplied, true,
                "Failed to write updated policy application status to report");
}

bool DiagnosticReport::canUpload() const {
  return isCreationComplete() && isUserInteractionComplete() && isDataCollectionComplete() &&
         isDataPolicyApplied() && !isUploadComplete();
}

bool DiagnosticReport::isUploadComplete() const {
  return read(keys::kUploadComplete).value_or(false);
}

DiagnosticReport::Result DiagnosticReport::markUploadComplete() {
  if (!canUpload()) {
    return fail("Current report status does not support marking upload as completed");
  }
  return change(keys::kUploadComplete, true, "Failed to write updated upload status to report");
}

}  // namespace KELP::Diagnostic
