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
  Reader(OS::KeyValueStore& store, Metadata& metadata) : store_(store), metadata_(metadata) {}

  /** A key that may be absent. */
  template <typename T>
  void optional(const char* key, std::optional<T>& value) const {
    read(key, value);
  }

  /** A key that the creation of a report writes. */
  template <typename T>
  void created(const char* key, std::optional<T>& value) const {
    if (!read(key, value)) {
      metadata_.missing.emplace_back(key);
    }
  }

 private:
  /** @return whether something is stored. */
  template <typename T>
  bool read(const char* key, std::optional<T>& value) const {
    const std::optional<std::string> text = store_.get(key);
    value = Diagnostic::MetadataProperty<T>(key, std::nullopt).unserialize(text);
    if (text && !value) {
      metadata_.unreadable.emplace_back(key);
    }
    return text.has_value();
  }

  OS::KeyValueStore& store_;
  Metadata& metadata_;
};

}  // namespace

int Metadata::permittedLevel() const {
  return std::min(currentConsentLevel.value_or(0), maxConsentLevel.value_or(0));
}

bool Metadata::hasUnreadableContents() const {
  return std::find(unreadable.begin(), unreadable.end(), kContentsKey) != unreadable.end();
}

std::optional<Metadata> readMetadata(const std::filesystem::path& store) {
  OS::KeyValueStore opened(store, "", {KVStoreOpenOption::ReadOnly, KVStoreOpenOption::Shared});
  if (!opened.isReady()) {
    return std::nullopt;
  }
  Metadata metadata;
  const Reader read(opened, metadata);
  read.created("report_id", metadata.reportId);
  read.created("app_id", metadata.appId);
  read.created("build_id", metadata.buildId);
  read.created("user_id", metadata.userId);
  read.created("device_id", metadata.deviceId);
  read.created("session_id", metadata.sessionId);
  read.created("report_version", metadata.version);
  read.created("created", metadata.created);
  read.created("modified", metadata.modified);
  read.created("current_consent_level", metadata.currentConsentLevel);
  read.created("max_consent_level", metadata.maxConsentLevel);
  read.created("report_creation_complete", metadata.creationComplete);
  read.created("user_interaction_complete", metadata.userInteractionComplete);
  read.created("data_collection_complete", metadata.dataCollectionComplete);
  read.created("data_policy_applied", metadata.dataPolicyApplied);
  read.created("upload_complete", metadata.uploadComplete);
  read.optional("description", metadata.description);
  read.optional("pid", metadata.pid);
  read.optional("process_name", metadata.processName);
  read.optional("loaded_libraries", metadata.loadedLibraries);
  read.optional(Metadata::kContentsKey, metadata.contents);
  // The file may have been damaged, or removed, since it was opened.
  return opened.isReady() ? std::optional(std::move(metadata)) : std::nullopt;
}

}  // namespace KELP::Tool
