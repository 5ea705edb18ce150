// Texts as people read and write them.

#include "base/text.h"

#include "base/failure.h"

#include <gmock/gmock.h>

#include <clocale>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace KELP::Tool {
namespace {

using namespace std::string_literals;

struct Escape {
  const char* name;
  std::string text;
  std::string escaped;
  std::string lines;  ///< By escapedLines().
};

std::ostream& operator<<(std::ostream& out, const Escape& escape) {
  return out << escape.name;
}

class EscapedText : public testing::TestWithParam<Escape> {};

TEST_P(EscapedText, IsSafeForATerminal) {
  EXPECT_EQ(escaped(GetParam().text), GetParam().escaped);
  EXPECT_EQ(escapedLines(GetParam().text), GetParam().lines);
}

INSTANTIATE_TEST_SUITE_P(
    All, EscapedText,
    testing::Values(
        Escape{"Nothing", "", "", ""}, Escape{"Plain", "a ~ \"b\"", "a ~ \"b\"", "a ~ \"b\""},
        Escape{"Letters", "Grüße, 日本, 😀", "Grüße, 日本, 😀", "Grüße, 日本, 😀"},
        Escape{"Colour", "\x1b[31mred", "\\x1b[31mred", "\\x1b[31mred"},
        Escape{"Title", "\x1b]0;t\x07", "\\x1b]0;t\\x07", "\\x1b]0;t\\x07"},
        Escape{"Lines", "a\nb\tc\rd", "a\\nb\\tc\\rd", "a\nb\tc\\rd"},
        Escape{"Backslash", "a\\nb", "a\\\\nb", "a\\nb"},
        Escape{"Nul", "a\0b"s, "a\\x00b", "a\\x00b"}, Escape{"Delete", "\x7f", "\\x7f", "\\x7f"},
        Escape{"UpperControl",
               "\xc2\x9b"
               "31m",
               "\\u{9b}31m", "\\u{9b}31m"},
        Escape{"NoBreakSpaceIsNoControl", "\xc2\xa0", "\xc2\xa0", "\xc2\xa0"},
        Escape{"Separators", "\u2028\u2029", "\\u{2028}\\u{2029}", "\\u{2028}\\u{2029}"},
        // NOLINTNEXTLINE(misc-misleading-bidirectional): that is what it is about.
        Escape{"Direction", "\u202etxt\u2066\u200f\u061c", "\\u{202e}txt\\u{2066}\\u{200f}\\u{61c}",
               "\\u{202e}txt\\u{2066}\\u{200f}\\u{61c}"},
        Escape{"Latin1", "\xe9t\xe9", "\\xe9t\\xe9", "\\xe9t\\xe9"},
        Escape{"LoneContinuation", "\x80", "\\x80", "\\x80"},
        Escape{"CutOff", "\xf0\x9f\x98", "\\xf0\\x9f\\x98", "\\xf0\\x9f\\x98"},
        Escape{"OverlongEscape", "\xc0\x9b", "\\xc0\\x9b", "\\xc0\\x9b"},
        Escape{"OverlongOfThree", "\xe0\x80\x9b", "\\xe0\\x80\\x9b", "\\xe0\\x80\\x9b"},
        Escape{"OverlongOfFour", "\xf0\x80\x80\x9b", "\\xf0\\x80\\x80\\x9b",
               "\\xf0\\x80\\x80\\x9b"},
        Escape{"Surrogate", "\xed\xa0\x80", "\\xed\\xa0\\x80", "\\xed\\xa0\\x80"},
        Escape{"BeyondUnicode", "\xf4\x90\x80\x80", "\\xf4\\x90\\x80\\x80", "\\xf4\\x90\\x80\\x80"},
        Escape{"LastCharacter", "\xf4\x8f\xbf\xbf", "\xf4\x8f\xbf\xbf", "\xf4\x8f\xbf\xbf"}),
    [](const auto& test) { return test.param.name; });

/** A character above U+007F and below U+10000, as UTF-8. */
std::string utf8Of(unsigned code) {
  std::string result;
  if (code >= 0x800) {
    result += static_cast<char>(0xE0U | code >> 12U);
    result += static_cast<char>(0x80U | (code >> 6U & 0x3FU));
  } else {
    result += static_cast<char>(0xC0U | code >> 6U);
  }
  result += static_cast<char>(0x80U | (code & 0x3FU));
  return result;
}

/** Undoes escaped(). */
std::string unescaped(const std::string& text) {
  std::string result;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (text[at] != '\\') {
      result += text[at];
      continue;
    }
    const char kind = text.at(++at);
    if (kind == 'x') {
      result += static_cast<char>(std::stoi(text.substr(at + 1, 2), nullptr, 16));
      at += 2;
    } else if (kind == 'u') {
      const std::size_t end = text.find('}', at);
      result += utf8Of(static_cast<unsigned>(std::stoul(text.substr(at + 2, end), nullptr, 16)));
      at = end;
    } else {
      result += kind == 'n' ? '\n' : kind == 'r' ? '\r' : kind == 't' ? '\t' : kind;
    }
  }
  return result;
}

