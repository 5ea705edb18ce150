#include "support/logcapture.h"
#include "unit/foundation/contents.h"
#include "unit/foundation/memorystore.h"

#include <diagnostic/metadataproperty.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

namespace KELP::Diagnostic {
namespace {

using Test::LogCapture;
using Test::LogLine;
using Test::MemoryStore;
using testing::ElementsAre;
using testing::Pair;
using Strings = std::vector<std::string>;
using Contents = std::vector<DiagnosticReportContentProperties>;

static_assert(sizeof(long) == sizeof(std::int64_t));
static_assert(sizeof(int) == sizeof(std::int32_t));
static_assert(!std::is_polymorphic_v<MetadataProperty<int>>);

constexpr const char* kIdText = "0123abcd-ef45-4678-9abc-def001234567";

ReportUuid someId() {
  ReportUuid id;
  EXPECT_TRUE(id.parse(kIdText));
  return id;
}

/** For every kind: a value, its stored text, and another value that serves as a default. */
template <typename T>
struct Sample;
template <>
struct Sample<ReportUuid> {
  static ReportUuid value() { return someId(); }
  static std::string text() { return kIdText; }
  static ReportUuid other() { return {}; }
};
template <>
struct Sample<long> {
  static long value() { return -9'000'000'000; }
  static std::string text() { return "-9000000000"; }
  static long other() { return 17; }
};
template <>
struct Sample<int> {
  static int value() { return 1234567890; }
  static std::string text() { return "1234567890"; }
  static int other() { return -17; }
};
template <>
struct Sample<bool> {
  static bool value() { return true; }
  static std::string text() { return "1"; }
  static bool other() { return false; }
};
template <>
struct Sample<std::string> {
  static std::string value() { return "it's \"so\"\n"; }
  static std::string text() { return value(); }
  static std::string other() { return "default"; }
};
template <>
struct Sample<Strings> {
  static Strings value() { return {"libc.so", "libm.so"}; }
  static std::string text() { return R"(["libc.so","libm.so"])"; }
  static Strings other() { return {"default"}; }
};
template <>
struct Sample<Contents> {
  static Contents value() { return {Test::property("id", Test::Types::BOOLEAN)}; }
  static std::string text() {
    return R"([{"media_type":"","property_type":"BOOLEAN","stable_id":"id","tags":null,)"
           R"("variations":null}])";
  }
  static Contents other() { return {Test::property("default", Test::Types::FILE)}; }
};

template <typename T>
class MetadataPropertyTest : public testing::Test {
 protected:
  const MetadataProperty<T> plain_{"some_key", std::nullopt};
  const MetadataProperty<T> withDefault_{"some_key", Sample<T>::other()};
  MemoryStore store_;
};

using Kinds = testing::Types<ReportUuid, long, int, bool, std::string, Strings, Contents>;
TYPED_TEST_SUITE(MetadataPropertyTest, Kinds);

TYPED_TEST(MetadataPropertyTest, KeepsACopyOfItsKey) {
  std::string key = "first_key";
  const MetadataProperty<TypeParam> property(key.c_str(), std::nullopt);
  key = "other_key";
  EXPECT_EQ(property.getKey(), "first_key");
}

TYPED_TEST(MetadataPropertyTest, SetWritesTheTextOfTheValueUnderTheKeyAndNothingElse) {
  EXPECT_TRUE(this->plain_.set(Sample<TypeParam>::value(), this->store_));
  EXPECT_THAT(this->store_.texts, ElementsAre(Pair("some_key", Sample<TypeParam>::text())));
  EXPECT_THAT(this->store_.takeCalls(), ElementsAre("set some_key=" + Sample<TypeParam>::text()));
}

TYPED_TEST(MetadataPropertyTest, SetWritesAValueThatEqualsTheDefault) {
  EXPECT_TRUE(this->withDefault_.set(Sample<TypeParam>::other(), this->store_));
  EXPECT_EQ(this->plain_.get(this->store_), Sample<TypeParam>::other());
}

TYPED_TEST(MetadataPropertyTest, GetReadsTheKeyOnce) {
  this->store_.texts["some_key"] = Sample<TypeParam>::text();
  EXPECT_EQ(this->plain_.get(this->store_), Sample<TypeParam>::value());
  EXPECT_THAT(this->store_.takeCalls(), ElementsAre("get some_key"));
  EXPECT_EQ(this->withDefault_.get(this->store_), Sample<TypeParam>::value());
}

TYPED_TEST(MetadataPropertyTest, GetSeesWhatChangedInTheStore) {
  this->store_.texts["some_key"] = Sample<TypeParam>::text();
  EXPECT_EQ(this->plain_.get(this->store_), Sample<TypeParam>::value());
  this->store_.texts.clear();
  EXPECT_EQ(this->plain_.get(this->store_), std::nullopt);
}

TYPED_TEST(MetadataPropertyTest, AnAbsentKeyReadsAsTheDefaultAndLogsNothing) {
  const LogCapture log;
  this->store_.texts["some_other_key"] = Sample<TypeParam>::text();
  EXPECT_EQ(this->plain_.get(this->store_), std::nullopt);
  EXPECT_EQ(this->withDefault_.get(this->store_), Sample<TypeParam>::other());
  EXPECT_EQ(this->plain_.unserialize(std::nullopt), std::nullopt);
  EXPECT_EQ(this->withDefault_.unserialize(std::nullopt), Sample<TypeParam>::other());
  EXPECT_EQ(log.lines(), std::vector<LogLine>());
}

TYPED_TEST(MetadataPropertyTest, RemoveTakesTheKeyAwayAndNothingElse) {
  this->store_.texts = {{"some_key", Sample<TypeParam>::text()}, {"some_other_key", "kept"}};
  EXPECT_TRUE(this->plain_.remove(this->store_));
  EXPECT_THAT(this->store_.texts, ElementsAre(Pair("some_other_key", "kept")));
  EXPECT_THAT(this->store_.takeCalls(), ElementsAre("remove some_key"));
}

TYPED_TEST(MetadataPropertyTest, SetAndRemoveReturnARefusalOfTheStoreAndLogNothing) {
  const LogCapture log;
  this->store_.texts["some_key"] = "old";
  this->store_.refusesChanges = true;
  EXPECT_FALSE(this->withDefault_.set(Sample<TypeParam>::value(), this->store_));
  EXPECT_FALSE(this->withDefault_.remove(this->store_));
  EXPECT_THAT(this->store_.takeCalls(),
              ElementsAre("set some_key=" + Sample<TypeParam>::text(), "remove some_key"));
  EXPECT_THAT(this->store_.texts, ElementsAre(Pair("some_key", "old")));
  EXPECT_EQ(log.lines(), std::vector<LogLine>());
}

TYPED_TEST(MetadataPropertyTest, TheTextOfAValueNeedsNoProperty) {
  EXPECT_EQ(MetadataProperty<TypeParam>::serialize(Sample<TypeParam>::value()),
            Sample<TypeParam>::text());
  EXPECT_EQ(this->plain_.unserialize(Sample<TypeParam>::text()), Sample<TypeParam>::value());
}

}  // namespace
}  // namespace KELP::Diagnostic
