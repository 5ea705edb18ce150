// A report object keeps the contents that it last read or wrote. It must not show: the object tells
// what the stored text says at that moment.

#include "support/pointlocale.h"
#include "unit/contents/properties/contentsfixture.h"

#include <diagnostic/metadataproperty.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <limits>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;
using testing::IsEmpty;
using testing::Optional;

/** A variation with something else than the initial value in each member. */
Variation fullVariation(int level) {
  Variation variation;
  variation.relative_path = "contentfiles/p/1/file";
  variation.string = "text";
  variation.integer = 42;
  variation.double_ = 0.1;
  variation.boolean = true;
  variation.sensitivity_level = level;
  return variation;
}

/** A property that is added, with one variation. */
struct Addition {
  std::string name;
  Property property;
};

std::ostream& operator<<(std::ostream& out, const Addition& addition) {
  return out << addition.name;
}

Addition addition(const std::string& name, Type type, const Variation& variation,
                  const std::string& id = "p", const std::string& mediaType = "text/plain",
                  const Tags& tags = {"b", "a"}) {
  return {name, {id, type, mediaType, tags, {variation}}};
}

Variation withText(const std::string& text) {
  return variationWith(3, &Variation::string, text);
}

Variation withNumber(double number) {
  return variationWith(3, &Variation::double_, number);
}

std::vector<Addition> additions() {
  using Doubles = std::numeric_limits<double>;
  const std::string control = std::string("a\0b", 3) + "\x01\x1f\x7f\n";
  return {
      addition("File", Type::FILE, fullVariation(1)),
      addition("String", Type::STRING, fullVariation(-1)),
      addition("Integer", Type::INTEGER, fullVariation(0)),
      addition("Double", Type::DOUBLE, fullVariation(9999)),
      addition("Boolean", Type::BOOLEAN, fullVariation(2)),
      addition("Unknown", Type::UNKNOWN, fullVariation(2)),
      addition("OutsideTheEnumeration", static_cast<Type>(77), fullVariation(2)),
      addition("SmallestInteger", Type::INTEGER,
               variationWith(std::numeric_limits<int>::min(), &Variation::integer,
                             std::numeric_limits<std::int32_t>::min())),
      addition("LargestInteger", Type::INTEGER,
               variationWith(std::numeric_limits<int>::max(), &Variation::integer,
                             std::numeric_limits<std::int32_t>::max())),
      addition("Long", Type::STRING, withText(std::string(3 << 19, 'x'))),
      addition("Quotes", Type::STRING, withText(R"(a "quoted" \ text / and more)")),
      addition("Controls", Type::STRING, withText(control)),
      addition("Accents", Type::STRING, withText("caf\xc3\xa9 \xf0\x9f\x98\x80")),
      addition("NotUtf8", Type::STRING, withText("a\xff\xfe\xc3z")),
      addition("HalfACharacter", Type::STRING, withText("\xc3")),
      addition("Surrogate", Type::STRING, withText("\xed\xa0\x80")),
      addition("NameNotUtf8", Type::STRING, withText("x"), "p\xff"),
      addition("MediaTypeNotUtf8", Type::STRING, withText("x"), "p", "text/\xff"),
      addition("TagsThatBecomeOne", Type::STRING, withText("x"), "p", "", {"\xfe", "\xff"}),
      addition("Tenth", Type::DOUBLE, withNumber(0.1)),
      addition("Third", Type::DOUBLE, withNumber(1.0 / 3)),
      addition("Largest", Type::DOUBLE, withNumber(Doubles::max())),
      addition("Smallest", Type::DOUBLE, withNumber(Doubles::denorm_min())),
      addition("NegativeZero", Type::DOUBLE, withNumber(-0.0)),
      addition("NotANumber", Type::DOUBLE, withNumber(Doubles::quiet_NaN())),
      addition("Infinity", Type::DOUBLE, withNumber(Doubles::infinity())),
  };
}

class KeptContents : public ContentsTest {
 protected:
  /** Expects that the object tells what reading the stored text gives. */
  void expectAsStored() {
    const auto kept = report().getReportContents();
    const std::vector<LogLine> lines = log_.take();
    const auto read =
        MetadataProperty<Contents>(kContentsKey, std::nullopt).unserialize(stored(kContentsKey));
    EXPECT_EQ(log_.take(), lines);
    EXPECT_EQ(kept, read);
    // Numbers that are equal need not be the same.
    EXPECT_EQ(textOf(kept.value_or(Contents())), textOf(read.value_or(Contents())));
  }

  void add(const Property& property) {
    EXPECT_THAT(report().createReportContentProperty(property.stable_id, property.property_type,
                                                     property.media_type, property.tags),
                Succeeds());
    for (const Variation& variation : property.variations) {
      EXPECT_THAT(report().addReportContentVariation(property.stable_id, variation, false),
                  Succeeds());
    }
    static_cast<void>(log_.take());
  }
};

class KeptAddition : public KeptContents, public testing::WithParamInterface<Addition> {};

