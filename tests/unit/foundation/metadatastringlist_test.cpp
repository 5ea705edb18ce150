#include "support/logcapture.h"
#include "unit/foundation/namedcase.h"
#include "unit/foundation/randomtext.h"
#include "unit/foundation/seed.h"

#include <diagnostic/metadataproperty.h>

#include <gtest/gtest.h>

#include <optional>
#include <random>
#include <string>
#include <vector>

namespace KELP::Diagnostic {
namespace {

using Test::CaseName;
using Test::LogCapture;
using Test::LogLine;
using Test::NamedCase;
using Test::randomNumber;
using Test::randomText;
using Test::seedNote;
using Test::testSeed;
using Strings = std::vector<std::string>;

const MetadataProperty<Strings> kList("list", std::nullopt);

struct ListText : NamedCase {
  Strings list;
  std::string text;
};

class StringListFormTest : public testing::TestWithParam<ListText> {};

TEST_P(StringListFormTest, IsWrittenAsThisTextAndReadBack) {
  EXPECT_EQ(MetadataProperty<Strings>::serialize(GetParam().list), GetParam().text);
  const LogCapture log;
  EXPECT_EQ(kList.unserialize(GetParam().text), GetParam().list);
  EXPECT_EQ(log.lines(), std::vector<LogLine>());
}

INSTANTIATE_TEST_SUITE_P(
    Lists, StringListFormTest,
    testing::Values(ListText{{"Empty"}, {}, "[]"}, ListText{{"One"}, {"a"}, R"(["a"])"},
                    ListText{{"OneEmptyString"}, {""}, R"([""])"},
                    ListText{{"InOrderWithoutSpaces"}, {"b", "a", "c"}, R"(["b","a","c"])"},
                    ListText{{"Duplicates"}, {"a", "a"}, R"(["a","a"])"},
                    ListText{{"Quotes"}, {R"(say "so")"}, R"(["say \"so\""])"},
                    ListText{{"Backslashes"}, {R"(C:\x)"}, R"(["C:\\x"])"},
                    ListText{{"Slashes"}, {"/usr/lib/libc.so"}, R"(["/usr/lib/libc.so"])"},
                    ListText{{"LineBreaks"}, {"a\nb\r\tc"}, R"(["a\nb\r\tc"])"},
                    ListText{{"ControlCharacters"}, {"\x01\x1f"}, "[\"\\u0001\\u001f\"]"},
                    ListText{{"Nul"}, {std::string("a\0b", 3)}, "[\"a\\u0000b\"]"},
                    ListText{{"OnlyNul"}, {std::string("\0", 1), "x"}, "[\"\\u0000\",\"x\"]"},
                    ListText{{"Accents"}, {"caf\xc3\xa9"}, "[\"caf\\u00e9\"]"},
                    ListText{{"BeyondTheFirstPlane"}, {"\xf0\x9f\x98\x80"}, "[\"\\ud83d\\ude00\"]"},
                    ListText{
                        {"TextThatLooksLikeJson"}, {"[]", "null", "{}"}, R"(["[]","null","{}"])"},
                    ListText{{"PercentSigns"}, {"100% %s"}, R"(["100% %s"])"}),
    CaseName());

class StringListReadingTest : public testing::TestWithParam<ListText> {};

TEST_P(StringListReadingTest, ReadsAsThisListWithoutALine) {
  const LogCapture log;
  EXPECT_EQ(kList.unserialize(GetParam().text), GetParam().list);
  EXPECT_EQ(log.lines(), std::vector<LogLine>());
}

INSTANTIATE_TEST_SUITE_P(
    OtherElements, StringListReadingTest,
    testing::Values(ListText{{"NumberBetween"}, {"a", "b"}, R"(["a", 3, "b"])"},
                    ListText{{"Null"}, {"a"}, R"([null,"a"])"},
                    ListText{{"Boolean"}, {"a"}, R"([true,"a"])"},
                    ListText{{"List"}, {"a"}, R"([["x"],"a"])"},
                    ListText{{"Object"}, {"a"}, R"([{"x":"y"},"a"])"},
                    ListText{{"OnlyOthers"}, {}, R"([1,null,{},[]])"}),
    CaseName());

INSTANTIATE_TEST_SUITE_P(
    OtherSpellings, StringListReadingTest,
    testing::Values(
        ListText{{"Spaces"}, {"a", "b"}, " [ \"a\" ,\n\t\"b\" ] "},
        ListText{{"Comments"}, {"a"}, "[ /* why */ \"a\" ] // done"},
        ListText{{"TrailingComma"}, {"a"}, R"(["a",])"},
        ListText{{"Escapes"}, {"/A\xc3\xa9\n"}, R"(["\/\u0041\u00e9\n"])"},
        ListText{{"UnescapedUtf8"}, {"caf\xc3\xa9"}, "[\"caf\xc3\xa9\"]"},
        ListText{{"RawNulWithinAString"}, {std::string("a\0b", 3)}, std::string("[\"a\0b\"]", 7)},
        ListText{{"NulAfterTheArray"}, {"a"}, std::string("[\"a\"]\0[", 7)}),
    CaseName());

TEST(MetadataStringListTest, BytesThatAreNoUtf8AreWrittenAsReplacementCharacters) {
  EXPECT_EQ(MetadataProperty<Strings>::serialize({"a\xff"}), "[\"a\\ufffd\"]");
}

TEST(MetadataStringListTest, RandomListsComeBackAsTheyWere) {
  SCOPED_TRACE(seedNote());
  std::mt19937 random(testSeed());
  const LogCapture log;
  for (int i = 0; i < 2000; ++i) {
    Strings list(static_cast<std::size_t>(randomNumber(random, 0, 8)));
    for (std::string& element : list)
      element = randomText(random, 20);
    const std::string text = MetadataProperty<Strings>::serialize(list);
    ASSERT_EQ(text.find('\n'), std::string::npos);
    ASSERT_EQ(kList.unserialize(text), list) << text;
  }
  EXPECT_EQ(log.lines(), std::vector<LogLine>());
}

TEST(MetadataStringListTest, LongListsComeBackAsTheyWere) {
  const Strings list(20000, "/system/lib64/libsomething.so");
  EXPECT_EQ(kList.unserialize(MetadataProperty<Strings>::serialize(list)), list);
}

}  // namespace
}  // namespace KELP::Diagnostic
