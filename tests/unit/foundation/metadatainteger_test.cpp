#include "support/logcapture.h"
#include "unit/foundation/namedcase.h"
#include "unit/foundation/seed.h"

#include <diagnostic/metadataproperty.h>

#include <gtest/gtest.h>

#include <array>
#include <charconv>
#include <limits>
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
using Test::seedNote;
using Test::testSeed;

const MetadataProperty<int> kInt("int", std::nullopt);
const MetadataProperty<long> kLong("long", std::nullopt);

template <typename T>
struct IntegerText : NamedCase {
  std::string text;
  T value;
};

template <typename T>
void expectValue(const IntegerText<T>& row) {
  const LogCapture log;
  EXPECT_EQ(MetadataProperty<T>("key", std::nullopt).unserialize(row.text), row.value);
  EXPECT_EQ(MetadataProperty<T>("key", T{-77}).unserialize(row.text), row.value);
  EXPECT_EQ(log.lines(), std::vector<LogLine>());
}

template <typename T>
void expectDefault(const std::string& text) {
  const LogCapture log;
  EXPECT_EQ(MetadataProperty<T>("key", std::nullopt).unserialize(text), std::nullopt);
  EXPECT_EQ(MetadataProperty<T>("key", T{-77}).unserialize(text), -77);
  EXPECT_EQ(log.lines(), std::vector<LogLine>());
}

class IntegerTextTest : public testing::TestWithParam<IntegerText<int>> {};

TEST_P(IntegerTextTest, ReadsAsTheSameNumberInBothKinds) {
  expectValue(GetParam());
  expectValue(IntegerText<long>{{GetParam().name}, GetParam().text, GetParam().value});
}

INSTANTIATE_TEST_SUITE_P(Numbers, IntegerTextTest,
                         testing::Values(IntegerText<int>{{"Zero"}, "0", 0},
                                         IntegerText<int>{{"OneDigit"}, "7", 7},
                                         IntegerText<int>{{"Several"}, "1234567890", 1234567890},
                                         IntegerText<int>{{"Negative"}, "-42", -42},
                                         IntegerText<int>{{"Largest32"}, "2147483647", 2147483647},
                                         IntegerText<int>{{"Smallest32"},
                                                          "-2147483648",
                                                          std::numeric_limits<int>::min()}),
                         CaseName());

INSTANTIATE_TEST_SUITE_P(
    LeadingZeros, IntegerTextTest,
    testing::Values(IntegerText<int>{{"Two"}, "007", 7}, IntegerText<int>{{"Only"}, "000", 0},
                    IntegerText<int>{{"NegativeZero"}, "-0", 0},
                    IntegerText<int>{{"NegativeZeros"}, "-000", 0},
                    IntegerText<int>{{"Negative"}, "-0042", -42},
                    IntegerText<int>{
                        {"ManyBeforeTheLargest"}, std::string(100, '0') + "2147483647", 2147483647},
                    IntegerText<int>{{"ManyBeforeTheSmallest"},
                                     "-" + std::string(100, '0') + "2147483648",
                                     std::numeric_limits<int>::min()},
                    IntegerText<int>{{"Thousands"}, std::string(5000, '0'), 0}),
    CaseName());

INSTANTIATE_TEST_SUITE_P(
    IgnoredTail, IntegerTextTest,
    testing::Values(
        IntegerText<int>{{"Letters"}, "42abc", 42},
        IntegerText<int>{{"LettersAfterTwoDigits"}, "12abc", 12},
        IntegerText<int>{{"Space"}, "12 ", 12}, IntegerText<int>{{"Newline"}, "12\n", 12},
        IntegerText<int>{{"SecondNumber"}, "12 34", 12}, IntegerText<int>{{"Fraction"}, "1.9", 1},
        IntegerText<int>{{"Exponent"}, "1e5", 1}, IntegerText<int>{{"Grouping"}, "1,000", 1},
        IntegerText<int>{{"Hexadecimal"}, "0x10", 0},
        IntegerText<int>{{"LettersAfterZero"}, "0abc", 0},
        IntegerText<int>{{"LettersAfterNegativeZero"}, "-0abc", 0},
        IntegerText<int>{{"LettersAfterZeros"}, "007bond", 7}, IntegerText<int>{{"Sign"}, "1-2", 1},
        IntegerText<int>{{"SignAfterZero"}, "0-2", 0},
        IntegerText<int>{{"NulAndDigits"}, std::string("4\0002", 3), 4},
        IntegerText<int>{{"NegativeAndLetters"}, "-42abc", -42},
        IntegerText<int>{{"LettersAfterTheLargest"}, "2147483647abc", 2147483647}),
    CaseName());

struct NoNumber : NamedCase {
  std::string text;
};

class NoNumberTest : public testing::TestWithParam<NoNumber> {};

