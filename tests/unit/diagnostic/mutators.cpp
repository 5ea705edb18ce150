#include "unit/diagnostic/mutators.h"

#include "unit/diagnostic/storerecords.h"

#include <array>
#include <utility>

namespace KELP::Test {
namespace {

using Report = Diagnostic::DiagnosticReport;

std::array<std::pair<const char*, bool>, 5> flagsOf(const Stages& stages) {
  return {{{"report_creation_complete", stages.creation},
           {"user_interaction_complete", stages.interaction},
           {"data_collection_complete", stages.collection},
           {"data_policy_applied", stages.policy},
           {"upload_complete", stages.upload}}};
}

bool always(const Stages&) {
  return true;
}
bool whileCreating(const Stages& stages) {
  return !stages.creation;
}

std::vector<Mutator> stageMutators() {
  return {
      {"setCurrentConsentLevel",
       [](Report& r) { return r.setCurrentConsentLevel(-5); },
       [](const Stages& s) { return !s.creation || !s.interaction; },
       {},
       "current_consent_level",
       "-5",
       "Current report status does not support consent level changes",
       "Failed to write updated consent level to report"},
      {"setMaxConsentLevel",
       [](Report& r) { return r.setMaxConsentLevel(2147483647); },
       whileCreating,
       {},
       "max_consent_level",
       "2147483647",
       "Current report status does not support max consent level changes",
       "Failed to write updated max consent level to report"},
      {"markCreationComplete",
       [](Report& r) { return r.markCreationComplete(); },
       whileCreating,
       {},
       "report_creation_complete",
       "1",
       "Report creation is already complete",
       "Failed to write updated creation status to report"},
      {"markUserInteractionComplete",
       [](Report& r) { return r.markUserInteractionComplete(); },
       [](const Stages& s) { return !s.interaction; },
       {},
       "user_interaction_complete",
       "1",
       "User interaction is already complete",
       "Failed to write updated interaction status to report"},
      {"markDataCollectionComplete",
       [](Report& r) { return r.markDataCollectionComplete(); },
       [](const Stages& s) { return s.creation && !s.collection; },
       {.creation = true},
       "data_collection_complete",
       "1",
       "Current report status does not support marking data collection as completed",
       "Failed to write updated data collection status to report"},
      {"markDataPolicyApplied",
       [](Report& r) { return r.markDataPolicyApplied(); },
       [](const Stages& s) { return s.creation && s.interaction && s.collection && !s.policy; },
       {.creation = true, .interaction = true, .collection = true},
       "data_policy_applied",
       "1",
       "Current report status does not support marking policy application as completed",
       "Failed to write updated policy application status to report"},
      {"markUploadComplete",
       [](Report& r) { return r.markUploadComplete(); },
       [](const Stages& s) {
         return s.creation && s.interaction && s.collection && s.policy && !s.upload;
       },
       {.creation = true, .interaction = true, .collection = true, .policy = true},
       "upload_complete",
       "1",
       "Current report status does not support marking upload as completed",
       "Failed to write updated upload status to report"},
  };
}

std::vector<Mutator> descriptiveMutators() {
  return {
      {"setDescription",
       [](Report& r) { return r.setDescription("what happened"); },
       always,
       {},
       "description",
       "what happened",
       "",
       "Failed to write updated description to report"},
      {"setPID",
       [](Report& r) { return r.setPID(4711); },
       whileCreating,
       {},
       "pid",
       "4711",
       "PID can only be set during report creation",
       "Failed to write updated pid to report"},
      {"setProcessName",
       [](Report& r) { return r.setProcessName("reporter"); },
       whileCreating,
       {},
       "process_name",
       "reporter",
       "Process name can only be set during report creation",
       "Failed to write updated process name to report"},
      {"setLoadedLibraries",
       [](Report& r) {
         return r.setLoadedLibraries({"libb.so", "liba.so", "libb.so"});
       },
       whileCreating,
       {},
       "loaded_libraries",
       R"(["libb.so","liba.so","libb.so"])",
       "Loaded Libraries list can only be set during report creation",
       "Failed to write updated loaded libraries to report"},
  };
}

}  // namespace

Stages stagesOf(unsigned bits) {
  return {(bits & 1U) != 0, (bits & 2U) != 0, (bits & 4U) != 0, (bits & 8U) != 0,
          (bits & 16U) != 0};
}

void storeStages(const std::filesystem::path& metadataFile, const Stages& stages,
                 const std::optional<std::string>& undone) {
  for (const auto& [key, done] : flagsOf(stages)) {
    storeText(metadataFile, key, done ? "1" : undone);
  }
}

std::ostream& operator<<(std::ostream& out, const Mutator& mutator) {
  return out << mutator.name;
}

const std::vector<Mutator>& mutators() {
  static const std::vector<Mutator> all = [] {
    std::vector<Mutator> list = stageMutators();
    for (Mutator& mutator : descriptiveMutators()) {
      list.push_back(std::move(mutator));
    }
    return list;
  }();
  return all;
}

}  // namespace KELP::Test
