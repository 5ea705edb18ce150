#pragma once

#include <string>
#include <vector>

namespace KELP::Test {

/** The keys of a report's metadata. */
[[nodiscard]] inline std::vector<std::string> reportKeys() {
  return {"report_id",
          "app_id",
          "build_id",
          "user_id",
          "device_id",
          "session_id",
          "report_version",
          "created",
          "modified",
          "current_consent_level",
          "max_consent_level",
          "report_creation_complete",
          "user_interaction_complete",
          "data_collection_complete",
          "data_policy_applied",
          "upload_complete",
          "description",
          "pid",
          "process_name",
          "loaded_libraries",
          "report_contents"};
}

}  // namespace KELP::Test
