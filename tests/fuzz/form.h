#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

/** Forms of text, told apart without the code that is tried. */
namespace KELP::Fuzz {

/** The first character of UTF-8 in a text. */
struct Letter {
  char32_t code;
  std::size_t size;  ///< In bytes.
};

/** The character that @p text begins with; nothing when it begins with none. */
[[nodiscard]] std::optional<Letter> firstLetter(std::string_view text);

/** Whether @p text is UTF-8 throughout. */
[[nodiscard]] bool isUtf8(std::string_view text);

/** Whether @p text is 36 characters, hexadecimal digits in groups of 8, 4, 4, 4 and 12 with hyphens
 *  between them. */
[[nodiscard]] bool isIdentifier(std::string_view text);

[[nodiscard]] bool isDigit(char character);

/** The value of a hexadecimal digit; -1 for anything else. */
[[nodiscard]] int hexDigit(char character);

}  // namespace KELP::Fuzz