TEST_P(NoNumberTest, ReadsAsTheDefaultInBothKindsAndLogsNothing) {
  expectDefault<int>(GetParam().text);
  expectDefault<long>(GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, NoNumberTest,
    testing::Values(NoNumber{{"Empty"}, ""}, NoNumber{{"Minus"}, "-"},
                    NoNumber{{"TwoMinuses"}, "--5"}, NoNumber{{"Plus"}, "+12"},
                    NoNumber{{"PlusAlone"}, "+"}, NoNumber{{"PlusMinus"}, "+-12"},
                    NoNumber{{"MinusPlus"}, "-+12"}, NoNumber{{"LeadingSpace"}, " 12"},
                    NoNumber{{"LeadingTab"}, "\t12"}, NoNumber{{"LeadingNewline"}, "\n12"},
                    NoNumber{{"SpaceAfterMinus"}, "- 12"}, NoNumber{{"Letters"}, "abc"},
                    NoNumber{{"LettersAfterMinus"}, "-abc"},
                    NoNumber{{"LeadingNul"}, std::string("\00012", 3)},
                    NoNumber{{"Quoted"}, "\"12\""}, NoNumber{{"Point"}, ".5"},
                    NoNumber{{"DigitsOfAnotherScript"}, "\xd9\xa1\xd9\xa2"},
                    NoNumber{{"AboveLong"}, "9223372036854775808"},
                    NoNumber{{"BelowLong"}, "-9223372036854775809"},
                    NoNumber{{"AboveUnsignedLong"}, "18446744073709551616"},
                    NoNumber{{"UnsignedLongWrappedToOne"}, "18446744073709551617"},
                    NoNumber{{"AboveLongWithTail"}, "9223372036854775808abc"},
                    NoNumber{{"AboveLongWithZeros"}, "0009223372036854775808"},
                    NoNumber{{"ThousandDigits"}, std::string(1000, '9')},
                    NoNumber{{"NegativeThousandDigits"}, "-" + std::string(1000, '9')}),
    CaseName());

class OnlyLongTest : public testing::TestWithParam<IntegerText<long>> {};

TEST_P(OnlyLongTest, ReadsAsANumberInThe64BitKindAndAsTheDefaultInThe32BitKind) {
  expectValue(GetParam());
  expectDefault<int>(GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(
    Numbers, OnlyLongTest,
    testing::Values(
        IntegerText<long>{{"JustAboveInt"}, "2147483648", 2147483648L},
        IntegerText<long>{{"JustBelowInt"}, "-2147483649", -2147483649L},
        IntegerText<long>{{"JustAboveIntWithZeros"}, "002147483648", 2147483648L},
        IntegerText<long>{{"JustAboveIntWithTail"}, "2147483648x", 2147483648L},
        IntegerText<long>{{"UnsignedIntWrappedToZero"}, "4294967296", 4294967296L},
        IntegerText<long>{{"Largest"}, "9223372036854775807", std::numeric_limits<long>::max()},
        IntegerText<long>{{"Smallest"}, "-9223372036854775808", std::numeric_limits<long>::min()},
        IntegerText<long>{{"SmallestWithZerosAndTail"},
                          "-0009223372036854775808 ",
                          std::numeric_limits<long>::min()}),
    CaseName());

TEST(MetadataIntegerTest, NumbersAreWrittenAsPlainDecimals) {
  EXPECT_EQ(MetadataProperty<int>::serialize(0), "0");
  EXPECT_EQ(MetadataProperty<int>::serialize(-7), "-7");
  EXPECT_EQ(MetadataProperty<int>::serialize(1000000), "1000000");
  EXPECT_EQ(MetadataProperty<int>::serialize(std::numeric_limits<int>::max()), "2147483647");
  EXPECT_EQ(MetadataProperty<int>::serialize(std::numeric_limits<int>::min()), "-2147483648");
  EXPECT_EQ(MetadataProperty<long>::serialize(0), "0");
  EXPECT_EQ(MetadataProperty<long>::serialize(std::numeric_limits<long>::max()),
            "9223372036854775807");
  EXPECT_EQ(MetadataProperty<long>::serialize(std::numeric_limits<long>::min()),
            "-9223372036854775808");
}

template <typename T>
void expectRoundTrips(const MetadataProperty<T>& property) {
  SCOPED_TRACE(seedNote());
  std::mt19937 random(testSeed());
  std::uniform_int_distribution<T> any(std::numeric_limits<T>::min(),
                                       std::numeric_limits<T>::max());
  for (int i = 0; i < 10000; ++i) {
    // Shifted, so that numbers of every length come up.
    const T value =
        static_cast<T>(any(random) >> randomNumber(random, 0, std::numeric_limits<T>::digits));
    const std::string text = MetadataProperty<T>::serialize(value);
    ASSERT_EQ(text, std::to_string(value));
    ASSERT_EQ(property.unserialize(text), value);
  }
}

TEST(MetadataIntegerTest, RandomNumbersComeBackAsTheyWere) {
  expectRoundTrips(kInt);
  expectRoundTrips(kLong);
}

/** What a text reads as: base 10 as by the standard conversion, in which zeros count for nothing.
 */
template <typename T>
std::optional<T> converted(const std::string& text) {
  T value{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  return error == std::errc() ? std::optional(value) : std::nullopt;
}

TEST(MetadataIntegerTest, RandomTextsReadAsByTheStandardConversion) {
  SCOPED_TRACE(seedNote());
  constexpr std::array<char, 18> kLetters{'0', '0', '0', '1', '2', '3', '4', '5', '6',
                                          '7', '8', '9', '9', '-', '+', ' ', 'a', '\0'};
  std::mt19937 random(testSeed());
  int numbers = 0;
  for (int i = 0; i < 20000; ++i) {
    std::string text = randomNumber(random, 0, 2) == 0 ? "-" : "";
    const int length = randomNumber(random, 0, 24);
    for (int j = 0; j < length; ++j) {
      text += kLetters[static_cast<std::size_t>(randomNumber(random, 0, kLetters.size() - 1))];
    }
    numbers += converted<int>(text).has_value() ? 1 : 0;
    ASSERT_EQ(kInt.unserialize(text), converted<int>(text)) << text;
    ASSERT_EQ(kLong.unserialize(text), converted<long>(text)) << text;
  }
  EXPECT_GT(numbers, 1000);
  EXPECT_LT(numbers, 19000);
}

}  // namespace
}  // namespace KELP::Diagnostic
