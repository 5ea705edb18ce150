#include "diagnostic/jsonfractions.h"

#include <algorithm>
#include <locale>
#include <optional>
#include <sstream>
#include <string_view>
#include <utility>
#include <vector>

namespace KELP::Diagnostic {
namespace {

/** Reads as the JSON library does, but always with a point. */
std::optional<double> numberOf(const std::string& token) {
  std::istringstream stream(token);
  stream.imbue(std::locale::classic());
  double number = 0;
  return stream >> number ? std::optional(number) : std::nullopt;
}

std::size_t skipDigits(const std::string& text, std::size_t at) {
  return std::min(text.find_first_not_of("0123456789", at), text.size());
}

bool isOneOf(const std::string& text, std::size_t at, std::string_view characters) {
  return at < text.size() && characters.find(text[at]) != std::string_view::npos;
}

bool beginsNumber(char c) {
  return (c >= '0' && c <= '9') || c == '-' || c == '+';
}

/** The end of the token that a sign or a digit at @p at begins. */
std::size_t endOfNumber(const std::string& text, std::size_t at) {
  at = skipDigits(text, at + 1);
  if (isOneOf(text, at, ".")) {
    at = skipDigits(text, at + 1);
  }
  if (isOneOf(text, at, "eE")) {
    at += isOneOf(text, at + 1, "+-") ? 2 : 1;
    at = skipDigits(text, at);
  }
  return at;
}

/** Makes an integer of a number. The sign stays, since another one before it makes no number. */
void replaceByZero(std::string& token) {
  const auto digits = token.begin() + (isOneOf(token, 0, "+-") ? 1 : 0);
  std::fill(digits, token.end(), ' ');
  *digits = '0';
}

/** The end of the string that the quote at @p at begins. */
std::size_t endOfString(const std::string& text, std::size_t at) {
  for (std::size_t quote = text.find('"', at + 1); quote != std::string::npos;
       quote = text.find('"', quote + 1)) {
    const std::size_t before = text.find_last_not_of('\\', quote - 1);
    if ((quote - before) % 2 == 1) {
      return quote + 1;  // Behind none, or behind pairs, of backslashes.
    }
  }
  return text.size();
}

/** The end of the comment that may begin at @p at, which the reader allows; behind @p at when none
 * does. */
std::size_t endOfComment(const std::string& text, std::size_t at) {
  if (isOneOf(text, at + 1, "/")) {
    return std::min(text.find_first_of("\r\n", at), text.size());
  }
  if (isOneOf(text, at + 1, "*")) {
    const std::size_t end = text.find("*/", at + 2);
    return end == std::string::npos ? text.size() : end + 2;
  }
  return at + 1;
}

}  // namespace

JsonFractions::JsonFractions(const std::string& text) : text_(text) {
  for (std::size_t at = 0; at < text.size();) {
    if (text[at] == '"') {
      at = endOfString(text, at);
    } else if (text[at] == '/') {
      at = endOfComment(text, at);
    } else if (!beginsNumber(text[at])) {
      ++at;
    } else {
      const std::size_t end = endOfNumber(text, at);
      std::string token = text.substr(at, end - at);
      if (token.find_first_of(".eE") != std::string::npos) {
        take(at, std::move(token));
      }
      at = end;
    }
  }
}

void JsonFractions::take(std::size_t at, std::string token) {
  if (const std::optional<double> number = numberOf(token)) {
    // The reader counts from behind a byte-order mark.
    const std::size_t begin = text_.starts_with("\xef\xbb\xbf") ? 3 : 0;
    numbers_[static_cast<std::ptrdiff_t>(at - begin)] = *number;
    replaceByZero(token);
  } else {
    areNumbers_ = false;
    std::ranges::replace(token, '.', 'e');  // No part of it is a number in any locale then.
  }
  if (!integers_) {
    integers_ = text_;
  }
  integers_->replace(at, token.size(), token);
}

void JsonFractions::putInto(Json::Value& root) const {
  std::vector<Json::Value*> values;
  if (!numbers_.empty()) {
    values.push_back(&root);
  }
  while (!values.empty()) {
    Json::Value& value = *values.back();
    values.pop_back();
    if (value.isArray() || value.isObject()) {
      for (Json::Value& member : value) {
        values.push_back(&member);
      }
    } else if (const auto found = numbers_.find(value.getOffsetStart()); found != numbers_.end()) {
      value = found->second;
    }
  }
}

}  // namespace KELP::Diagnostic
