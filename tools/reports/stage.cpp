#include "reports/stage.h"

#include "reports/metadata.h"

#include <array>
#include <cstddef>

namespace KELP::Tool {
namespace {

constexpr std::array<const char*, 6> kNames{
    "creating", "collecting", "awaiting-consent", "awaiting-policy", "awaiting-upload", "uploaded"};

}  // namespace

Stage stageOf(const Metadata& metadata) {
  if (metadata.uploadComplete.value_or(false)) {
    return Stage::Uploaded;
  }
  if (!metadata.creationComplete.value_or(false)) {
    return Stage::Creating;
  }
  if (!metadata.dataCollectionComplete.value_or(false)) {
    return Stage::Collecting;
  }
  if (!metadata.userInteractionComplete.value_or(false)) {
    return Stage::AwaitingConsent;
  }
  return metadata.dataPolicyApplied.value_or(false) ? Stage::AwaitingUpload : Stage::AwaitingPolicy;
}

const char* nameOf(Stage stage) {
  return kNames[static_cast<std::size_t>(stage)];
}

std::vector<std::string> stageNames() {
  return {kNames.begin(), kNames.end()};
}

std::vector<std::string> allStageTexts() {
  std::vector<std::string> texts = stageNames();
  texts.insert(texts.end(), {"half-made", "damaged", "mismatched", "unreadable"});
  return texts;
}

std::optional<Stage> stageNamed(const std::string& name) {
  for (std::size_t at = 0; at < kNames.size(); ++at) {
    if (name == kNames[at]) {
      return static_cast<Stage>(at);
    }
  }
  return std::nullopt;
}

}  // namespace KELP::Tool