TEST_P(KeptAddition, IsToldAsItIsStored) {
  add(GetParam().property);
  expectAsStored();
}

TEST_P(KeptAddition, IsToldAsItIsStoredAmongOthers) {
  add(numbered("first", {1, 2}));
  expectAsStored();
  add(GetParam().property);
  expectAsStored();
  if (contents().empty()) return;  // Cannot be read any more, which has just been compared.
  add({"last", Type::STRING, "", {}, {withText("plain")}});
  expectAsStored();
}

INSTANTIATE_TEST_SUITE_P(All, KeptAddition, testing::ValuesIn(additions()),
                         [](const auto& all) { return all.param.name; });

TEST_F(KeptContents, GiveWayToWhatOthersStore) {
  add(numbered("p", {1}));
  ASSERT_THAT(contents(), testing::ElementsAre(numbered("p", {1})));
  storeContents({numbered("p", {1, 2})});
  EXPECT_THAT(contents(), testing::ElementsAre(numbered("p", {1, 2})));
  storeContents({});
  EXPECT_THAT(report().getReportContents(), Optional(IsEmpty()));
  storeContentsText(std::nullopt);
  EXPECT_EQ(report().getReportContents(), std::nullopt);
  EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(KeptContents, AreNotToldInThePlaceOfDamage) {
  add(numbered("p", {1}));
  const std::string text = textOf(contents());
  const std::string line =
      "Failed to parse json data: [, error: * Line 1, Column 2\n"
      "  Syntax error: value, object or array expected.\n";
  for (int i = 0; i < 2; ++i) {
    storeContentsText("[");
    EXPECT_EQ(report().getReportContents(), std::nullopt);
    EXPECT_EQ(log_.take(), errorLines({line}));
    EXPECT_EQ(report().getReportContents(), std::nullopt);
    EXPECT_EQ(log_.take(), errorLines({line}));
    storeContentsText(text);
    EXPECT_THAT(contents(), testing::ElementsAre(numbered("p", {1})));
  }
}

TEST_F(KeptContents, StayAsTheyAreWhenAChangeFails) {
  add(numbered("p", {1}));
  std::filesystem::rename(metadataFile(), dir() / "away");
  EXPECT_FALSE(report().addReportIntegerVariation("p", 2, 5, false));
  std::filesystem::rename(dir() / "away", metadataFile());
  static_cast<void>(log_.take());
  EXPECT_THAT(contents(), testing::ElementsAre(numbered("p", {1})));
  expectAsStored();
}

// What others store is read and kept in one locale, and looked at in another.
TEST_F(KeptContents, AreTheSameInEveryLocale) {
  const Property fraction{"p", Type::DOUBLE, "", {}, {withNumber(0.5)}};
  {
    const PointLocale comma(',', '.');
    add(fraction);
    EXPECT_THAT(contents(), testing::ElementsAre(fraction));
    storeContents({numbered("other", {1}), fraction});
    EXPECT_THAT(contents(), testing::ElementsAre(numbered("other", {1}), fraction));
    add(numbered("third", {1}));
  }
  EXPECT_THAT(contents(),
              testing::ElementsAre(numbered("other", {1}), fraction, numbered("third", {1})));
  expectAsStored();
}

/** Changes a report when static objects are destroyed. */
struct LastChange {
  ~LastChange() {
    const bool made = report && report->addReportIntegerVariation("p", 7, 8, false) &&
                      report->getReportContents().has_value();
    static_cast<void>(std::fputs(made ? "made" : "not made", stderr));
  }
  std::unique_ptr<Report> report;
};

class KeptContentsDeathTest : public KeptContents {
 protected:
  /** Never returns. */
  void changeAtExit() {
    static LastChange last;  // Before the first use of contents, so that it ends after all of that.
    add(numbered("p", {1}));
    add({"read",
         Type::STRING,
         "",
         {},
         {withText("caf\xc3\xa9")}});  // Not kept, but read each time.
    last.report = std::move(report_);
    std::exit(0);
  }
};

TEST_F(KeptContentsDeathTest, CanBeChangedWhenStaticObjectsAreDestroyed) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");  // In a process that has done nothing before.
  EXPECT_EXIT(changeAtExit(), testing::ExitedWithCode(0), "^made$");
}

TEST_F(KeptContents, OfTwoObjectsFollowEachOther) {
  unlock();
  const auto other = open();
  const std::vector<Report*> turns{&report(), other.get(), other.get(), &report()};
  Contents expected;
  for (std::size_t i = 0; i < turns.size(); ++i) {
    const std::string name = "p" + std::to_string(i);
    ASSERT_THAT(turns[i]->acquireWriteLock(true), Succeeds());
    ASSERT_THAT(turns[i]->createReportIntegerProperty(name, {}), Succeeds());
    ASSERT_THAT(turns[i]->releaseLock(), Succeeds());
    expected.push_back(numbered(name, {}));
    EXPECT_THAT(report().getReportContents(), Optional(expected));
    EXPECT_THAT(other->getReportContents(), Optional(expected));
  }
}

}  // namespace
}  // namespace KELP::Diagnostic
