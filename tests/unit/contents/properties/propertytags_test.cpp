// Adding tags to properties.

#include "unit/contents/properties/typefamilies.h"
#include "unit/diagnostic/limits.h"

#include <gtest/gtest.h>

#include <string>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;

Refusal missing(const std::string& name) {
  return {"Report content property to be tagged (" + name + ") does not exist in the report",
          "Report content property to be tagged does not exist in the report"};
}

class PropertyTags : public ContentsTest {
 protected:
  static Property tagged(Tags tags) {
    Property property = numbered("name", {2, 1});
    property.tags = std::move(tags);
    return property;
  }
  static auto add(const std::string& name, const Tags& tags) {
    return [=](Report& r) { return r.addTagsToContentProperty(name, tags); };
  }
  static auto addOne(const std::string& name, const std::string& tag) {
    return [=](Report& r) { return r.addTagToContentProperty(name, tag); };
  }
};

TEST_F(PropertyTags, AreUnited) {
  storeContents({numbered("other", {1}), tagged({"b", "d"})});
  expectStored({numbered("other", {1}), tagged({"a", "b", "c", "d"})},
               add("name", {"c", "b", "a"}));
  expectStored({numbered("other", {1}), tagged({"", "a", "b", "c", "d"})}, addOne("name", ""));
}

TEST_F(PropertyTags, ThatAreThereAlreadyStillRewriteTheList) {
  storeContents({tagged({"a", "b"})});
  expectStored({tagged({"a", "b"})}, add("name", {"b", "a"}));
  expectStored({tagged({"a", "b"})}, addOne("name", "a"));
  expectStored({tagged({"a", "b"})}, add("name", {}));
}

TEST_F(PropertyTags, AreBytes) {
  storeContents({tagged({})});
  expectStored({tagged({"A", "a", "a\nb", "%s", "ü"})}, add("name", {"%s", "ü", "a\nb", "A", "a"}));
}

TEST_F(PropertyTags, GoToTheFirstOfSeveralPropertiesOfAName) {
  storeContents({tagged({"a"}), tagged({"b"})});
  expectStored({tagged({"a", "c"}), tagged({"b"})}, addOne("name", "c"));
}

TEST_F(PropertyTags, AreForEveryType) {
  Contents expected = oneOfEach({1});
  expected.push_back({"unknown", Type::UNKNOWN, "", {}, {}});
  storeContents(expected);
  for (Property& property : expected) {
    property.tags = {"tag"};
    expectStored(expected, addOne(property.stable_id, "tag"));
  }
}

TEST_F(PropertyTags, AreRefusedForAMissingPropertyBeforeTheLock) {
  storeContents({tagged({})});
  unlock();
  for (const std::string& name :
       {std::string(), std::string("Name"), std::string("%s%n"), std::string(3000, 'n')}) {
    expectRefused(missing(name), add(name, {"a"}));
    expectRefused(missing(name), addOne(name, "a"));
  }
  storeContents({});
  expectRefused(missing("name"), add("name", {"a"}));
}

TEST_F(PropertyTags, AreRefusedAsTooLateBeforeAPropertyIsMissed) {
  storeContents({});
  store("data_collection_complete", "1");
  const Refusal tooLate =
      plain("Adding tags to report after collection is completed is not allowed");
  expectRefused(tooLate, add("name", {"a"}));
  expectRefused(tooLate, addOne("name", "a"));
}

}  // namespace
}  // namespace KELP::Diagnostic
