#include "reports/metadata.h"

#include <diagnostic/metadataproperty.h>
#include <os/keyvaluestore.h>

#include <algorithm>

namespace KELP::Tool {
namespace {

using OS::KVStoreOpenOption;

/** Reads key by key, each as the type of what it is read into. The keys are part of the form on
 * disk (docs/on-disk-format.md). */
class Reader {
 public:
  explicit Reader(OS::KeyValueStore& store) : store_(store) {}

  template <typename T>
  void operator()(const char* key, std::optional<T>& value) const {
    value = Diagnostic::MetadataProperty<T>(key, std::nullopt).get(store_);
  }

  template <typename T>
  void operator()(const char* key, T& value) const {
    value = *Diagnostic::MetadataProperty<T>(key, T{}).get(store_);
  }

 private:
  OS::KeyValueStore& store_;
};

}  // namespace

int Metadata::permittedLevel() const {
  return std::min(currentConsentLevel, maxConsentLevel);
}

std::optional<Metadata> readMetadata(const std::filesystem::path& store) {
  OS::KeyValueStore opened(store, "", {KVStoreOpenOption::ReadOnly, KVStoreOpenOption::Shared});
  if (!opened.isReady()) {
    return std::nullopt;
  }
  Metadata metadata;
  const Reader read(opened);
  read("report_id", metadata.reportId);
  read("app_id", metadata.appId);
  read("build_id", metadata.buildId);
  read("user_id", metadata.userId);
  read("device_id", metadata.deviceId);
  read("session_id", metadata.sessionId);
  read("report_version", metadata.version);
  read("created", metadata.created);
  read("modified", metadata.modified);
  read("current_consent_level", metadata.currentConsentLevel);
  read("max_consent_level", metadata.maxConsentLevel);
  read("report_creation_complete", metadata.creationComplete);
  read("user_interaction_complete", metadata.userInteractionComplete);
  read("data_collection_complete", metadata.dataCollectionComplete);
  read("data_policy_applied", metadata.dataPolicyApplied);
  read("upload_complete", metadata.uploadComplete);
  read("description", metadata.description);
  read("pid", metadata.pid);
  read("process_name", metadata.processName);
  read("loaded_libraries", metadata.loadedLibraries);
  read("report_contents", metadata.contents);
  // The file may have been damaged, or removed, since it was opened.
  return opened.isReady() ? std::optional(std::move(metadata)) : std::nullopt;
}

}  // namespace KELP::Tool
