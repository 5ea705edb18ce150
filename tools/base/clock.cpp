#include "base/clock.h"

#include "base/failure.h"
#include "base/text.h"

#include <array>
#include <charconv>
#include <cstdio>
#include <ctime>
#include <optional>
#include <regex>

namespace KELP::Tool {
namespace {

struct Unit {
  const char* name;
  long seconds;
};

constexpr Unit kUnits[] = {{"s", 1},    {"m", 60},    {"min", 60},
                           {"h", 3600}, {"d", 86400}, {"w", 7 * 86400L}};

std::optional<long> spanOf(const std::string& text) {
  long number = 0;
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || text.starts_with('-') || number > 1'000'000'000) {
    return std::nullopt;
  }
  for (const Unit& unit : kUnits) {
    if (std::string(rest, end) == unit.name) {
      return number * unit.seconds;
    }
  }
  return std::nullopt;
}

std::optional<long> timeOf(const std::string& text, bool utc) {
  static const std::regex kForm(
      R"((\d{4})-(\d{2})-(\d{2})(?:[Tt ](\d{2}):(\d{2})(?::(\d{2})(?:\.\d+)?)?([Zz]|([+-])(\d{2}):(\d{2}))?)?)");
  constexpr std::size_t kLongest = 64;  // The expression takes more stack, the longer the text is.
  std::smatch part;
  if (text.size() > kLongest || !std::regex_match(text, part, kForm)) {
    return std::nullopt;
  }
  const auto number = [&](std::size_t index) {
    return part[index].matched ? std::stoi(part[index].str()) : 0;
  };
  std::tm fields{};
  fields.tm_year = number(1) - 1900;
  fields.tm_mon = number(2) - 1;
  fields.tm_mday = number(3);
  fields.tm_hour = number(4);
  fields.tm_min = number(5);
  fields.tm_sec = number(6);
  fields.tm_isdst = -1;
  std::tm checked = fields;
  ::timegm(&checked);
  if (checked.tm_mon != fields.tm_mon || checked.tm_mday != fields.tm_mday ||
      checked.tm_hour != fields.tm_hour || checked.tm_min != fields.tm_min || number(9) > 23 ||
      number(10) > 59) {
    return std::nullopt;
  }
  if (!part[7].matched) {
    return utc ? ::timegm(&fields) : ::mktime(&fields);
  }
  const long offset = number(9) * 3600L + number(10) * 60L;
  return ::timegm(&fields) + (part[8].str() == "-" ? offset : -offset);
}

}  // namespace

std::optional<std::string> calendarText(long seconds, bool utc) {
  constexpr int kFirst = 0 - 1900;
  constexpr int kLast = 9999 - 1900;
  std::tm fields{};
  if ((utc ? ::gmtime_r(&seconds, &fields) : ::localtime_r(&seconds, &fields)) == nullptr ||
      fields.tm_year < kFirst || fields.tm_year > kLast) {
    return std::nullopt;
  }
  std::array<char, 64> text{};
  std::size_t length = std::strftime(text.data(), text.size(), "-%m-%dT%H:%M:%S", &fields);
  std::string year = std::to_string(fields.tm_year + 1900);
  year.insert(0, 4 - year.size(), '0');
  std::string result = year + std::string(text.data(), length);
  if (utc) {
    return result + "Z";
  }
  length = std::strftime(text.data(), text.size(), "%z", &fields);
  const std::string zone(text.data(), length);  // "+0130"
  return result + zone.substr(0, 3) + ":" + zone.substr(3);
}

std::string timeText(long seconds, bool utc) {
  return calendarText(seconds, utc).value_or(std::to_string(seconds));
}

std::string ageText(long seconds) {
  Unit best = {"s", 1};
  for (const Unit& unit : {Unit{"min", 60}, Unit{"h", 3600}, Unit{"d", 86400}}) {
    if (seconds >= 2 * unit.seconds) {
      best = unit;
    }
  }
  return std::to_string(seconds / best.seconds) + " " + best.name;
}

long parseSpan(const std::string& text) {
  if (const auto span = spanOf(text)) {
    return *span;
  }
  throw Failure(ExitStatus::Usage,
                inQuotes(text) + " is not a span of time such as 90s, 12h or 7d");
}

long parseWait(const std::string& text) {
  if (text.ends_with("ms")) {
    if (const auto milliseconds = spanOf(text.substr(0, text.size() - 2) + "s")) {
      return *milliseconds;
    }
  }
  return parseSpan(text) * 1000;
}

long parseTime(const std::string& text, bool utc) {
  if (text == "now") {
    return currentTime();
  }
  if (const auto time = timeOf(text, utc)) {
    return *time;
  }
  if (const auto span = spanOf(text)) {
    return currentTime() - *span;
  }
  throw Failure(ExitStatus::Usage, inQuotes(text) +
                                       " is not a time such as 2026-03-01T12:30:00Z, "
                                       "2026-03-01 or 7d (ago)");
}

long currentTime() {
  return std::time(nullptr);
}

}  // namespace KELP::Tool
