// The stored texts are the same in every locale, and mean the same.

#include "support/childprocess.h"
#include "support/logcapture.h"
#include "support/pointlocale.h"
#include "support/temporarydirectory.h"
#include "unit/foundation/contents.h"
#include "unit/foundation/namedcase.h"
#include "unit/foundation/seed.h"

#include <diagnostic/metadataproperty.h>

#include <gtest/gtest.h>

#include <clocale>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <limits>
#include <optional>
#include <random>
#include <string>
#include <vector>

namespace KELP::Diagnostic {
namespace {

using Test::ChildProcess;
using Test::doubleVariation;
using Test::LogCapture;
using Test::LogLine;
using Test::PointLocale;
using Test::property;
using Test::randomNumber;
using Test::seedNote;
using Test::TemporaryDirectory;
using Test::testSeed;
using Test::Types;
using Contents = std::vector<DiagnosticReportContentProperties>;

const MetadataProperty<Contents> kContents("key", std::nullopt);

/** A list with @p value as the only value of a property of doubles, and of one of integers. */
std::string textWith(const std::string& value) {
  return R"([{"stable_id":"d","property_type":"DOUBLE","variations":[{"double":)" + value +
         R"(,"sensitivity_level":1}]},{"stable_id":"i","property_type":"INTEGER","variations":)" +
         R"([{"integer":)" + value + R"(,"sensitivity_level":1}]}])";
}

/** What is read, and what is said about it. */
struct Reading {
  std::optional<Contents> contents;
  std::vector<LogLine> lines;

  bool operator==(const Reading&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Reading& reading) {
  return out << testing::PrintToString(reading.contents) << ", "
             << testing::PrintToString(reading.lines);
}

Reading read(const std::string& text) {
  const LogCapture log;
  std::optional<Contents> contents = kContents.unserialize(text);
  return {std::move(contents), log.lines()};
}

/** How numbers look: three that many countries have, and one that none has. */
struct Form : Test::NamedCase {
  char point;
  char separator;
};

class LocaleOfReading : public testing::TestWithParam<Form> {
 protected:
  static void expectReadAsEver(const std::string& text) {
    const Reading expected = read(text);
    const PointLocale locale(GetParam().point, GetParam().separator);
    EXPECT_EQ(read(text), expected) << text;
  }
};

INSTANTIATE_TEST_SUITE_P(All, LocaleOfReading,
                         testing::Values(Form{{"Comma"}, ',', '\0'},
                                         Form{{"CommaAndPoints"}, ',', '.'},
                                         Form{{"CommaAndBlanks"}, ',', ' '},
                                         Form{{"SemicolonAndPoints"}, ';', '.'}),
                         Test::CaseName());

TEST_P(LocaleOfReading, LeavesNumbersAsTheyAre) {
  for (const char* value : {"0.5",
                            "12.75",
                            "-0.0",
                            "-12.75",
                            "7.5",
                            "7.0",
                            "1e3",
                            "1E+3",
                            "1.5e-3",
                            "-.5",
                            "5.",
                            "1e-400",
                            "1234.5",
                            "1234567.25",
                            "2.5 ",
                            "0.1\n",
                            "12",
                            "-2",
                            "4.9e-324",
                            "1.7976931348623157e308",
                            "18446744073709551616",
                            "123456789012345678901234567890"}) {
    expectReadAsEver(textWith(value));
  }
  EXPECT_EQ(read(textWith("12.75")).contents->at(0).variations.at(0).double_, 12.75);
}

TEST_P(LocaleOfReading, LeavesWhatOnlyLooksLikeANumberAsItIs) {
  for (const char* value : {"\"1.5\"",
                            "\"\\\"1.5\"",
                            "\"\\\\\"",
                            "[1.5]",
                            "{\"1.5\":2.5}",
                            "null",
                            "/* 1.5\" */ 2.5",
                            "// 1.5 \"\n2.5",
                            "/*",
                            "//",
                            "/",
                            "-",
                            "--1.5",
                            "1.5.5",
                            "1,5",
                            ".5",
                            "+1.5",
                            "0x1.5",
                            "\"1.5",
                            "1.5\"",
                            "'1.5'"}) {
    expectReadAsEver(textWith(value));
  }
  expectReadAsEver("\xef\xbb\xbf" + textWith("12.75"));
  expectReadAsEver("\xef\xbb\xbf\xef\xbb\xbf" + textWith("12.75"));
  expectReadAsEver("1.5");
  expectReadAsEver("[9.]+.,8.,");
  expectReadAsEver("[1.5");
  expectReadAsEver(std::string("[1.5]\0[2.5", 10));
}

TEST_P(LocaleOfReading, AcceptsNothingThatIsNoNumber) {
  for (const char* value :
       {"1.5e", "1.5e+", "1e", "1.5e999", "-1.5e999", "1e+9999", "-.", "-.e5"}) {
    const std::string text = textWith(value);
    EXPECT_EQ(read(text).contents, std::nullopt) << value;
    const PointLocale locale(GetParam().point, GetParam().separator);
    const Reading reading = read(text);
    EXPECT_EQ(reading.contents, std::nullopt) << value;
    ASSERT_EQ(reading.lines.size(), 1U);
    EXPECT_EQ(reading.lines[0].text.rfind("Failed to parse json data: " + text + ", error: ", 0),
              0U);
  }
}

TEST_P(LocaleOfReading, LeavesDoublesToTheLastBit) {
  SCOPED_TRACE(seedNote());
  std::mt19937 random(testSeed());
  const PointLocale locale(GetParam().point, GetParam().separator);
  for (int i = 0; i < 500; ++i) {
    const double number = std::ldexp(std::uniform_real_distribution<>(-1, 1)(random),
                                     randomNumber(random, -1000, 1000));
    const Contents contents{property("d", Types::DOUBLE, {doubleVariation(number, 1)})};
    ASSERT_EQ(kContents.unserialize(MetadataProperty<Contents>::serialize(contents)), contents);
  }
}

/** Gives the process a C locale of the C library's own sources. */
class LocaleOfWriting : public testing::Test {
 protected:
  void SetUp() override {
    if (!std::filesystem::exists("/usr/share/i18n/locales/ps_AF")) {
      GTEST_SKIP() << "the sources of locales are not installed";
    }
    // It fails for warnings, too.
    ChildProcess({"/usr/bin/localedef", "-c", "-i", "ps_AF", "-f", "UTF-8",
                  (directory_.path() / "ps_AF.UTF-8").string()})
        .wait();
    ::setenv("LOCPATH", directory_.path().c_str(), 1);
    ASSERT_NE(std::setlocale(LC_ALL, "ps_AF.UTF-8"), nullptr);
    ASSERT_STREQ(std::localeconv()->decimal_point, "\xd9\xab");
  }
  void TearDown() override {
    std::setlocale(LC_ALL, "C");
    ::unsetenv("LOCPATH");
  }

 private:
  TemporaryDirectory directory_;
};

// The JSON library mends a comma by itself.
TEST_F(LocaleOfWriting, LeavesThePointOfADouble) {
  const Contents contents{property("d", Types::DOUBLE, {doubleVariation(12.75, 1)})};
  const std::string text = MetadataProperty<Contents>::serialize(contents);
  EXPECT_NE(text.find("\"double\":12.75,"), std::string::npos) << text;
  EXPECT_EQ(kContents.unserialize(text), contents);
  EXPECT_STREQ(std::localeconv()->decimal_point, "\xd9\xab") << "the thread's own locale is back";
}

}  // namespace
}  // namespace KELP::Diagnostic
