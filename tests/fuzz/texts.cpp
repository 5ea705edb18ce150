// Texts as people read and write them. The first byte of the input is a width in columns, the rest
// a text.

#include "base/clock.h"
#include "base/failure.h"
#include "base/text.h"
#include "fuzz/form.h"
#include "fuzz/fuzz.h"

#include <algorithm>
#include <chrono>
#include <clocale>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace KELP::Fuzz {
namespace {

/** What @p parse makes of @p text; nothing when it is wrong usage. */
template <typename Number>
std::optional<Number> parsed(const std::string& text, Number (*parse)(const std::string&)) {
  try {
    return parse(text);
  } catch (const Tool::Failure& failure) {
    require(failure.status() == Tool::ExitStatus::Usage,
            "a text that is none of its kind is wrong usage");
    return std::nullopt;
  }
}

/** Control characters, and what breaks lines or turns the direction of writing. */
bool isUnsafe(char32_t code) {
  constexpr std::u32string_view kMarks =
      U"\u061c\u200e\u200f\u2028\u2029\u202a\u202b\u202c\u202d\u202e\u2066\u2067\u2068\u2069";
  return code < 0x20 || (code >= 0x7f && code < 0xa0) ||
         kMarks.find(code) != std::u32string_view::npos;
}

/** Whether @p text is UTF-8 without unsafe characters but those in @p but. */
bool isSafe(std::string_view text, std::u32string_view but = {}) {
  while (!text.empty()) {
    const std::optional<Letter> letter = firstLetter(text);
    if (!letter ||
        (isUnsafe(letter->code) && but.find(letter->code) == std::u32string_view::npos)) {
      return false;
    }
    text.remove_prefix(letter->size);
  }
  return true;
}

char byteOf(std::string_view digits) {
  return static_cast<char>(16 * hexDigit(digits[0]) + hexDigit(digits[1]));
}

/** The bytes of a character of at most 16 bits. */
std::string utf8(unsigned code) {
  const auto byte = [](unsigned bits) { return static_cast<char>(bits); };
  return code < 0x800 ? std::string{byte(0xC0 | code >> 6), byte(0x80 | (code & 0x3F))}
                      : std::string{byte(0xE0 | code >> 12), byte(0x80 | (code >> 6 & 0x3F)),
                                    byte(0x80 | (code & 0x3F))};
}

/** What was escaped to @p text. */
std::string unescaped(const std::string& text) {
  constexpr std::string_view kLetters = "nrt\\";
  constexpr std::string_view kMeanings = "\n\r\t\\";
  std::string result;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (text[at] != '\\') {
      result += text[at];
      continue;
    }
    const char letter = text.at(++at);
    if (const std::size_t index = kLetters.find(letter); index != std::string_view::npos) {
      result += kMeanings[index];
    } else if (letter == 'x') {
      result += byteOf(text.substr(at + 1, 2));
      at += 2;
    } else {
      const std::size_t end = text.find('}', at);
      result +=
          utf8(static_cast<unsigned>(std::stoul(text.substr(at + 2, end - at - 2), nullptr, 16)));
      at = end;
    }
  }
  return result;
}

std::string percentDecoded(const std::string& text) {
  std::string result;
  for (std::size_t at = 0; at < text.size(); ++at) {
    const bool isEncoded = text[at] == '%';
    result += isEncoded ? byteOf(text.substr(at + 1, 2)) : text[at];
    at += isEncoded ? 2 : 0;
  }
  return result;
}

void checkEscapes(const std::string& text) {
  const std::string escaped = Tool::escaped(text);
  require(isSafe(escaped), "an escaped text is safe on one line");
  require(unescaped(escaped) == text, "an escaped text tells what it was");
  require(isSafe(Tool::escapedLines(text), U"\n\t"), "escaped lines are safe");

  const std::string name = Tool::percentEncoded(text);
  require(isSafe(name) && name.find_first_of("/\\") == std::string::npos,
          "an encoded text is one name");
  require(percentDecoded(name) == text, "an encoded text tells what it was");
  require(Tool::isText(text) == (isUtf8(text) && text.find('\0') == std::string::npos),
          "a text is UTF-8 without NUL");

  const std::size_t whole = Tool::wholeCharacters(text);
  require(whole <= text.size() && text.size() - whole <= 3, "at most a character is cut off");
  require(!isUtf8(text) || whole == text.size(), "nothing is cut off a whole text");
}

void checkWidths(const std::string& text, std::size_t columns) {
  static const char* const kCharacters = std::setlocale(LC_CTYPE, "C.UTF-8");
  require(kCharacters != nullptr, "there are characters beyond ASCII");
  const std::string line = Tool::escaped(text);
  const std::string fitting = Tool::shortened(line, columns);
  require(isUtf8(fitting) && Tool::columnsOf(fitting) <= columns, "a shortened text fits");
  if (Tool::columnsOf(line) <= columns) {
    require(fitting == line, "what fits is not shortened");
  } else if (columns > 0) {
    require(fitting.ends_with("…") &&
                line.starts_with(fitting.substr(0, fitting.size() - std::string_view("…").size())),
            "a shortened text is the beginning and dots");
  }
}

/** Takes the digits at the beginning off @p text; nothing when there are none. */
std::optional<std::string> takeDigits(std::string_view& text) {
  std::string digits(text.substr(0, text.find_first_not_of("0123456789")));
  text.remove_prefix(digits.size());
  return digits.empty() ? std::nullopt : std::optional(digits);
}

