// Creating properties.

#include "unit/contents/properties/typefamilies.h"
#include "unit/diagnostic/limits.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;

/** How the creation of a property that exists is refused. */
Refusal duplicate(const std::string& name) {
  return {"Report content property to be created (" + name + ") already exists",
          "Report content property to be created already exists"};
}

class PropertyCreation : public ContentsTest {};

TEST_F(PropertyCreation, FirstPropertyBringsTheListIntoBeing) {
  expectStored({{"name", Type::STRING, "", {}, {}}},
               [](Report& r) { return r.createReportStringProperty("name", {}); });
  EXPECT_EQ(stored(kContentsKey),
            R"([{"media_type":"","property_type":"STRING","stable_id":"name","tags":null,)"
            R"("variations":null}])");
}

TEST_F(PropertyCreation, NewPropertiesAreAppended) {
  Contents expected;
  for (const char* name : {"b", "c", "a", "", "Größe\n%s"}) {
    expected.push_back({name, Type::DOUBLE, "", {}, {}});
    expectStored(expected, [&](Report& r) { return r.createReportDoubleProperty(name, {}); });
  }
  EXPECT_EQ(contents(), expected);
}

TEST_F(PropertyCreation, StoresAnyTypeAndMediaType) {
  expectStored({{"name", Type::INTEGER, "text/plain; %s", {"t"}, {}}}, [](Report& r) {
    return r.createReportContentProperty("name", Type::INTEGER, "text/plain; %s", {"t"});
  });
}

TEST_F(PropertyCreation, TypeWithoutANameIsStoredAsUnknown) {
  EXPECT_THAT(report().createReportContentProperty("name", static_cast<Type>(77), "", {}),
              Succeeds());
  EXPECT_EQ(contents(), (Contents{{"name", Type::UNKNOWN, "", {}, {}}}));
}

TEST_F(PropertyCreation, TagsAreASortedSet) {
  expectStored({{"name", Type::FILE, "", {"", "a", "b\n", "ü"}, {}}}, [](Report& r) {
    return r.createReportFileProperty("name", "", {"ü", "b\n", "a", "", "a"});
  });
}

TEST_F(PropertyCreation, MakesNoDirectoryForFiles) {
  ASSERT_THAT(report().createReportFileProperty("log", "text/plain", {}), Succeeds());
  EXPECT_FALSE(std::filesystem::exists(contentFiles()));
}

TEST_F(PropertyCreation, KeepsWhatOthersStored) {
  Contents former = oneOfEach({2, 1});
  former.front().tags = {"tag"};
  storeContents(former);
  Contents expected = former;
  expected.push_back({"name", Type::BOOLEAN, "", {}, {}});
  expectStored(expected, [](Report& r) { return r.createReportBooleanProperty("name", {}); });
}

TEST_F(PropertyCreation, NameWithNulIsAnotherThanItsBeginning) {
  ASSERT_THAT(report().createReportStringProperty("name", {}), Succeeds());
  ASSERT_THAT(report().createReportStringProperty(std::string("name\0", 5), {}), Succeeds());
  EXPECT_EQ(contents().size(), 2U);
}

class TypedPropertyCreation : public ContentsTest, public testing::WithParamInterface<TypeFamily> {
 protected:
  const TypeFamily& family_ = GetParam();
};

TEST_P(TypedPropertyCreation, StoresTypeTagsAndOnlyForFilesTheMediaType) {
  expectStored({{"name", family_.type, family_.mediaType(), {"a", "b"}, {}}}, [&](Report& r) {
    return family_.create(r, "name", {"b", "a"});
  });
  EXPECT_TRUE(family_.hasProperty(report(), "name"));
}

TEST_P(TypedPropertyCreation, OfANameThatExistsOnlyStampsTheReport) {
  storeContents(oneOfEach({1}));
  for (const TypeFamily& existing : typeFamilies()) {
    SCOPED_TRACE(existing.name);
    store("modified", "1");
    expectOnlyStamped(duplicate(existing.word),
                      [&](Report& r) { return family_.create(r, existing.word, {"tag"}); });
    EXPECT_EQ(contents(), oneOfEach({1}));
  }
}

TEST_P(TypedPropertyCreation, MissesTheLockAndTheStampBeforeTheNameThatExists) {
  storeContents(oneOfEach({1}));
  const auto createAgain = [&](Report& r) { return family_.create(r, family_.word, {}); };
  const std::size_t size = std::filesystem::file_size(metadataFile());
  expectRefused(plain(kStampFailure), [&](Report& r) {
    const FileSizeLimit full(size);
    return createAgain(r);
  });
  unlock();
  expectRefused(plain(kTouchRefusal), createAgain);
}

TEST_P(TypedPropertyCreation, OfANameThatExistsIsRefusedAsTooLateWhenItIs) {
  storeContents(oneOfEach({1}));
  store("data_collection_complete", "1");
  expectRefused(plain("Report status does not allow creation of new content properties"),
                [&](Report& r) { return family_.create(r, family_.word, {}); });
}

TEST_P(TypedPropertyCreation, DuplicateNamesAreLoggedAsTheyAre) {
  for (const std::string& name :
       {std::string(), std::string("%s%n %d"), std::string("two\nlines"), std::string(5000, 'x')}) {
    storeContents({family_.property(name, {})});
    expectOnlyStamped(duplicate(name), [&](Report& r) { return family_.create(r, name, {}); });
  }
}

INSTANTIATE_TEST_SUITE_P(All, TypedPropertyCreation, testing::ValuesIn(typeFamilies()), familyName);

}  // namespace
}  // namespace KELP::Diagnostic
