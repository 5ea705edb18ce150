#include "diagnostic/reportmetadata.h"

#include <diagnostic/diagnosticreport.h>

#include <utility>

// What produced a report. All but the description is fixed once creation is complete.

namespace KELP::Diagnostic {

namespace keys = MetadataKeys;

std::optional<std::string> DiagnosticReport::getDescription() const {
  return read(keys::kDescription);
}

DiagnosticReport::Result DiagnosticReport::setDescription(std::string description) {
  return change(keys::kDescription, std::move(description),
                "Failed to write updated description to report");
}

std::optional<int> DiagnosticReport::getPID() const {
  return read(keys::kPid);
}

DiagnosticReport::Result DiagnosticReport::setPID(int pid) {
  if (isCreationComplete()) {
    return fail("PID can only be set during report creation");
  }
  return change(keys::kPid, pid, "Failed to write updated pid to report");
}

std::optional<std::string> DiagnosticReport::getProcessName() const {
  return read(keys::kProcessName);
}

DiagnosticReport::Result DiagnosticReport::setProcessName(std::string name) {
  if (isCreationComplete()) {
    return fail("Process name can only be set during report creation");
  }
  return change(keys::kProcessName, std::move(name),
                "Failed to write updated process name to report");
}

std::optional<std::vector<std::string>> DiagnosticReport::getLoadedLibraries() const {
  return read(keys::kLoadedLibraries);
}

DiagnosticReport::Result DiagnosticReport::setLoadedLibraries(std::vector<std::string> libraries) {
  if (isCreationComplete()) {
    return fail("Loaded Libraries list can only be set during report creation");
  }
  return change(keys::kLoadedLibraries, std::move(libraries),
                "Failed to write updated loaded libraries to report");
}

}  // namespace KELP::Diagnostic
