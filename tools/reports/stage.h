#pragma once

#include <optional>
#include <string>
#include <vector>

namespace KELP::Tool {

struct Metadata;

/** What a report waits for, in the order in which that usually comes. */
enum class Stage {
  Creating,         ///< to be filled by its creator
  Collecting,       ///< created; data may be collected
  AwaitingConsent,  ///< collected; the user has not decided
  AwaitingPolicy,   ///< the data policy is to be applied
  AwaitingUpload,   ///< ready to be uploaded
  Uploaded,         ///< to be deleted
};

[[nodiscard]] Stage stageOf(const Metadata& metadata);

/** "creating", "collecting", "awaiting-consent", "awaiting-policy", "awaiting-upload", "uploaded".
 */
[[nodiscard]] const char* nameOf(Stage stage);

/** All names, in order. */
[[nodiscard]] std::vector<std::string> stageNames();

/** All that StoredReport::stageText() says: stageNames() and "half-made", "damaged", "mismatched",
 * "unreadable".
 */
[[nodiscard]] std::vector<std::string> allStageTexts();

[[nodiscard]] std::optional<Stage> stageNamed(const std::string& name);

}  // namespace KELP::Tool
