// What both kinds of stored JSON lists have in common: texts that are no array at all, and what is
// said about them.

#include "support/logcapture.h"
#include "unit/foundation/contents.h"
#include "unit/foundation/jsonreader.h"

#include <diagnostic/metadataproperty.h>

#include <gtest/gtest.h>

#include <exception>
#include <optional>
#include <string>
#include <vector>

namespace KELP::Diagnostic {
namespace {

using Test::LogCapture;
using Test::LogLine;
using Test::parseFailureLine;
using Test::readAsJson;
using Strings = std::vector<std::string>;
using Contents = std::vector<DiagnosticReportContentProperties>;

template <typename List>
struct Sample;
template <>
struct Sample<Strings> {
  static Strings list() { return {"default"}; }
};
template <>
struct Sample<Contents> {
  static Contents list() { return {Test::property("default", Test::Types::FILE)}; }
};

template <typename List>
class MetadataJsonTest : public testing::Test {
 protected:
  void expectUnreadable(const std::string& text, const std::string& words) {
    const LogLine line = parseFailureLine(text, words);
    EXPECT_EQ(plain_.unserialize(text), std::nullopt) << text;
    EXPECT_EQ(log_.take(), std::vector{line});
    EXPECT_EQ(withDefault_.unserialize(text), Sample<List>::list()) << text;
    EXPECT_EQ(log_.take(), std::vector{line});
  }

  void expectReadAs(const std::string& text, const List& list) {
    EXPECT_EQ(plain_.unserialize(text), list) << text;
    EXPECT_EQ(withDefault_.unserialize(text), list) << text;
    EXPECT_EQ(log_.take(), std::vector<LogLine>()) << text;
  }

  LogCapture log_;
  const MetadataProperty<List> plain_{"key", std::nullopt};
  const MetadataProperty<List> withDefault_{"key", Sample<List>::list()};
};

using Lists = testing::Types<Strings, Contents>;
TYPED_TEST_SUITE(MetadataJsonTest, Lists);

TYPED_TEST(MetadataJsonTest, ATextThatIsNoJsonIsLoggedWithTheWordsOfTheReader) {
  const Strings texts{"",
                      " ",
                      "not json",
                      "[",
                      "]",
                      "[\"a\"",
                      "[\"a\" \"b\"]",
                      "[\"a]",
                      "['a']",
                      "[nul]",
                      "[1,,2]",
                      "{\"a\":}",
                      "[\"\\x\"]",
                      "[\"\\ud800\"]",
                      "\xff\xfe",
                      "%s %n",
                      std::string("not\0json", 8),
                      std::string("\0[]", 3),
                      std::string("[\"a\"\0,\"b\"]", 10),
                      std::string(10000, '{')};
  for (const std::string& text : texts) {
    const auto reading = readAsJson(text);
    EXPECT_EQ(reading.root, std::nullopt) << text;
    EXPECT_NE(reading.words, "") << text;
    this->expectUnreadable(text, reading.words);
  }
}

TYPED_TEST(MetadataJsonTest, ARootThatIsNoArrayIsLoggedWithoutWords) {
  for (const char* text : {"{}", "null", "true", "3", "-3.5", "\"text\"", "100% %s %n",
                           " { \"a\" : [] } ", R"({"stable_id":"a","property_type":"FILE"})"}) {
    this->expectUnreadable(text, "");
  }
}

TYPED_TEST(MetadataJsonTest, AnEmptyArrayIsAnEmptyListAndNotTheDefault) {
  for (const std::string& text :
       Strings{"[]", " [ ] ", "\n[\n]\n", "/* why */ []", "[] // why", "\xef\xbb\xbf[]"}) {
    this->expectReadAs(text, {});
  }
}

TYPED_TEST(MetadataJsonTest, WhatFollowsTheArrayIsIgnored) {
  for (const std::string& text : Strings{"[] x", "[]]", "[][", "[] {\"", std::string("[]\0[", 4)}) {
    this->expectReadAs(text, {});
  }
}

TYPED_TEST(MetadataJsonTest, AnEmptyListIsWrittenAsTwoBrackets) {
  EXPECT_EQ(MetadataProperty<TypeParam>::serialize({}), "[]");
}

TYPED_TEST(MetadataJsonTest, ElementsOfOtherTypesAreSkippedWithoutALine) {
  this->expectReadAs("[null,true,false,1,-1,1.5,[],[[]],[\"a\"],{},{\"a\":\"b\"}]", {});
}

std::string nested(std::size_t depth) {
  return std::string(depth, '[') + std::string(depth, ']');
}

/** Whether the JSON library itself reads so deep a text. */
bool readable(std::size_t depth) {
  try {
    return readAsJson(nested(depth)).root.has_value();
  } catch (const std::exception&) {
    return false;
  }
}

TYPED_TEST(MetadataJsonTest, NestingIsReadAsDeepAsTheReaderGoes) {
  std::size_t deepest = 1;
  while (deepest < 5000 && readable(deepest + 1))
    ++deepest;
  ASSERT_GT(deepest, 500U);
  ASSERT_LT(deepest, 5000U);
  this->expectReadAs(nested(deepest), {});
}

TYPED_TEST(MetadataJsonTest, NestingBeyondTheLimitOfTheReaderIsLoggedAndReadAsTheDefault) {
  for (const std::size_t depth : {1100U, 5000U, 200000U}) {
    ASSERT_FALSE(readable(depth));
    for (const std::string& text :
         {nested(depth), nested(depth).substr(0, depth), "[" + nested(depth) + ", \"a\"]"}) {
      std::optional<TypeParam> list;
      ASSERT_NO_THROW(list = this->withDefault_.unserialize(text)) << depth;
      EXPECT_EQ(list, Sample<TypeParam>::list());
      const auto lines = this->log_.take();
      ASSERT_EQ(lines.size(), 1U);
      const std::string beginning = "Failed to parse json data: " + text + ", error: ";
      EXPECT_EQ(lines[0].text.substr(0, beginning.size()), beginning);
      EXPECT_EQ(lines[0].priority, Test::kError);
      EXPECT_EQ(lines[0].tag, "diagnosticdata");

      ASSERT_NO_THROW(list = this->plain_.unserialize(text)) << depth;
      EXPECT_EQ(list, std::nullopt);
      EXPECT_EQ(this->log_.take(), lines);
    }
  }
}

}  // namespace
}  // namespace KELP::Diagnostic
