// `stats`.

#include "tools/reading/readingfixture.h"

#include <diagnostic/diagnosticreport.h>

#include <algorithm>
#include <ctime>
#include <map>
#include <string>
#include <vector>

namespace KELP::Test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;
using testing::Pair;

constexpr long kHour = 3600;
constexpr long kDay = 24 * kHour;

class StatsTest : public ReadingTest {
 protected:
  /** A report of that age; its identifier is made of @p number. */
  std::string makeOld(long seconds) {
    std::string id = "00000000-0000-4000-8000-000000000000";
    const std::string number = std::to_string(++made_);
    id.replace(id.size() - number.size(), number.size(), number);
    make(id, std::time(nullptr) - seconds);
    return id;
  }

  /** What `stats --json` counts in one of its groups. */
  [[nodiscard]] static std::map<std::string, int> counts(const Json::Value& stats,
                                                         const char* group, const char* name) {
    std::map<std::string, int> result;
    for (const Json::Value& kind : stats[group]) {
      result[kind[name].isNull() ? "null" : kind[name].asString()] = kind["reports"].asInt();
    }
    return result;
  }

  [[nodiscard]] Json::Value stats() const {
    const ToolResult result = run({"stats", "--json"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.errors, "");
    const Json::Value document = result.json();
    EXPECT_EQ(document["schema"], 1);
    return document["stats"];
  }

  int made_ = 0;
};

TEST_F(StatsTest, PrintsADocumentWhenThereIsNothing) {
  const Json::Value value = stats();
  EXPECT_THAT(value.getMemberNames(),
              ElementsAre("ages", "apps", "largest", "reports", "size", "stages"));
  EXPECT_EQ(value["reports"], 0);
  EXPECT_EQ(value["size"], 0);
  EXPECT_TRUE(value["largest"].isNull());
  EXPECT_TRUE(value["apps"].isArray());
  EXPECT_EQ(value["apps"].size(), 0U);
  EXPECT_EQ(value["stages"].size(), 10U);
  EXPECT_EQ(value["ages"].size(), 6U);
}

TEST_F(StatsTest, PrintsALittleWhenThereIsNothing) {
  const ToolResult result = run({"stats"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.output, "Reports: 0\nSize:    0 B\n");
}

TEST_F(StatsTest, CountsByStage) {
  make(kFirst);
  make(kSecond);
  makeDamaged(kThird);
  makeHalf(kFourth);
  repository_.writeKey(makeOld(0), "report_id", kFirst);
  open(kSecond)->markCreationComplete();
  EXPECT_THAT(counts(stats(), "stages", "stage"),
              ElementsAre(Pair("awaiting-consent", 0), Pair("awaiting-policy", 0),
                          Pair("awaiting-upload", 0), Pair("collecting", 1), Pair("creating", 1),
                          Pair("damaged", 1), Pair("half-made", 1), Pair("mismatched", 1),
                          Pair("unreadable", 0), Pair("uploaded", 0)));
}

TEST_F(StatsTest, CountsByApplicationTheMostFirst) {
  const char* const apps[] = {"5", "-1", "9", "9", "5", "9"};
  for (const char* const app : apps) {
    repository_.writeKey(makeOld(0), "app_id", app);
  }
  makeHalf(kFirst);
  std::vector<std::string> found;
  const Json::Value value = stats();
  for (const Json::Value& app : value["apps"]) {
    found.push_back((app["app"].isNull() ? "null" : app["app"].asString()) + ":" +
                    app["reports"].asString());
  }
  EXPECT_THAT(found, ElementsAre("9:3", "5:2", "null:1", "-1:1"));
}

TEST_F(StatsTest, CountsByAge) {
  // A minute before and behind each limit, since time goes on meanwhile.
  constexpr long kMinute = 60;
  for (const long limit : {kHour, kDay, 7 * kDay, 30 * kDay}) {
    makeOld(limit - kMinute);
    makeOld(limit + kMinute);
  }
  makeOld(-kHour);  // In the future.
  makeHalf(kFirst);
  for (const char* const time : {"9223372036854775807", "-9223372036854775808"}) {
    repository_.writeKey(makeOld(0), "created", time);
  }
  EXPECT_THAT(counts(stats(), "ages", "age"),
              ElementsAre(Pair("day", 2), Pair("hour", 3), Pair("month", 2), Pair("older", 2),
                          Pair("unknown", 1), Pair("week", 2)));
}

TEST_F(StatsTest, AddsSizesUp) {
  make(kFirst);
  make(kSecond);
  makeDamaged(kThird);
  addFile(*open(kSecond), "log", std::string(100'000, 'x'), {10});
  const Json::Value value = stats();
  const std::uint64_t total = sizeOf(kFirst) + sizeOf(kSecond) + sizeOf(kThird);
  EXPECT_EQ(value["reports"], 3);
  EXPECT_EQ(value["size"].asUInt64(), total);
  EXPECT_EQ(value["largest"]["id"], kSecond);
  EXPECT_EQ(value["largest"]["size"].asUInt64(), sizeOf(kSecond));
  for (const Json::Value& kind : value["stages"]) {
    if (kind["stage"] == "creating") {
      EXPECT_EQ(kind["size"].asUInt64(), sizeOf(kFirst) + sizeOf(kSecond));
    }
  }
  const ToolResult result = run({"stats"});
  EXPECT_THAT(result.lines()[1], MatchesRegex("Size:    [0-9]+ KiB"));
  EXPECT_THAT(result.lines()[2], HasSubstr("Largest: " + std::string(kSecond) + ", "));
}

TEST_F(StatsTest, PrintsTablesWithoutBarsIntoAPipe) {
  makeOld(0);
  makeOld(0);
  makeHalf(kFirst);
  const ToolResult result = run({"stats"});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.output, Not(HasSubstr("█")));
  EXPECT_THAT(result.output, Not(HasSubstr("\x1b")));
  std::vector<std::string> columns;  // Without the sizes.
  for (const std::string& line : result.lines()) {
    columns.push_back(line.substr(0, 25));
  }
  columns.erase(columns.begin(), columns.begin() + 3);
  EXPECT_THAT(columns, ElementsAre("", "STAGE             REPORTS", "creating                2",
                                   "collecting              0", "awaiting-consent        0",
                                   "awaiting-policy         0", "awaiting-upload         0",
                                   "uploaded                0", "half-made               1",
                                   "damaged                 0", "mismatched              0",
                                   "unreadable              0",  //
                                   "", "APP               REPORTS", "7                       2",
                                   "unknown                 1",  //
                                   "", "AGE               REPORTS", "under 1 hour            2",
                                   "under 1 day             0", "under 1 week            0",
                                   "under 1 month           0", "older                   0",
                                   "unknown                 1"));
}

/** The number of blocks in a line. */
std::size_t barOf(const std::string& line) {
  const std::string block = "█";
  std::size_t length = 0;
  for (std::size_t at = line.find(block); at != std::string::npos;
       at = line.find(block, at + block.size())) {
    ++length;
  }
  return length;
}

class StatsOnTerminal : public StatsTest, public testing::WithParamInterface<unsigned short> {};

TEST_P(StatsOnTerminal, HasBarsThatFillTheWidth) {
  for (int report = 0; report < 5; ++report) {
    makeOld(0);
  }
  for (int report = 0; report < 2; ++report) {
    makeOld(2 * kHour);
  }
  makeHalf(kFirst);
  const auto lines = terminalLines(runOnTerminal({"stats"}, GetParam()).output);
  std::map<std::string, std::size_t> bars;
  for (const std::string& line : lines) {
    // Each block is one column of three bytes.
    EXPECT_LE(line.size() - 2 * barOf(line), GetParam()) << line;
    bars[line.substr(0, line.find("  "))] = barOf(line);
  }
  // "awaiting-consent", "REPORTS", the sizes, and three gaps.
  const std::size_t most = bars["under 1 hour"];
  EXPECT_GT(most + 16 + 7 + 8 + 6 + 1, GetParam());
  EXPECT_EQ(bars["under 1 day"], most * 2 / 5);
  EXPECT_EQ(bars["creating"], most);
  EXPECT_EQ(bars["half-made"], most / 7);
  EXPECT_EQ(bars["uploaded"], 0U);
}

INSTANTIATE_TEST_SUITE_P(Widths, StatsOnTerminal, testing::Values(60, 80, 200));

TEST_F(StatsTest, GivesEveryReportABlock) {
  for (int report = 0; report < 60; ++report) {
    makeOld(0);
  }
  makeHalf(kFirst);
  for (const std::string& line : terminalLines(runOnTerminal({"stats"}, 50).output)) {
    if (line.starts_with("half-made ")) {
      EXPECT_EQ(barOf(line), 1U);
      return;
    }
  }
  FAIL() << "no half-made reports";
}

TEST_F(StatsTest, HasNoBarsWhereThereIsNoRoom) {
  makeOld(0);
  const std::string output = runOnTerminal({"stats"}, 30).output;
  EXPECT_THAT(output, HasSubstr("creating"));
  EXPECT_THAT(output, Not(HasSubstr("█")));
}

TEST_F(StatsTest, DrawsInAsciiWhereThatIsAllThereIs) {
  makeOld(0);
  const ToolResult result =
      runOnTerminal({"stats"}, 80, withEnvironment({{"LC_ALL", "C"}, {"NO_COLOR", "1"}}));
  EXPECT_THAT(result.output, HasSubstr("##########\r\n"));
  EXPECT_THAT(result.output, Not(HasSubstr("█")));
}

}  // namespace
}  // namespace KELP::Test