/** Digits, perhaps with a fraction, and a power of 1024 by name. */
std::optional<long double> sizeOf(std::string_view text) {
  std::optional<std::string> number = takeDigits(text);
  if (!number) {
    return std::nullopt;
  }
  if (text.starts_with('.')) {
    text.remove_prefix(1);
    *number += "." + takeDigits(text).value_or("");
  }
  std::string unit(text);
  std::ranges::transform(unit, unit.begin(), [](char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  });
  constexpr std::string_view kUnits = "bkmgtp";
  const std::size_t power = unit.empty() ? 0 : kUnits.find(unit[0]);
  const bool isLetter = unit.size() <= 1;
  if (power == std::string_view::npos || (!isLetter && (power == 0 || unit.substr(1) != "ib"))) {
    return std::nullopt;
  }
  return std::strtold(number->c_str(), nullptr) *
         std::pow(1024.0L, static_cast<long double>(power));
}

void checkSize(const std::string& text) {
  const std::optional<std::uint64_t> size = parsed(text, Tool::parseSize);
  const std::optional<long double> expected = sizeOf(text);
  if (!size) {
    // Far too much is none, and so is what would be taken for nothing.
    require(!expected || *expected >= 0x1p62L || (*expected > 0 && *expected < 0.6L),
            "a size is taken");
    return;
  }
  require(expected.has_value(), "only a size is taken");
  require(std::fabs(static_cast<long double>(*size) - *expected) <= 0.5L + *expected * 0x1p-51L,
          "a size is what was written");
  static_cast<void>(Tool::sizeText(*size));
}

/** Digits up to 1000000000 and a unit. */
std::optional<long> spanOf(std::string_view text) {
  const std::optional<std::string> digits = takeDigits(text);
  if (!digits) {
    return std::nullopt;
  }
  const std::string number =
      digits->substr(std::min(digits->find_first_not_of('0'), digits->size() - 1));
  struct Unit {
    std::string_view name;
    long seconds;
  };
  for (const Unit unit : {Unit{"s", 1}, Unit{"m", 60}, Unit{"min", 60}, Unit{"h", 3600},
                          Unit{"d", 86'400}, Unit{"w", 604'800}}) {
    if (text == unit.name && number.size() <= 10 && std::stol(number) <= 1'000'000'000) {
      return std::stol(number) * unit.seconds;
    }
  }
  return std::nullopt;
}

/** The number of the two digits at @p at. */
int pairAt(std::string_view text, std::size_t at) {
  return 10 * hexDigit(text[at]) + hexDigit(text[at + 1]);
}

/** "YYYY-MM-DDTHH:MM:SSZ" and nothing else, by the calendar. */
std::optional<long> momentOf(std::string_view text) {
  constexpr std::string_view kForm = "0000-00-00T00:00:00Z";
  if (text.size() != kForm.size()) {
    return std::nullopt;
  }
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (kForm[at] == '0' ? !isDigit(text[at]) : text[at] != kForm[at]) {
      return std::nullopt;
    }
  }
  using namespace std::chrono;
  const year_month_day date(year(100 * pairAt(text, 0) + pairAt(text, 2)),
                            month(static_cast<unsigned>(pairAt(text, 5))),
                            day(static_cast<unsigned>(pairAt(text, 8))));
  const int hour = pairAt(text, 11);
  const int minute = pairAt(text, 14);
  const int second = pairAt(text, 17);
  if (!date.ok() || hour > 23 || minute > 59 || second > 59) {
    return std::nullopt;
  }
  return sys_days(date).time_since_epoch().count() * 86'400L + hour * 3600L + minute * 60L + second;
}

void checkTimes(const std::string& text) {
  const std::optional<long> span = spanOf(text);
  require(parsed(text, Tool::parseSpan) == span, "a span is a number and a unit");
  const std::optional<long> milliseconds =
      text.ends_with("ms") ? spanOf(text.substr(0, text.size() - 2) + "s") : std::nullopt;
  const std::optional<long> wait = milliseconds ? milliseconds
                                   : span       ? std::optional(*span * 1000)
                                                : std::nullopt;
  require(parsed(text, Tool::parseWait) == wait, "a wait is a span, or milliseconds");

  const long before = Tool::currentTime();
  const auto time =
      parsed<long>(text, [](const std::string& given) { return Tool::parseTime(given, true); });
  const auto local =
      parsed<long>(text, [](const std::string& given) { return Tool::parseTime(given, false); });
  require(time.has_value() == local.has_value(), "the zone does not say what is a time");
  if (span || text == "now") {
    const long ago = span.value_or(0);
    require(time && *time >= before - ago && *time <= Tool::currentTime() - ago,
            "a span is so long ago");
  } else if (const std::optional<long> moment = momentOf(text)) {
    require(time == moment && local == moment, "a moment is what the calendar says");
  } else if (text.size() == std::string_view("0000-00-00T00:00:00Z").size() &&
             text.ends_with('Z')) {
    require(!time || text[10] != 'T', "what no calendar has is no time");
  }
  if (const auto printed = time ? Tool::calendarText(*time, true) : std::nullopt) {
    require(momentOf(*printed) == time, "a time is printed in the form of the calendar");
    require(Tool::parseTime(*printed, false) == *time, "what is printed is taken");
  }
}

}  // namespace

void checkTexts(const std::string& input) {
  const std::string text = input.substr(std::min<std::size_t>(1, input.size()));
  checkEscapes(text);
  checkWidths(text, input.empty() ? 0 : static_cast<unsigned char>(input[0]));
  const std::string argument = text.c_str();  // An argument has no NUL.
  checkSize(argument);
  checkTimes(argument);
}

}  // namespace KELP::Fuzz
