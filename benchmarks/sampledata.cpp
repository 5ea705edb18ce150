#include "sampledata.h"

#include "support/temporarydirectory.h"

#include <stdexcept>

namespace KELP::Bench {
namespace {

constexpr const char* kDeviceId = "device-0123456789";
constexpr const char* kSessionId = "b0f6a2de-5d0c-4f3a-9a55-0d5a3f1c7e21";

/** The set of options with which reports open their stores. */
constexpr unsigned long kReportStoreOptions = 28;

void setAll(OS::KeyValueStore& store) {
  for (const auto& [key, value] : newReportMetadata()) {
    require(store.set(key, value), "set");
  }
}

}  // namespace

void require(bool success, const char* what) {
  if (!success) {
    throw std::runtime_error(std::string(what) + " failed");
  }
}

const std::vector<std::pair<std::string, std::string>>& newReportMetadata() {
  static const std::vector<std::pair<std::string, std::string>> kMetadata{
      {"report_id", "3f1e8a52-7c64-4d0b-8f8e-2b9f6f0c1d3a"},
      {"app_id", "42"},
      {"build_id", "20240"},
      {"user_id", "10"},
      {"device_id", kDeviceId},
      {"session_id", kSessionId},
      {"report_version", "1"},
      {"created", "1700000000"},
      {"modified", "1700000000"},
      {"current_consent_level", "20"},
      {"max_consent_level", "30"},
      {"report_creation_complete", "0"},
      {"user_interaction_complete", "0"},
      {"data_collection_complete", "0"},
      {"data_policy_applied", "0"},
      {"upload_complete", "0"},
  };
  return kMetadata;
}

std::unique_ptr<OS::KeyValueStore> openStore(const std::filesystem::path& file) {
  auto store = std::make_unique<OS::KeyValueStore>(
      file.string(), "metadata", OS::KeyValueStore::Options::fromValue(kReportStoreOptions));
  require(store->isReady(), "opening a store");
  return store;
}

std::unique_ptr<OS::KeyValueStore> makeReportStore(const std::filesystem::path& file) {
  auto store = openStore(file);
  setAll(*store);
  return store;
}

std::unique_ptr<Diagnostic::DiagnosticReport> createReport(
    const Diagnostic::DiagnosticData& repository, const ReportUuid& id) {
  auto report = repository.createReport(id, 42, 20240, 10, kDeviceId, kSessionId);
  require(report != nullptr, "creating a report");
  return report;
}

std::vector<ReportUuid> randomIds(std::size_t count) {
  std::vector<ReportUuid> ids(count);
  for (ReportUuid& id : ids) {
    id.randomize();
  }
  return ids;
}

std::string propertyName(std::size_t number) {
  return "property_" + std::to_string(number);
}

Contents makeContents(Diagnostic::DiagnosticReportContentPropertyTypes type, std::size_t count,
                      const std::vector<int>& levels) {
  Contents contents;
  for (std::size_t i = 0; i < count; ++i) {
    auto& property = contents.emplace_back();
    property.stable_id = propertyName(i);
    property.property_type = type;
    property.tags = {"tag"};
    for (const int level : levels) {
      auto& variation = property.variations.emplace_back();
      variation.integer = kValue;
      variation.sensitivity_level = level;
    }
  }
  return contents;
}

std::vector<std::string> newReportRecords() {
  const Test::TemporaryDirectory directory;
  const auto file = directory / "store";
  const auto store = openStore(file);
  std::vector<std::string> records;
  for (const auto& [key, value] : newReportMetadata()) {
    const auto before = std::filesystem::file_size(file);
    require(store->set(key, value), "set");
    records.emplace_back(std::filesystem::file_size(file) - before, 'r');
  }
  return records;
}

std::string recordOf(const std::string& key, const std::string& value) {
  const Test::TemporaryDirectory directory;
  const auto file = directory / "store";
  const auto store = makeReportStore(file);
  const auto before = std::filesystem::file_size(file);
  require(store->set(key, value), "set");
  return std::string(std::filesystem::file_size(file) - before, 'r');
}

}  // namespace KELP::Bench
