// Finding properties.

#include "unit/contents/properties/typefamilies.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;
using testing::IsEmpty;
using testing::Optional;

class PropertyQueries : public ContentsTest {
 protected:
  /** Expects that no query finds @p name, whatever its type. */
  void expectMissing(const std::string& name) {
    SCOPED_TRACE("\"" + name + "\"");
    EXPECT_FALSE(report().hasReportContentProperty(name));
    EXPECT_EQ(report().getReportContentProperty(name), std::nullopt);
    for (const Type type : {Type::UNKNOWN, Type::FILE, Type::STRING, Type::INTEGER, Type::DOUBLE,
                            Type::BOOLEAN, static_cast<Type>(6)}) {
      EXPECT_EQ(report().getReportContentProperty(name, type), std::nullopt);
    }
    for (const TypeFamily& family : typeFamilies()) {
      EXPECT_FALSE(family.hasProperty(report(), name));
      EXPECT_EQ(family.getProperty(report(), name), std::nullopt);
    }
  }
};

TEST_F(PropertyQueries, NewReportHasNoContents) {
  EXPECT_EQ(stored(kContentsKey), std::nullopt);
  EXPECT_EQ(report().getReportContents(), std::nullopt);
  expectMissing("text");
  expectMissing("");
  EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(PropertyQueries, EmptyListIsAnotherThingThanNoContents) {
  storeContents({});
  EXPECT_EQ(stored(kContentsKey), "[]");
  EXPECT_THAT(report().getReportContents(), Optional(IsEmpty()));
  expectMissing("text");
  EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(PropertyQueries, ListIsInStoredOrder) {
  const Contents unsorted{numbered("b", {1}), numbered("c", {}), numbered("a", {2, 1})};
  storeContents(unsorted);
  EXPECT_THAT(report().getReportContents(), Optional(unsorted));
}

TEST_F(PropertyQueries, NamesAreComparedByteByByte) {
  const std::string withNul("name\0more", 9);
  const Contents all{numbered("name", {1}), numbered("", {2}), numbered(withNul, {3}),
                     numbered("Größe\n%s", {4})};
  storeContents(all);
  for (const Property& property : all) {
    EXPECT_THAT(report().getReportContentProperty(property.stable_id), Optional(property));
    EXPECT_TRUE(report().hasReportContentProperty(property.stable_id));
  }
  for (const std::string& other :
       {std::string("Name"), std::string("nam"), std::string("name "), std::string(" name"),
        std::string("name\0", 5), std::string("größe\n%s"), std::string("\0", 1)}) {
    expectMissing(other);
  }
}

TEST_F(PropertyQueries, FirstOfSeveralPropertiesOfANameCounts) {
  const Property first = numbered("name", {1});
  storeContents({first, typeFamilies().front().property("name", {2}), numbered("name", {3})});
  EXPECT_THAT(report().getReportContentProperty("name"), Optional(first));
  EXPECT_THAT(report().getReportIntegerProperty("name"), Optional(first));
  // The first decides the type too.
  EXPECT_EQ(report().getReportFileProperty("name"), std::nullopt);
  EXPECT_FALSE(report().hasReportFileProperty("name"));
}

TEST_F(PropertyQueries, PropertyOfUnknownTypeIsFoundByThatType) {
  const Property unknown{"name", Type::UNKNOWN, "", {"tag"}, {}};
  storeContents({unknown});
  EXPECT_THAT(report().getReportContentProperty("name"), Optional(unknown));
  EXPECT_THAT(report().getReportContentProperty("name", Type::UNKNOWN), Optional(unknown));
  EXPECT_EQ(report().getReportContentProperty("name", Type::FILE), std::nullopt);
}

TEST_F(PropertyQueries, ReadTheStoreEachTime) {
  storeContents({numbered("a", {1})});
  ASSERT_TRUE(report().hasReportIntegerProperty("a"));
  storeContents({numbered("b", {1})});
  EXPECT_FALSE(report().hasReportIntegerProperty("a"));
  EXPECT_TRUE(report().hasReportIntegerProperty("b"));
  storeContentsText(std::nullopt);
  EXPECT_EQ(report().getReportContents(), std::nullopt);
}

TEST_F(PropertyQueries, NeedNoLockAndChangeNothing) {
  storeContents(oneOfEach({1}));
  unlock();
  const Snapshot before = snapshot();
  EXPECT_EQ(contents(), oneOfEach({1}));
  for (const TypeFamily& family : typeFamilies()) {
    EXPECT_TRUE(family.hasProperty(report(), family.word));
  }
  expectSame(before);
  EXPECT_TRUE(lockIsFree());
  EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(PropertyQueries, FindNothingInAReportOfNothing) {
  const Report nothing;
  EXPECT_EQ(nothing.getReportContents(), std::nullopt);
  EXPECT_FALSE(nothing.hasReportContentProperty(""));
  EXPECT_FALSE(nothing.hasReportStringProperty(""));
  EXPECT_THAT(log_.take(), IsEmpty());
}

class TypedPropertyQueries : public ContentsTest, public testing::WithParamInterface<TypeFamily> {
 protected:
  const TypeFamily& family_ = GetParam();
};

TEST_P(TypedPropertyQueries, FindPropertiesOfTheirType) {
  Property wanted = family_.property("name", {3, 1, 2});
  wanted.tags = {"b", "a"};
  storeContents({numbered("other", {}), wanted});
  EXPECT_TRUE(family_.hasProperty(report(), "name"));
  EXPECT_THAT(family_.getProperty(report(), "name"), Optional(wanted));
  EXPECT_THAT(report().getReportContentProperty("name", family_.type), Optional(wanted));
  EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_P(TypedPropertyQueries, TakeAPropertyOfAnotherTypeForAbsent) {
  storeContents(oneOfEach({1}));
  forOtherTypes(family_.type, [&](const TypeFamily& other) {
    EXPECT_FALSE(family_.hasProperty(report(), other.word));
    EXPECT_EQ(family_.getProperty(report(), other.word), std::nullopt);
    EXPECT_EQ(report().getReportContentProperty(other.word, family_.type), std::nullopt);
    EXPECT_TRUE(report().hasReportContentProperty(other.word));
  });
  EXPECT_THAT(log_.take(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(All, TypedPropertyQueries, testing::ValuesIn(typeFamilies()), familyName);

}  // namespace
}  // namespace KELP::Diagnostic
