#include "diagnostic/metadatakeys.h"

#include "support/logcapture.h"
#include "unit/foundation/memorystore.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <optional>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

namespace KELP::Diagnostic {
namespace {

using Test::LogCapture;
using Test::LogLine;
using Test::MemoryStore;
using Strings = std::vector<std::string>;
using Contents = std::vector<DiagnosticReportContentProperties>;

/** Calls @p visit with every property, the kind of value that it must have, and its key. */
template <typename Visitor>
void forEachProperty(Visitor visit) {
  using namespace MetadataKeys;
  visit.template operator()<ReportUuid>(kReportId, "report_id");
  visit.template operator()<int>(kAppId, "app_id");
  visit.template operator()<int>(kBuildId, "build_id");
  visit.template operator()<int>(kUserId, "user_id");
  visit.template operator()<std::string>(kDeviceId, "device_id");
  visit.template operator()<std::string>(kSessionId, "session_id");
  visit.template operator()<int>(kReportVersion, "report_version");
  visit.template operator()<long>(kCreated, "created");
  visit.template operator()<long>(kModified, "modified");
  visit.template operator()<int>(kCurrentConsentLevel, "current_consent_level");
  visit.template operator()<int>(kMaxConsentLevel, "max_consent_level");
  visit.template operator()<bool>(kReportCreationComplete, "report_creation_complete");
  visit.template operator()<bool>(kUserInteractionComplete, "user_interaction_complete");
  visit.template operator()<bool>(kDataCollectionComplete, "data_collection_complete");
  visit.template operator()<bool>(kDataPolicyApplied, "data_policy_applied");
  visit.template operator()<bool>(kUploadComplete, "upload_complete");
  visit.template operator()<std::string>(kDescription, "description");
  visit.template operator()<int>(kPid, "pid");
  visit.template operator()<std::string>(kProcessName, "process_name");
  visit.template operator()<Strings>(kLoadedLibraries, "loaded_libraries");
  visit.template operator()<Contents>(kReportContents, "report_contents");
}

TEST(MetadataKeysTest, EveryPropertyHasItsKeyAndItsKindOfValue) {
  std::set<std::string> keys;
  forEachProperty([&]<typename Kind>(const auto& property, const char* key) {
    static_assert(std::is_same_v<decltype(property), const MetadataProperty<Kind>&>);
    EXPECT_EQ(property.getKey(), key);
    keys.insert(property.getKey());
  });
  EXPECT_EQ(keys.size(), 21U);
}

TEST(MetadataKeysTest, AStoreWithoutKeysHasNoValueForAnyProperty) {
  const LogCapture log;
  MemoryStore store;
  forEachProperty([&]<typename Kind>(const auto& property, const char* key) {
    EXPECT_EQ(property.get(store), std::nullopt) << key;
  });
  EXPECT_EQ(store.takeCalls().size(), 21U);
  EXPECT_EQ(log.lines(), std::vector<LogLine>());
}

TEST(MetadataKeysTest, ReadingATextThatIsNotOfTheKindGivesNoValueAndNotADefault) {
  MemoryStore store;
  forEachProperty([&]<typename Kind>(const auto& property, const char* key) {
    if constexpr (!std::is_same_v<Kind, std::string>) {
      store.texts[key] = "neither a number nor a list";
      EXPECT_EQ(property.get(store), std::nullopt) << key;
    }
  });
}

TEST(MetadataKeysTest, ThePidHas32BitsAndTheTimesHave64) {
  MemoryStore store;
  store.texts = {{"pid", "2147483647"}, {"created", "2147483648"}, {"modified", "2147483648"}};
  EXPECT_EQ(MetadataKeys::kPid.get(store), std::numeric_limits<std::int32_t>::max());
  EXPECT_EQ(MetadataKeys::kCreated.get(store), 2147483648L);
  EXPECT_EQ(MetadataKeys::kModified.get(store), 2147483648L);

  store.texts["pid"] = "2147483648";
  EXPECT_EQ(MetadataKeys::kPid.get(store), std::nullopt);
}

TEST(MetadataKeysTest, PropertiesDoNotShareKeysInAStore) {
  MemoryStore store;
  EXPECT_TRUE(MetadataKeys::kUploadComplete.set(true, store));
  EXPECT_TRUE(MetadataKeys::kPid.set(12, store));
  EXPECT_EQ(store.texts,
            (std::map<std::string, std::string>{{"upload_complete", "1"}, {"pid", "12"}}));
}

}  // namespace
}  // namespace KELP::Diagnostic
