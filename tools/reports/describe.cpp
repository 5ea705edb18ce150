#include "reports/describe.h"

#include "base/files.h"
#include "base/json.h"

#include <optional>
#include <system_error>

namespace KELP::Tool {
namespace {

namespace fs = std::filesystem;

template <typename Texts>
Json::Value arrayOf(const Texts& texts) {
  Json::Value array(Json::arrayValue);
  for (const std::string& text : texts) {
    array.append(text);
  }
  return array;
}

Json::Value valueOf(const Variation& variation, PropertyType type) {
  switch (type) {
    case PropertyType::STRING:
      return variation.string;
    case PropertyType::INTEGER:
      return variation.integer;
    case PropertyType::DOUBLE:
      return variation.double_;
    case PropertyType::BOOLEAN:
      return variation.boolean;
    case PropertyType::FILE:
    case PropertyType::UNKNOWN:
      break;
  }
  return {};
}

void describeFile(const StoredReport& report, const Variation& variation, Json::Value& value) {
  const FileLook look = lookAtFile(report, variation);
  value["path"] = pathInReport(report, variation);
  value["file"] = fs::path(variation.relative_path).filename().native();
  value["state"] = nameOf(look.state);
  value["size"] = look.state == FileState::Present
                      ? Json::Value(static_cast<Json::UInt64>(look.size))
                      : Json::Value();
}

Json::Value describeProperty(const StoredReport& report, const Property& property, bool allLevels) {
  const int permitted = report.metadata.permittedLevel();
  const Variation* const best = bestVariation(property, permitted);
  Json::Value value(Json::objectValue);
  value["name"] = property.stable_id;
  value["type"] = typeName(property.property_type);
  value["media_type"] = property.media_type;
  value["tags"] = arrayOf(property.tags);
  Json::Value& variations = value["variations"] = Json::Value(Json::arrayValue);
  for (const Variation& variation : property.variations) {
    Json::Value& described = variations.append(Json::Value(Json::objectValue));
    described["level"] = variation.sensitivity_level;
    if (!allLevels && !isPermitted(variation, permitted)) {
      described["hidden"] = true;
      continue;
    }
    described["best"] = &variation == best;
    if (property.isFileProperty()) {
      describeFile(report, variation, described);
    } else {
      described["value"] = valueOf(variation, property.property_type);
    }
  }
  return value;
}

}  // namespace

const char* nameOf(FileState state) {
  switch (state) {
    case FileState::Present:
      return "present";
    case FileState::Irregular:
      return "irregular";
    case FileState::Outside:
      return "outside";
    case FileState::Missing:
      break;
  }
  return "missing";
}

FileLook lookAtFile(const StoredReport& report, const Variation& variation) {
  const std::optional<fs::path> path = storedFile(report, variation);
  if (!path) {
    return {FileState::Outside};
  }
  const std::optional<Entry> entry = entryAt(*path);
  if (!entry) {
    return {FileState::Missing};
  }
  if (!entry->isFile()) {
    return {FileState::Irregular};
  }
  return {FileState::Present, static_cast<std::uint64_t>(entry->status.st_size)};
}

std::string pathInReport(const StoredReport& report, const Variation& variation) {
  const std::optional<fs::path> path = storedFile(report, variation);
  if (path) {
    // The stored path may go by other names of the same directories.
    std::error_code error;
    const fs::path directory = fs::weakly_canonical(report.directory, error);
    const fs::path parent = fs::weakly_canonical(path->parent_path(), error);
    const fs::path relative = (parent / path->filename()).lexically_relative(directory);
    if (!error && !relative.empty()) {
      return relative.native();
    }
  }
  return variation.relative_path;
}

Json::Value describeReport(const StoredReport& report, const DescribeOptions& options) {
  const Metadata& metadata = report.metadata;
  Json::Value value(Json::objectValue);
  value["id"] = report.name;
  value["stage"] = report.stageText();
  value["created"] = jsonTime(metadata.created, options.utc);
  value["modified"] = jsonTime(metadata.modified, options.utc);
  value["app"] = orNull(metadata.appId);
  value["build"] = orNull(metadata.buildId);
  value["user"] = orNull(metadata.userId);
  value["device"] = orNull(metadata.deviceId);
  value["session"] = orNull(metadata.sessionId);
  value["version"] = orNull(metadata.version);
  value["consent_level"] = orNull(metadata.currentConsentLevel);
  value["max_consent_level"] = orNull(metadata.maxConsentLevel);
  value["permitted_level"] =
      report.hasStore ? Json::Value(metadata.permittedLevel()) : Json::Value();
  value["creation_complete"] = orNull(metadata.creationComplete);
  value["user_interaction_complete"] = orNull(metadata.userInteractionComplete);
  value["data_collection_complete"] = orNull(metadata.dataCollectionComplete);
  value["data_policy_applied"] = orNull(metadata.dataPolicyApplied);
  value["upload_complete"] = orNull(metadata.uploadComplete);
  value["description"] = orNull(metadata.description);
  value["pid"] = orNull(metadata.pid);
  value["process"] = orNull(metadata.processName);
  value["loaded_libraries"] =
      metadata.loadedLibraries ? arrayOf(*metadata.loadedLibraries) : Json::Value();
  Json::Value& contents = value["contents"] = Json::Value();
  if (report.hasStore && !metadata.hasUnreadableContents()) {
    contents = Json::Value(Json::arrayValue);
  }
  if (metadata.contents) {
    for (const Property& property : *metadata.contents) {
      contents.append(describeProperty(report, property, options.allLevels));
    }
  }
  return value;
}

}  // namespace KELP::Tool
