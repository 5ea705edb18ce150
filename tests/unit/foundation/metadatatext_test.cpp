#include "support/logcapture.h"

#include <diagnostic/metadataproperty.h>

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

namespace KELP::Diagnostic {
namespace {

using Test::LogCapture;
using Test::LogLine;

constexpr const char* kLower = "0123abcd-ef45-4678-9abc-def001234567";
constexpr const char* kUpper = "0123ABCD-EF45-4678-9ABC-DEF001234567";

const std::string kEveryByte = [] {
  std::string bytes;
  for (int byte = 0; byte < 256; ++byte)
    bytes.push_back(static_cast<char>(byte));
  return bytes;
}();

TEST(MetadataBoolTest, FlagsAreWrittenAsOneDigit) {
  EXPECT_EQ(MetadataProperty<bool>::serialize(true), "1");
  EXPECT_EQ(MetadataProperty<bool>::serialize(false), "0");
}

TEST(MetadataBoolTest, FlagsAreReadFromExactlyThatDigit) {
  const MetadataProperty<bool> plain("flag", std::nullopt);
  const MetadataProperty<bool> onByDefault("flag", true);
  const MetadataProperty<bool> offByDefault("flag", false);
  for (const auto* property : {&plain, &onByDefault, &offByDefault}) {
    EXPECT_EQ(property->unserialize("1"), true);
    EXPECT_EQ(property->unserialize("0"), false);
  }
}

TEST(MetadataBoolTest, EveryOtherTextReadsAsTheDefault) {
  const LogCapture log;
  const MetadataProperty<bool> plain("flag", std::nullopt);
  const MetadataProperty<bool> onByDefault("flag", true);
  const MetadataProperty<bool> offByDefault("flag", false);
  for (const std::string& text : std::vector<std::string>{"",
                                                          "true",
                                                          "false",
                                                          "True",
                                                          "yes",
                                                          "on",
                                                          "2",
                                                          "-1",
                                                          "01",
                                                          "10",
                                                          "00",
                                                          "11",
                                                          "1 ",
                                                          " 1",
                                                          "0 ",
                                                          " 0",
                                                          "1\n",
                                                          "+1",
                                                          "-0",
                                                          std::string("1\0", 2),
                                                          std::string("0\0", 2),
                                                          std::string("\0", 1),
                                                          std::string("\0001", 2),
                                                          "\x01"}) {
    EXPECT_EQ(plain.unserialize(text), std::nullopt) << text;
    EXPECT_EQ(onByDefault.unserialize(text), true) << text;
    EXPECT_EQ(offByDefault.unserialize(text), false) << text;
  }
  EXPECT_EQ(log.lines(), std::vector<LogLine>());
}

TEST(MetadataStringTest, TextsAreStoredAsTheyAre) {
  for (const std::string& text :
       std::vector<std::string>{"", " ", "plain", "\"quoted\" \\ %s", "[]", "caf\xc3\xa9",
                                std::string("a\0b", 3), kEveryByte, std::string(100000, 'x')}) {
    EXPECT_EQ(MetadataProperty<std::string>::serialize(text), text);
    EXPECT_EQ(MetadataProperty<std::string>("text", std::nullopt).unserialize(text), text);
    EXPECT_EQ(MetadataProperty<std::string>("text", "default").unserialize(text), text);
  }
}

TEST(MetadataUuidTest, IdentifiersAreWrittenInLowerCase) {
  ReportUuid id;
  ASSERT_TRUE(id.parse(kUpper));
  EXPECT_EQ(MetadataProperty<ReportUuid>::serialize(id), kLower);
  EXPECT_EQ(MetadataProperty<ReportUuid>::serialize(ReportUuid()),
            "00000000-0000-0000-0000-000000000000");
}

TEST(MetadataUuidTest, IdentifiersAreReadInEitherCase) {
  const MetadataProperty<ReportUuid> property("id", std::nullopt);
  ReportUuid id;
  ASSERT_TRUE(id.parse(kLower));
  EXPECT_EQ(property.unserialize(kLower), id);
  EXPECT_EQ(property.unserialize(kUpper), id);
  EXPECT_EQ(property.unserialize("00000000-0000-0000-0000-000000000000"), ReportUuid());
}

TEST(MetadataUuidTest, OtherTextsReadAsTheDefault) {
  const LogCapture log;
  ReportUuid defaultId;
  defaultId.randomize();
  const MetadataProperty<ReportUuid> plain("id", std::nullopt);
  const MetadataProperty<ReportUuid> withDefault("id", defaultId);
  const std::string lower = kLower;
  for (const std::string& text :
       {std::string(), std::string("bogus"), "{" + lower + "}", lower.substr(0, 35), lower + "0",
        " " + lower, lower + std::string("\0more", 5)}) {
    EXPECT_EQ(plain.unserialize(text), std::nullopt) << text;
    EXPECT_EQ(withDefault.unserialize(text), defaultId) << text;
  }
  EXPECT_EQ(log.lines(), std::vector<LogLine>());
}

}  // namespace
}  // namespace KELP::Diagnostic
