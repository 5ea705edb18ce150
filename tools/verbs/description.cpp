#include "verbs/description.h"

#include "reports/access.h"
#include "verbs/change.h"

namespace KELP::Tool {

bool Description::isEmpty() const {
  return !text && !pid && !process && libraries.empty() && !consent && !maxConsent;
}

void Description::check() const {
  for (const std::string& library : libraries) {
    requireText(library, "the name of a library");
  }
}

void Description::store(Diagnostic::DiagnosticReport& report) const {
  // What one stage forbids comes before what only a later one does, and what none does at the end:
  // when the first is not refused, the others are not either.
  if (pid) {
    require(report.setPID(*pid));
  }
  if (process) {
    require(report.setProcessName(*process));
  }
  if (!libraries.empty()) {
    require(report.setLoadedLibraries(libraries));
  }
  if (maxConsent) {
    require(report.setMaxConsentLevel(*maxConsent));
  }
  if (consent) {
    require(report.setCurrentConsentLevel(*consent));
  }
  if (text) {
    require(report.setDescription(*text));
  }
}

void addDescription(CLI::App& verb, Description& description) {
  addText(verb, "--description", description.text, "What the report is about");
  addInteger(verb, "--pid", description.pid, "The id of the process that it is about");
  addText(verb, "--process", description.process, "That process's name");
  addTexts(verb, "--library", description.libraries,
           "A library loaded in that process; once for each");
}

}  // namespace KELP::Tool
