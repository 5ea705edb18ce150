#include "fuzz/form.h"

#include <string>

namespace KELP::Fuzz {
namespace {

/** The bytes of the character @p code. */
std::string encoded(char32_t code) {
  const auto byte = [](char32_t bits) { return static_cast<char>(bits); };
  if (code < 0x80) {
    return {byte(code)};
  }
  if (code < 0x800) {
    return {byte(0xC0 | code >> 6), byte(0x80 | (code & 0x3F))};
  }
  if (code < 0x10000) {
    return {byte(0xE0 | code >> 12), byte(0x80 | (code >> 6 & 0x3F)), byte(0x80 | (code & 0x3F))};
  }
  return {byte(0xF0 | code >> 18), byte(0x80 | (code >> 12 & 0x3F)),
          byte(0x80 | (code >> 6 & 0x3F)), byte(0x80 | (code & 0x3F))};
}

}  // namespace

std::optional<Letter> firstLetter(std::string_view text) {
  // Whatever the bits say, it is a character only when that character's own bytes are these.
  char32_t code = 0;
  for (std::size_t size = 1; size <= 4 && size <= text.size(); ++size) {
    const auto bits = static_cast<unsigned char>(text[size - 1]);
    const char32_t first = size > 1 || bits < 0x80 ? bits
                           : bits < 0xE0           ? bits & 0x1F
                           : bits < 0xF0           ? bits & 0x0F
                                                   : bits & 0x07;
    code = size == 1 ? first : code << 6 | (bits & 0x3F);
    const bool isCharacter = code <= 0x10FFFF && (code < 0xD800 || code > 0xDFFF);
    if (isCharacter && text.substr(0, size) == encoded(code)) {
      return Letter{code, size};
    }
  }
  return std::nullopt;
}

bool isUtf8(std::string_view text) {
  while (!text.empty()) {
    const std::optional<Letter> letter = firstLetter(text);
    if (!letter) {
      return false;
    }
    text.remove_prefix(letter->size);
  }
  return true;
}

bool isIdentifier(std::string_view text) {
  constexpr std::string_view kForm = "xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx";
  bool isForm = text.size() == kForm.size();
  for (std::size_t at = 0; isForm && at < text.size(); ++at) {
    isForm = kForm[at] == '-' ? text[at] == '-' : hexDigit(text[at]) >= 0;
  }
  return isForm;
}

bool isDigit(char character) {
  return character >= '0' && character <= '9';
}

int hexDigit(char character) {
  constexpr std::string_view kLower = "0123456789abcdef";
  constexpr std::string_view kUpper = "0123456789ABCDEF";
  const std::size_t at = kLower.find(character) != std::string_view::npos ? kLower.find(character)
                                                                          : kUpper.find(character);
  return at == std::string_view::npos ? -1 : static_cast<int>(at);
}

}  // namespace KELP::Fuzz
