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
  if (error != std::errc() || number < 0 || number > 1'000'000'000) {
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
  std::smatch part;
  if (!std::regex_match(text, part, kForm)) {
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

std::string timeText(long seconds, bool utc) {
  std::tm fields{};
  if ((utc ? ::gmtime_r(&seconds, &fields) : ::localtime_r(&seconds, &fields)) == nullptr) {
    return std::to_string(seconds);  // A year beyond all calendars.
  }
  std::array<char, 64> text{};
  std::size_t length = std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S", &fields);
  std::string result(text.data(), length);
  if (utc) {
    return result + "Z";
  }
  length = std::strftime(text.data(), text.size(), "%z", &fields);
  const std::string zone(text.data(), length);  // "+0130"
  return result + zone.substr(0, 3) + ":" + zone.substr(3);
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
                "\"" + escaped(text) + "\" is not a span of time such as 90s, 12h or 7d");
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
  throw Failure(ExitStatus::Usage, "\"" + escaped(text) +
                                       "\" is not a time such as 2026-03-01T12:30:00Z, "
                                       "2026-03-01 or 7d (ago)");
}

long currentTime() {
  return std::time(nullptr);
}

}  // namespace KELP::Tool
