#include "base/text.h"

#include "base/failure.h"

#include <strings.h>

#include <array>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cwchar>
#include <optional>

namespace KELP::Tool {
namespace {

/** One character of UTF-8 text, or one byte that is none. */
struct Character {
  std::string_view bytes;
  std::optional<char32_t> code;
};

/** Takes the first character off @p text, which is not empty. Overlong forms, surrogates and
 * numbers beyond Unicode are no characters. */
Character takeCharacter(std::string_view& text) {
  const auto byte = [&](std::size_t at) { return static_cast<unsigned char>(text[at]); };
  const auto end = [&](std::size_t size, std::optional<char32_t> code) {
    const Character character{text.substr(0, size), code};
    text.remove_prefix(size);
    return character;
  };
  const unsigned char first = byte(0);
  if (first < 0x80) {
    return end(1, first);
  }
  const std::size_t size = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
  if (first < 0xC2 || first > 0xF4 || text.size() < size) {
    return end(1, std::nullopt);
  }
  char32_t code = first & (0xFFU >> (size + 1));
  for (std::size_t at = 1; at < size; ++at) {
    if ((byte(at) & 0xC0U) != 0x80) {
      return end(1, std::nullopt);
    }
    code = code << 6U | (byte(at) & 0x3FU);
  }
  constexpr std::array<char32_t, 5> kSmallest{0, 0, 0x80, 0x800, 0x10000};
  if (code < kSmallest[size] || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) {
    return end(1, std::nullopt);
  }
  return end(size, code);
}

bool isUnsafe(char32_t code) {
  return code < 0x20 || (code >= 0x7F && code < 0xA0) || code == 0x061C || code == 0x200E ||
         code == 0x200F || (code >= 0x2028 && code <= 0x202E) || (code >= 0x2066 && code <= 0x2069);
}

std::string formatted(const char* format, unsigned number) {
  std::array<char, 32> text{};
  static_cast<void>(std::snprintf(text.data(), text.size(), format, number));
  return text.data();
}

std::string escapedCharacter(const Character& character) {
  if (!character.code) {
    return formatted("\\x%02x", static_cast<unsigned char>(character.bytes[0]));
  }
  switch (*character.code) {
    case '\\':
      return "\\\\";
    case '\n':
      return "\\n";
    case '\r':
      return "\\r";
    case '\t':
      return "\\t";
    default:
      break;
  }
  if (!isUnsafe(*character.code)) {
    return std::string(character.bytes);
  }
  return formatted(*character.code < 0x80 ? "\\x%02x" : "\\u{%x}", *character.code);
}

std::size_t columnsOfCharacter(const Character& character) {
  if (!character.code) {
    return 1;
  }
  const int columns = ::wcwidth(static_cast<wchar_t>(*character.code));
  return columns < 0 ? 1 : static_cast<std::size_t>(columns);
}

constexpr std::array<const char*, 6> kUnits{"B", "KiB", "MiB", "GiB", "TiB", "PiB"};

/** How many bytes the unit of a size has, which may be written without its "iB", or left out. */
std::optional<double> factorOf(const std::string& unit) {
  double factor = 1;
  for (const std::string known : kUnits) {
    const std::string letter = known.substr(0, 1);
    if (unit.empty() || ::strcasecmp(unit.c_str(), known.c_str()) == 0 ||
        ::strcasecmp(unit.c_str(), letter.c_str()) == 0) {
      return factor;
    }
    factor *= 1024;
  }
  return std::nullopt;
}

}  // namespace

std::string escaped(std::string_view text) {
  std::string result;
  while (!text.empty()) {
    result += escapedCharacter(takeCharacter(text));
  }
  return result;
}

std::string inQuotes(std::string_view text) {
  return "\"" + escaped(text) + "\"";
}

std::string percentEncoded(std::string_view text) {
  constexpr std::string_view kSeparators = "/\\%";
  std::string result;
  while (!text.empty()) {
    const Character character = takeCharacter(text);
    if (character.code && !isUnsafe(*character.code) &&
        kSeparators.find(character.bytes) == std::string_view::npos) {
      result += character.bytes;
      continue;
    }
    for (const char byte : character.bytes) {
      result += formatted("%%%02X", static_cast<unsigned char>(byte));
    }
  }
  return result;
}

std::string escapedLines(std::string_view text) {
  constexpr std::u32string_view kStays = U"\n\t\\";
  std::string result;
  while (!text.empty()) {
    const Character character = takeCharacter(text);
    const bool stays = character.code && kStays.find(*character.code) != std::u32string_view::npos;
    result += stays ? std::string(character.bytes) : escapedCharacter(character);
  }
  return result;
}

bool isText(std::string_view text) {
  while (!text.empty()) {
    if (takeCharacter(text).code.value_or(0) == 0) {
      return false;
    }
  }
  return true;
}

std::size_t wholeCharacters(std::string_view text) {
  constexpr std::size_t kMostCutOff = 3;
  for (std::size_t left = 1; left <= kMostCutOff && left <= text.size(); ++left) {
    const auto byte = static_cast<unsigned char>(text[text.size() - left]);
    if ((byte & 0xC0U) != 0x80) {  // Where a character begins.
      const std::size_t size = byte >= 0xF0 ? 4 : byte >= 0xE0 ? 3 : byte >= 0xC0 ? 2 : 1;
      return size > left ? text.size() - left : text.size();
    }
  }
  return text.size();
}

std::size_t columnsOf(std::string_view text) {
  std::size_t columns = 0;
  while (!text.empty()) {
    columns += columnsOfCharacter(takeCharacter(text));
  }
  return columns;
}

std::string shortened(std::string_view text, std::size_t columns) {
  if (columnsOf(text) <= columns) {
    return std::string(text);
  }
  std::string result;
  std::size_t used = 1;  // For the dots.
  while (!text.empty()) {
    const Character character = takeCharacter(text);
    used += columnsOfCharacter(character);
    if (used > columns) {
      break;
    }
    result += character.bytes;
  }
  return columns == 0 ? "" : result + "…";
}

std::string sizeText(std::uint64_t bytes) {
  auto number = static_cast<double>(bytes);
  std::size_t unit = 0;
  while (number >= 1024 && unit + 1 < kUnits.size()) {
    number /= 1024;
    ++unit;
  }
  std::array<char, 32> text{};
  static_cast<void>(std::snprintf(text.data(), text.size(), "%.*f %s",
                                  unit > 0 && number < 10 ? 1 : 0, number, kUnits[unit]));
  return text.data();
}

std::uint64_t parseSize(const std::string& text) {
  double number = -1;
  const char* const end = text.data() + text.size();
  // A sign, an exponent and the like are left over, or nothing is read.
  const auto [rest, error] = std::from_chars(text.data(), end, number, std::chars_format::fixed);
  const bool isNumber =
      error == std::errc() && std::isdigit(static_cast<unsigned char>(text[0])) != 0;
  const std::optional<double> factor = factorOf(std::string(rest, end));
  const double bytes = isNumber && factor ? number * *factor : -1;
  const bool isNothing = bytes > 0 && bytes < 0.5;  // It would stand for 0, which nobody wrote.
  if (bytes < 0 || bytes >= 0x1p63 || isNothing) {
    throw Failure(ExitStatus::Usage, inQuotes(text) + " is not a size such as 500K or 2MiB");
  }
  return static_cast<std::uint64_t>(std::llround(bytes));
}

std::string joined(const std::vector<std::string>& texts) {
  std::string all;
  for (const std::string& text : texts) {
    all += (all.empty() ? "" : ", ") + escaped(text);
  }
  return all;
}

std::string counted(std::size_t count, std::string_view noun) {
  std::string result = std::to_string(count) + " ";
  result += noun;
  return count == 1 ? result : result + "s";
}

}  // namespace KELP::Tool
