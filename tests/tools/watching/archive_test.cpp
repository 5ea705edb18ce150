#include "verbs/archive.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <string>

namespace KELP::Tool {
namespace {

using testing::StartsWith;

struct NameCase {
  std::string text;
  std::string name;
};

class MemberNameTest : public testing::TestWithParam<NameCase> {};

TEST_P(MemberNameTest, IsSafeAnywhere) {
  EXPECT_EQ(memberNameOf(GetParam().text), GetParam().name);
}

INSTANTIATE_TEST_SUITE_P(
    All, MemberNameTest,
    testing::Values(NameCase{"log.txt", "log.txt"}, NameCase{"", "%"}, NameCase{".", "%2E"},
                    NameCase{"..", "%2E%2E"}, NameCase{"...", "..."}, NameCase{".a", ".a"},
                    NameCase{"a/b", "a%2Fb"}, NameCase{"a\\b", "a%5Cb"}, NameCase{"%2F", "%252F"},
                    NameCase{std::string("a\0b", 3), "a%00b"}, NameCase{"\033[2J", "%1B[2J"},
                    NameCase{"\x7f", "%7F"}, NameCase{"\xc2\x9b", "%C2%9B"},
                    // NOLINTNEXTLINE(misc-misleading-bidirectional): that is what it is about.
                    NameCase{"\xe2\x80\xae", "%E2%80%AE"},
                    NameCase{"gr\xc3\xb6sse", "gr\xc3\xb6sse"}, NameCase{"\xc3", "%C3"},
                    NameCase{"\xed\xa0\x80", "%ED%A0%80"}));

TEST(MemberNameTest, WhatIsTooLongIsCutButStaysDifferent) {
  EXPECT_EQ(memberNameOf(std::string(200, 'a')), std::string(200, 'a'));
  std::set<std::string> names;
  for (const char last : {'a', 'b', '\n'}) {
    const std::string name = memberNameOf(std::string(200, 'a') + last);
    EXPECT_EQ(name.size(), 200U);
    EXPECT_THAT(name, StartsWith(std::string(182, 'a') + "%~"));
    names.insert(name);
  }
  EXPECT_EQ(names.size(), 3U);
}

TEST(MemberNameTest, ACharacterIsNotCutInTheMiddle) {
  // The 183rd byte is the second one of a character.
  std::string text = std::string(181, 'a');
  for (int count = 0; count < 20; ++count) {
    text += "\xc3\xb6";
  }
  EXPECT_THAT(memberNameOf(text), StartsWith(std::string(181, 'a') + "%~"));
}

TEST(ArchiveFormatTest, IsTheNamesEnding) {
  EXPECT_EQ(archiveFormatOf("a.tar.zst"), ArchiveFormat::TarZstd);
  EXPECT_EQ(archiveFormatOf("d/a.b.tar.gz"), ArchiveFormat::TarGzip);
  EXPECT_EQ(archiveFormatOf("a.tgz"), ArchiveFormat::TarGzip);
  EXPECT_EQ(archiveFormatOf("a.zip"), ArchiveFormat::Zip);
  for (const char* const other : {"a", "a.tar", "a.gz", "zip", ".zip", "a.zip/", "a.zip.txt", ""}) {
    EXPECT_EQ(archiveFormatOf(other), std::nullopt) << other;
  }
}

}  // namespace
}  // namespace KELP::Tool
