// Points in time and spans of it, read and written.

#include "base/clock.h"

#include "base/failure.h"
#include "base/json.h"

#include <gmock/gmock.h>
#include <stdlib.h>
#include <time.h>

#include <limits>
#include <optional>
#include <string>
#include <vector>

namespace KELP::Tool {
namespace {

constexpr long kNoon = 1'772'366'400;  // 2026-03-01T12:00:00Z

class ClockTest : public testing::Test {
 protected:
  ClockTest() { setZone("UTC"); }
  ~ClockTest() override { setZone("UTC"); }

  static void setZone(const char* zone) {
    ::setenv("TZ", zone, 1);
    ::tzset();
  }
};

TEST_F(ClockTest, WritesTheFormOfRfc3339) {
  EXPECT_EQ(timeText(0, true), "1970-01-01T00:00:00Z");
  EXPECT_EQ(timeText(kNoon, true), "2026-03-01T12:00:00Z");
  EXPECT_EQ(timeText(-1, true), "1969-12-31T23:59:59Z");
  EXPECT_EQ(timeText(kNoon, false), "2026-03-01T12:00:00+00:00");
}

TEST_F(ClockTest, WritesTheLocalZone) {
  setZone("XXX-05:30");
  EXPECT_EQ(timeText(kNoon, false), "2026-03-01T17:30:00+05:30");
  EXPECT_EQ(timeText(kNoon, true), "2026-03-01T12:00:00Z");
  setZone("XXX+03:30");
  EXPECT_EQ(timeText(kNoon, false), "2026-03-01T08:30:00-03:30");
}

constexpr long kFirst = -62'167'219'200;  // 0000-01-01T00:00:00Z
constexpr long kLast = 253'402'300'799;   // 9999-12-31T23:59:59Z

TEST_F(ClockTest, WritesEveryYearOfTheForm) {
  EXPECT_EQ(timeText(kFirst, true), "0000-01-01T00:00:00Z");
  EXPECT_EQ(timeText(-46'388'678'400, true), "0500-01-01T00:00:00Z");
  EXPECT_EQ(timeText(kLast, true), "9999-12-31T23:59:59Z");
  EXPECT_EQ(calendarText(kFirst, true), "0000-01-01T00:00:00Z");
  EXPECT_EQ(calendarText(kLast, false), "9999-12-31T23:59:59+00:00");
}

TEST_F(ClockTest, WritesATimeThatTheFormHasNotAsANumber) {
  for (const long time : {kFirst - 1, kLast + 1, std::numeric_limits<long>::min(),
                          std::numeric_limits<long>::max()}) {
    for (const bool utc : {false, true}) {
      EXPECT_EQ(timeText(time, utc), std::to_string(time));
      EXPECT_EQ(calendarText(time, utc), std::nullopt);
      EXPECT_EQ(jsonTime(time, utc), Json::Value());
    }
  }
}

TEST_F(ClockTest, JudgesTheYearByTheZoneThatItWrites) {
  setZone("XXX-01:00");
  EXPECT_EQ(calendarText(kLast, false), std::nullopt);
  EXPECT_EQ(calendarText(kFirst - 1, false), "0000-01-01T00:59:59+01:00");
}

TEST_F(ClockTest, IsATextOrNullInADocument) {
  EXPECT_EQ(jsonTime(kNoon, true), Json::Value("2026-03-01T12:00:00Z"));
  EXPECT_EQ(jsonTime(std::nullopt, true), Json::Value());
}

TEST_F(ClockTest, WritesSpansInTheUnitThatSaysMost) {
  const std::pair<long, const char*> spans[] = {
      {0, "0 s"},    {42, "42 s"},      {119, "119 s"},   {120, "2 min"},   {7199, "119 min"},
      {7200, "2 h"}, {172'799, "47 h"}, {172'800, "2 d"}, {864'000, "10 d"}};
  for (const auto& [seconds, text] : spans) {
    EXPECT_EQ(ageText(seconds), text);
  }
}

TEST_F(ClockTest, ReadsSpans) {
  const std::pair<const char*, long> spans[] = {
      {"0s", 0},           {"90s", 90},        {"10m", 600},       {"10min", 600},
      {"12h", 12 * 3600L}, {"7d", 7 * 86400L}, {"2w", 14 * 86400L}};
  for (const auto& [text, seconds] : spans) {
    EXPECT_EQ(parseSpan(text), seconds) << text;
  }
}

TEST_F(ClockTest, RefusesWhatIsNoSpan) {
  for (const std::string text : {"", "5", "s", "-5s", "-0s", "+5s", " 5s", "5 s", "5S", "5y", "5ss",
                                 "1.5h", "9999999999s"}) {
    try {
      const long seconds = parseSpan(text);
      ADD_FAILURE() << text << " was taken as " << seconds;
    } catch (const Failure& failure) {
      EXPECT_EQ(failure.status(), ExitStatus::Usage);
      EXPECT_EQ(failure.what(), "\"" + text + "\" is not a span of time such as 90s, 12h or 7d");
    }
  }
}

TEST_F(ClockTest, ReadsHowLongToWait) {
  const std::pair<const char*, long> spans[] = {{"0s", 0},    {"0ms", 0},      {"250ms", 250},
                                                {"5s", 5000}, {"5m", 300'000}, {"1h", 3'600'000}};
  for (const auto& [text, milliseconds] : spans) {
    EXPECT_EQ(parseWait(text), milliseconds) << text;
  }
  for (const std::string text :
       {"", "ms", "-1ms", "-0ms", "5 ms", "5sms", "5MS", "1.5ms", "5mms"}) {
    EXPECT_THROW(static_cast<void>(parseWait(text)), Failure) << text;
  }
}

TEST_F(ClockTest, ReadsTimesWithAZone) {
  for (const char* const text :
       {"2026-03-01T12:00:00Z", "2026-03-01t12:00:00z", "2026-03-01 12:00:00Z", "2026-03-01T12:00Z",
        "2026-03-01T12:00:00.999Z", "2026-03-01T17:30:00+05:30", "2026-03-01T08:30:00-03:30",
        "2026-03-02T11:59:00+23:59"}) {
    setZone("XXX-01:00");  // Does not matter.
    EXPECT_EQ(parseTime(text, false), kNoon) << text;
    EXPECT_EQ(parseTime(text, true), kNoon) << text;
  }
}

TEST_F(ClockTest, ReadsTimesWithoutAZoneAsLocal) {
  setZone("XXX-01:00");
  EXPECT_EQ(parseTime("2026-03-01T13:00:00", false), kNoon);
  EXPECT_EQ(parseTime("2026-03-01T12:00:00", true), kNoon);
  EXPECT_EQ(parseTime("2026-03-01", false), kNoon - 13 * 3600L);
  EXPECT_EQ(parseTime("2026-03-01", true), kNoon - 12 * 3600L);
}

TEST_F(ClockTest, ReadsWhatItWrites) {
  setZone("XXX+09:45");
  for (const long time : {0L, kNoon, 951'782'400L, 4'102'444'799L}) {
    EXPECT_EQ(parseTime(timeText(time, false), true), time);
    EXPECT_EQ(parseTime(timeText(time, true), false), time);
  }
}

TEST_F(ClockTest, ReadsTimesFromNow) {
  const long before = currentTime();
  const long now = parseTime("now", true);
  const long dayAgo = parseTime("1d", true);
  const long after = currentTime();
  EXPECT_LE(before, now);
  EXPECT_LE(now, after);
  EXPECT_LE(before - 86400, dayAgo);
  EXPECT_LE(dayAgo, after - 86400);
}

TEST_F(ClockTest, RefusesWhatIsNoTime) {
  const std::string digits(120'000, '1');
  for (const std::string& text : std::vector<std::string>{digits,
                                                          "2026-03-01T12:00:00." + digits + "Z",
                                                          digits + "d",
                                                          "",
                                                          "yesterday",
                                                          "2026",
                                                          "2026-3-1",
                                                          "2026-02-29",
                                                          "2026-13-01",
                                                          "2026-00-10",
                                                          "2026-01-00",
                                                          "2026-03-01T24:00:00Z",
                                                          "2026-03-01T12:60:00Z",
                                                          "2026-03-01T12:00:61Z",
                                                          "2026-03-01T12",
                                                          "2026-03-01Z",
                                                          "2026-03-01T12:00:00+1:00",
                                                          "2026-03-01T12:00:00+24:00",
                                                          "2026-03-01T12:00:00+01:60",
                                                          "2026-03-01T12:00:00Zx",
                                                          "1700000000"}) {
    try {
      const long time = parseTime(text, true);
      ADD_FAILURE() << text << " was taken as " << time;
    } catch (const Failure& failure) {
      EXPECT_EQ(failure.status(), ExitStatus::Usage);
      EXPECT_EQ(failure.what(), "\"" + text +
                                    "\" is not a time such as 2026-03-01T12:30:00Z, "
                                    "2026-03-01 or 7d (ago)");
    }
  }
}

}  // namespace
}  // namespace KELP::Tool