TEST(EscapedRandomText, HasNoControlsAndLosesNothing) {
  std::mt19937 random(20260301);
  // NOLINTNEXTLINE(misc-misleading-bidirectional): such characters are among the cases.
  const std::string favourites = "\\\n\t\r\x1b\x7f\x80\x9b\xc2\xe2\x80\xae\xa8\xf0\x9f\xed\xa0xu{}";
  for (int round = 0; round < 20'000; ++round) {
    std::string text;
    for (auto left = random() % 8; left > 0; --left) {
      text += random() % 2 == 0 ? favourites[random() % favourites.size()]
                                : static_cast<char>(random() % 256);
    }
    const std::string result = escaped(text);
    EXPECT_EQ(unescaped(result), text);
    EXPECT_TRUE(isText(result));
    for (const char letter : result) {
      EXPECT_TRUE(static_cast<unsigned char>(letter) >= 0x20 && letter != 0x7f) << result;
    }
    if (HasFailure()) {
      break;
    }
  }
}

TEST(IsText, IsWhatHasNoNulAndIsUtf8) {
  EXPECT_TRUE(isText(""));
  EXPECT_TRUE(isText("a\n\x1b[1mÄ😀"));
  EXPECT_FALSE(isText("a\0b"s));
  EXPECT_FALSE(isText("\xff"));
  EXPECT_FALSE(isText("\xc3"));
}

TEST(WholeCharacters, LeaveOutWhatTheEndCutsOff) {
  const std::string text = "aé日😀";
  const std::size_t expected[] = {0, 1, 1, 3, 3, 3, 6, 6, 6, 6, 10};
  for (std::size_t size = 0; size <= text.size(); ++size) {
    EXPECT_EQ(wholeCharacters(text.substr(0, size)), expected[size]) << size;
  }
}

TEST(WholeCharacters, KeepBytesThatAreNone) {
  EXPECT_EQ(wholeCharacters("\x80\x80\x80\x80"), 4U);
  EXPECT_EQ(wholeCharacters("a\x80"), 2U);
  EXPECT_EQ(wholeCharacters("\xc3\xc3"), 1U);
}

class TextColumns : public testing::Test {
 protected:
  TextColumns() { std::setlocale(LC_CTYPE, "C.UTF-8"); }
};

TEST_F(TextColumns, AreThoseOfTheTerminal) {
  EXPECT_EQ(columnsOf(""), 0U);
  EXPECT_EQ(columnsOf("abc"), 3U);
  EXPECT_EQ(columnsOf("äöü"), 3U);
  EXPECT_EQ(columnsOf("日本"), 4U);
  EXPECT_EQ(columnsOf("e\u0301"), 1U);  // A combining accent.
}

TEST_F(TextColumns, AreNotExceededByShortenedText) {
  EXPECT_EQ(shortened("abcdef", 6), "abcdef");
  EXPECT_EQ(shortened("abcdef", 5), "abcd…");
  EXPECT_EQ(shortened("abcdef", 1), "…");
  EXPECT_EQ(shortened("abcdef", 0), "");
  EXPECT_EQ(shortened("", 0), "");
  EXPECT_EQ(shortened("日本語", 5), "日本…");
  EXPECT_EQ(shortened("日本語", 4), "日…");  // Half a character does not fit.
}

TEST(SizeText, IsShort) {
  const std::pair<std::uint64_t, const char*> sizes[] = {
      {0, "0 B"},
      {999, "999 B"},
      {1023, "1023 B"},
      {1024, "1.0 KiB"},
      {1536, "1.5 KiB"},
      {10 * 1024, "10 KiB"},
      {12 * 1024 * 1024, "12 MiB"},
      {3ULL << 30U, "3.0 GiB"},
      {UINT64_MAX, "16384 PiB"},
  };
  for (const auto& [bytes, text] : sizes) {
    EXPECT_EQ(sizeText(bytes), text);
  }
}

TEST(ParseSize, TakesPowersOf1024) {
  const std::pair<const char*, std::uint64_t> sizes[] = {
      {"0", 0},
      {"4096", 4096},
      {"7B", 7},
      {"10K", 10 * 1024},
      {"10KiB", 10240},
      {"1.5MiB", 1572864},
      {"2G", 2ULL << 30U},
      {"1T", 1ULL << 40U},
      {"8191P", 8191ULL << 50U},
      {"0.0", 0},
      {"0K", 0},
      {"0.5", 1},
      {"0.001K", 1},
      {"7b", 7},
      {"10k", 10 * 1024},
      {"10kib", 10 * 1024},
      {"3m", 3 << 20},
      {"3MIB", 3 << 20},
      {"2g", 2ULL << 30U},
      {"1t", 1ULL << 40U},
      {"1tib", 1ULL << 40U},
  };
  for (const auto& [text, bytes] : sizes) {
    EXPECT_EQ(parseSize(text), bytes) << text;
  }
}

TEST(ParseSize, RefusesEverythingElse) {
  for (const std::string text :
       {"",     "K",    "-1",    "+1",  " 1",      "1X",    "1KB",      "1kb",
        "1ki",  "0x10", "1KiBs", "nan", "inf",     "8192P", "1e30",     "1 2",
        "1e-5", "1E3",  "1e3K",  "0.4", "0.0001K", "1,5M",  "infinity", "1.2.3"}) {
    try {
      const std::uint64_t size = parseSize(text);
      ADD_FAILURE() << text << " was taken as " << size;
    } catch (const Failure& failure) {
      EXPECT_EQ(failure.status(), ExitStatus::Usage);
      EXPECT_EQ(failure.what(), "\"" + text + "\" is not a size such as 500K or 2MiB");
    }
  }
}

TEST(Counted, IsOneOrMany) {
  EXPECT_EQ(counted(0, "report"), "0 reports");
  EXPECT_EQ(counted(1, "report"), "1 report");
  EXPECT_EQ(counted(2, "report"), "2 reports");
}

}  // namespace
}  // namespace KELP::Tool
