// Removing properties, and with a file property its files.

#include "unit/contents/properties/typefamilies.h"
#include "unit/diagnostic/limits.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;
namespace fs = std::filesystem;

Refusal missing(const std::string& name) {
  return {"Report content property to be removed (" + name + ") does not exist in the report",
          "Report content property to be removed does not exist in the report"};
}

class PropertyRemoval : public ContentsTest {
 protected:
  static auto remove(const std::string& name) {
    return [name](Report& r) { return r.removeReportContentProperty(name); };
  }
  static Property fileProperty(const std::string& name) {
    return typeFamilies().front().property(name, {});
  }
};

TEST_F(PropertyRemoval, OfTheLastPropertyLeavesAnEmptyList) {
  storeContents({numbered("name", {1})});
  expectStored({}, remove("name"));
  EXPECT_EQ(stored(kContentsKey), "[]");
  expectRefused(missing("name"), remove("name"));
}

TEST_F(PropertyRemoval, KeepsTheOrderOfTheOthers) {
  storeContents({numbered("b", {1}), numbered("c", {}), numbered("a", {2})});
  expectStored({numbered("b", {1}), numbered("a", {2})}, remove("c"));
}

TEST_F(PropertyRemoval, TakesTheFirstOfSeveralOfAName) {
  storeContents({numbered("name", {1}), numbered("name", {2})});
  expectStored({numbered("name", {2})}, remove("name"));
}

TEST_F(PropertyRemoval, OfAMissingPropertyIsRefusedBeforeTheLock) {
  storeContents({numbered("name", {1})});
  unlock();
  for (const std::string& name : {std::string(), std::string("Name"), std::string("%s%n"),
                                  std::string("../name"), std::string(3000, 'n')}) {
    expectRefused(missing(name), remove(name));
  }
  storeContents({});
  expectRefused(missing("name"), remove("name"));
}

TEST_F(PropertyRemoval, LogsANameUpToItsNul) {
  storeContents({});
  expectRefused(missing("name"), remove(std::string("name\0more", 9)));
}

TEST_F(PropertyRemoval, OfAFilePropertyTakesItsDirectoryAndNothingElse) {
  storeContents({fileProperty("log"), fileProperty("log2"), numbered("count", {1})});
  plantFile("log/2/a.txt");
  plantFile("log/unknown/deep/er");
  plantFile("log2/2/a.txt");
  plantFile("count/2/a.txt");
  const Snapshot before = snapshot();
  expectStoredFirst({fileProperty("log2"), numbered("count", {1})}, remove("log"));
  expectGone(before, {"contentfiles/log", "contentfiles/log/2", "contentfiles/log/2/a.txt",
                      "contentfiles/log/unknown", "contentfiles/log/unknown/deep",
                      "contentfiles/log/unknown/deep/er"});
}

TEST_F(PropertyRemoval, LeavesFilesThatVariationsNameElsewhere) {
  plantFile("other/2/a.txt");
  Property property = fileProperty("log");
  for (const fs::path& path : {contentFiles() / "other/2/a.txt", outside() / "decoy"}) {
    property.variations.push_back(variationWith<std::string>(2, &Variation::relative_path, path));
  }
  storeContents({property});
  expectStored({}, remove("log"));
}

TEST_F(PropertyRemoval, DoesNotMindThatThereIsNoDirectory) {
  storeContents({fileProperty("log")});
  expectStored({}, remove("log"));
}

TEST_F(PropertyRemoval, TakesAFileInTheDirectorysPlace) {
  storeContents({fileProperty("log")});
  plantFile("log");
  const Snapshot before = snapshot();
  expectStoredFirst({}, remove("log"));
  expectGone(before, {"contentfiles/log"});
}

TEST_F(PropertyRemoval, DoesNotMindThatFilesCannotBeRemoved) {
  storeContents({fileProperty("log")});
  plantFile("log/2/a.txt");
  const Permissions metadata(metadataFile(), 0666);
  const Permissions readOnly(contentFiles() / "log/2", 0555);
  const Snapshot before = snapshot();
  const Result result = [&] {
    const Unprivileged nobody;
    return report().removeReportContentProperty("log");
  }();
  EXPECT_THAT(result, Succeeds());
  EXPECT_THAT(log_.take(), testing::IsEmpty());
  EXPECT_EQ(contents(), Contents());
  expectSameFiles(before);
}

TEST_F(PropertyRemoval, FilesStayWhileTheListWithThemIsStored) {
  storeContents({fileProperty("log")});
  plantFile("log/2/a.txt");
  for (const std::size_t room : {0U, 5U, 20U}) {
    const Snapshot before = snapshot();
    const Result result = [&] {
      const FileSizeLimit full(fs::file_size(metadataFile()) + recordSize(stamp()) + room);
      return report().removeReportContentProperty("log");
    }();
    EXPECT_THAT(result,
                Refuses("Failed to write updated content property value to report metadata"));
    EXPECT_EQ(contents(), Contents{fileProperty("log")});
    expectSameFiles(before);
  }
}

TEST_F(PropertyRemoval, OfUnknownTypeTouchesNoFile) {
  storeContents({{"log", Type::UNKNOWN, "", {}, {}}});
  plantFile("log/2/a.txt");
  expectStored({}, remove("log"));
}

class TypedPropertyRemoval : public ContentsTest, public testing::WithParamInterface<TypeFamily> {
 protected:
  auto remove(const std::string& name) {
    return [name, this](Report& r) { return family_.removeProperty(r, name); };
  }
  const TypeFamily& family_ = GetParam();
};

TEST_P(TypedPropertyRemoval, TakesThePropertyOfItsTypeAlone) {
  storeContents(oneOfEach({1}));
  Contents expected = oneOfEach({1});
  std::erase_if(expected, [&](const Property& p) { return p.property_type == family_.type; });
  expectStored(expected, remove(family_.word));
}

TEST_P(TypedPropertyRemoval, RefusesOtherTypesBeforeTheLock) {
  storeContents(oneOfEach({1}));
  unlock();
  forOtherTypes(family_.type, [&](const TypeFamily& other) {
    plantFile(other.word + "/1/a.txt");
    expectRefused(family_.noProperty(other.word), remove(other.word));
    expectRefused(plain(kTouchRefusal),
                  [&](Report& r) { return other.removeProperty(r, other.word); });
  });
}

TEST_P(TypedPropertyRemoval, RefusesUnknownTypesAndMissingNames) {
  storeContents({{"odd", Type::UNKNOWN, "", {}, {}}});
  for (const char* name : {"odd", "", "missing", "%s%n"}) {
    expectRefused(family_.noProperty(name), remove(name));
  }
  storeContents({});
  expectRefused(family_.noProperty("odd"), remove("odd"));
}

TEST_P(TypedPropertyRemoval, RefusesWhenTheFirstOfTheNameIsOfAnotherType) {
  storeContents({{"name", Type::UNKNOWN, "", {}, {}}, family_.property("name", {})});
  expectRefused(family_.noProperty("name"), remove("name"));
}

INSTANTIATE_TEST_SUITE_P(All, TypedPropertyRemoval, testing::ValuesIn(typeFamilies()), familyName);

}  // namespace
}  // namespace KELP::Diagnostic
