#include "unit/foundation/namedcase.h"

#include <diagnostic/reportuuid.h>

#include <gtest/gtest.h>
#include <uuid/uuid.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string>
#include <type_traits>
#include <unordered_set>
#include <utility>

namespace KELP::Diagnostic {
namespace {

using Test::CaseName;
using Test::NamedCase;

static_assert(sizeof(ReportUuid) == 16);
static_assert(std::is_standard_layout_v<ReportUuid>);
static_assert(std::is_trivially_copyable_v<ReportUuid>);
static_assert(std::is_nothrow_move_constructible_v<ReportUuid>);

constexpr const char* kLower = "0123abcd-ef45-4678-9abc-def001234567";
constexpr const char* kUpper = "0123ABCD-EF45-4678-9ABC-DEF001234567";
constexpr unsigned char kBytes[16] = {0x01, 0x23, 0xab, 0xcd, 0xef, 0x45, 0x46, 0x78,
                                      0x9a, 0xbc, 0xde, 0xf0, 0x01, 0x23, 0x45, 0x67};
constexpr unsigned char kNullBytes[16] = {};

ReportUuid randomized() {
  ReportUuid id;
  id.randomize();
  return id;
}

TEST(ReportUuidTest, ADefaultConstructedIdentifierIsNull) {
  const ReportUuid id;
  EXPECT_TRUE(id.isNull());
  EXPECT_EQ(std::memcmp(id.raw(), kNullBytes, 16), 0);
  EXPECT_EQ(id.toString(), "00000000-0000-0000-0000-000000000000");
}

TEST(ReportUuidTest, OneSetBitAnywhereMakesAnIdentifierNotNull) {
  for (std::size_t i = 0; i < 16; ++i) {
    unsigned char bytes[16] = {};
    bytes[i] = 1;
    EXPECT_FALSE(ReportUuid(bytes).isNull()) << "byte " << i;
  }
}

TEST(ReportUuidTest, APointerToTheObjectIsAPointerToItsBytes) {
  const ReportUuid id(kBytes);
  EXPECT_EQ(static_cast<const void*>(&id), static_cast<const void*>(id.raw()));
  EXPECT_EQ(std::memcmp(&id, kBytes, sizeof(id)), 0);
}

TEST(ReportUuidTest, BytesAreCopiedByConstructionAndAssignment) {
  unsigned char bytes[16];
  std::copy(std::begin(kBytes), std::end(kBytes), bytes);
  const ReportUuid constructed(bytes);
  ReportUuid assigned;
  EXPECT_EQ(&(assigned = bytes), &assigned);
  bytes[0] = 0xff;
  EXPECT_EQ(std::memcmp(constructed.raw(), kBytes, 16), 0);
  EXPECT_EQ(std::memcmp(assigned.raw(), kBytes, 16), 0);
}

TEST(ReportUuidTest, CopiesAreEqualAndIndependent) {
  ReportUuid original(kBytes);
  const ReportUuid copy(original);
  ReportUuid assigned;
  EXPECT_EQ(&(assigned = original), &assigned);
  original.randomize();
  EXPECT_TRUE(copy == kBytes);
  EXPECT_TRUE(assigned == kBytes);
}

TEST(ReportUuidTest, AMovedFromIdentifierKeepsItsValue) {
  ReportUuid original(kBytes);
  const ReportUuid moved(std::move(original));
  EXPECT_TRUE(original == kBytes);  // NOLINT(bugprone-use-after-move)
  ReportUuid assigned;
  EXPECT_EQ(&(assigned = std::move(original)), &assigned);
  EXPECT_TRUE(original == kBytes);  // NOLINT(bugprone-use-after-move)
  EXPECT_TRUE(moved == kBytes);
  EXPECT_TRUE(assigned == kBytes);
}

TEST(ReportUuidTest, AssigningAnIdentifierToItselfChangesNothing) {
  ReportUuid id(kBytes);
  const ReportUuid& same = id;
  id = same;
  EXPECT_TRUE(id == kBytes);
}

TEST(ReportUuidTest, IdentifiersCompareWithEachOtherAndWithRawBytes) {
  const ReportUuid id(kBytes);
  const ReportUuid same(kBytes);
  EXPECT_TRUE(id == same);
  EXPECT_FALSE(id != same);
  EXPECT_TRUE(id == kBytes);
  EXPECT_FALSE(id != kBytes);

  const ReportUuid null;
  EXPECT_FALSE(id == null);
  EXPECT_TRUE(id != null);
  EXPECT_FALSE(id == kNullBytes);
  EXPECT_TRUE(id != kNullBytes);
}

TEST(ReportUuidTest, ADifferenceInAnySingleByteMakesIdentifiersDiffer) {
  const ReportUuid id(kBytes);
  for (std::size_t i = 0; i < 16; ++i) {
    SCOPED_TRACE(i);
    unsigned char bytes[16];
    std::copy(std::begin(kBytes), std::end(kBytes), bytes);
    bytes[i] ^= 0x80U;
    const ReportUuid other(bytes);
    EXPECT_FALSE(id == other);
    EXPECT_TRUE(id != other);
    EXPECT_FALSE(id == bytes);
    EXPECT_TRUE(id != bytes);
    EXPECT_NE(std::hash<ReportUuid>{}(id), std::hash<ReportUuid>{}(other));
  }
}

TEST(ReportUuidTest, RandomizedIdentifiersAreNotNullAndDiffer) {
  std::unordered_set<ReportUuid> seen;
  for (int i = 0; i < 1000; ++i) {
    const ReportUuid id = randomized();
    EXPECT_FALSE(id.isNull());
    EXPECT_TRUE(seen.insert(id).second) << id.toString();
  }
}

TEST(ReportUuidTest, RandomizeOverwritesTheValueWithAVersionFourIdentifier) {
  for (int i = 0; i < 100; ++i) {
    ReportUuid id(kBytes);
    id.randomize();
    EXPECT_TRUE(id != kBytes);
    EXPECT_EQ(id.raw()[6] & 0xf0, 0x40) << id.toString();
    EXPECT_EQ(id.raw()[8] & 0xc0, 0x80) << id.toString();
  }
}

TEST(ReportUuidTest, EqualIdentifiersAreOneKeyOfAnUnorderedContainer) {
  std::unordered_set<ReportUuid> ids{ReportUuid(kBytes), ReportUuid()};
  EXPECT_FALSE(ids.insert(ReportUuid(kBytes)).second);
  EXPECT_EQ(ids.size(), 2U);
  EXPECT_EQ(ids.count(ReportUuid(kBytes)), 1U);
  EXPECT_EQ(ids.count(randomized()), 0U);
}

/** What one of the unparse family writes, checking that it writes 37 bytes and no more. */
std::string unparsed(const ReportUuid& id, void (ReportUuid::*unparse)(char*) const) {
  std::array<char, 48> buffer{};
  buffer.fill('#');
  (id.*unparse)(buffer.data());
  EXPECT_EQ(buffer[36], '\0');
  EXPECT_TRUE(std::all_of(buffer.begin() + 37, buffer.end(), [](char c) { return c == '#'; }));
  return std::string(buffer.data());
}

TEST(ReportUuidTest, TextIsWrittenInTheCaseThatIsAskedFor) {
  const ReportUuid id(kBytes);
  EXPECT_EQ(unparsed(id, &ReportUuid::unparseLower), kLower);
  EXPECT_EQ(unparsed(id, &ReportUuid::unparseUpper), kUpper);
}

TEST(ReportUuidTest, TheDefaultCaseIsThatOfTheUuidLibrary) {
  const ReportUuid id(kBytes);
  std::array<char, UUID_STR_LEN> expected{};
  uuid_unparse(kBytes, expected.data());
  EXPECT_EQ(unparsed(id, &ReportUuid::unparse), expected.data());
  EXPECT_EQ(id.toString(), expected.data());
}

TEST(ReportUuidTest, ToStringHasThirtySixCharactersAndNoTerminator) {
  const std::string text = randomized().toString();
  EXPECT_EQ(text.size(), ReportUuid::kTextLength);
  EXPECT_EQ(text.find('\0'), std::string::npos);
}

TEST(ReportUuidTest, EveryTextFormParsesBackToTheSameValue) {
  for (int i = 0; i < 500; ++i) {
    const ReportUuid id = randomized();
    for (const auto unparse :
         {&ReportUuid::unparse, &ReportUuid::unparseLower, &ReportUuid::unparseUpper}) {
      const std::string text = unparsed(id, unparse);
      ReportUuid parsed;
      ASSERT_TRUE(parsed.parse(text.c_str())) << text;
      EXPECT_TRUE(parsed == id) << text;
    }
  }
}

TEST(ReportUuidTest, ParsingAcceptsEitherCaseAndAMixture) {
  for (const char* text : {kLower, kUpper, "0123abCD-eF45-4678-9aBC-Def001234567"}) {
    ReportUuid id;
    EXPECT_TRUE(id.parse(text)) << text;
    EXPECT_TRUE(id == kBytes) << text;
  }
}

TEST(ReportUuidTest, ParsingOverwritesAnEarlierValueAlsoWithTheNullIdentifier) {
  ReportUuid id(kBytes);
  EXPECT_TRUE(id.parse("00000000-0000-0000-0000-000000000000"));
  EXPECT_TRUE(id.isNull());
}

TEST(ReportUuidTest, ParsingDoesNotAskForAnyVersionOfIdentifier) {
  ReportUuid id;
  EXPECT_TRUE(id.parse("ffffffff-ffff-ffff-ffff-ffffffffffff"));
  EXPECT_FALSE(id.isNull());
}

struct BadText : NamedCase {
  const char* text;
};

class ReportUuidParseTest : public testing::TestWithParam<BadText> {};

TEST_P(ReportUuidParseTest, RefusesTheTextAndKeepsTheValue) {
  ReportUuid id(kBytes);
  EXPECT_FALSE(id.parse(GetParam().text));
  EXPECT_TRUE(id == kBytes);
}

INSTANTIATE_TEST_SUITE_P(
    BadTexts, ReportUuidParseTest,
    testing::Values(BadText{{"NullPointer"}, nullptr}, BadText{{"Empty"}, ""},
                    BadText{{"OneShort"}, "0123abcd-ef45-4678-9abc-def00123456"},
                    BadText{{"OneLong"}, "0123abcd-ef45-4678-9abc-def0012345678"},
                    BadText{{"OnlyTheBeginning"}, "0123abcd"},
                    BadText{{"InBraces"}, "{0123abcd-ef45-4678-9abc-def001234567}"},
                    BadText{{"InBracesOfTheRightLength"}, "{123abcd-ef45-4678-9abc-def00123456}"},
                    BadText{{"WithScheme"}, "urn:uuid:0123abcd-ef45-4678-9abc-def001234567"},
                    BadText{{"WithoutHyphens"}, "0123abcdef4546789abcdef001234567"},
                    BadText{{"HyphensMisplaced"}, "0123abcde-f45-4678-9abc-def001234567"},
                    BadText{{"DigitForHyphen"}, "0123abcd0ef45-4678-9abc-def001234567"},
                    BadText{{"LastHyphenMissing"}, "0123abcd-ef45-4678-9abc0def001234567"},
                    BadText{{"HyphenForDigit"}, "0123abcd-ef45-4678-9abc-def00123456-"},
                    BadText{{"NoHexDigitFirst"}, "g123abcd-ef45-4678-9abc-def001234567"},
                    BadText{{"NoHexDigitLast"}, "0123abcd-ef45-4678-9abc-def00123456g"},
                    BadText{{"HexPrefix"}, "0x23abcd-ef45-4678-9abc-def001234567"},
                    BadText{{"Sign"}, "+123abcd-ef45-4678-9abc-def001234567"},
                    BadText{{"LeadingSpace"}, " 0123abcd-ef45-4678-9abc-def001234567"},
                    BadText{{"LeadingSpaceOfTheRightLength"},
                            " 123abcd-ef45-4678-9abc-def001234567"},
                    BadText{{"TrailingSpace"}, "0123abcd-ef45-4678-9abc-def001234567 "},
                    BadText{{"TrailingNewline"}, "0123abcd-ef45-4678-9abc-def001234567\n"},
                    BadText{{"TrailingSlash"}, "0123abcd-ef45-4678-9abc-def001234567/"},
                    BadText{{"NotAscii"}, "0123abcd-ef45-4678-9abc-def0012345\xc3\xa9"},
                    BadText{{"Word"}, "lock"}),
    CaseName());

}  // namespace
}  // namespace KELP::Diagnostic
