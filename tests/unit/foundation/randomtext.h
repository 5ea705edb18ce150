#pragma once

#include "unit/foundation/seed.h"

#include <array>
#include <random>
#include <string>

namespace KELP::Test {

/** Valid UTF-8 of up to @p most characters, many of which a text format has to treat with care. */
[[nodiscard]] inline std::string randomText(std::mt19937& random, int most) {
  static const std::array<std::string, 20> kCharacters{"a",
                                                       "Z",
                                                       "0",
                                                       " ",
                                                       "/",
                                                       ".",
                                                       "\"",
                                                       "\\",
                                                       "'",
                                                       "[",
                                                       "}",
                                                       ",",
                                                       "%",
                                                       "\n",
                                                       std::string(1, '\0'),
                                                       "\x01",
                                                       "\x7f",
                                                       "\xc3\xa9",
                                                       "\xe2\x82\xac",
                                                       "\xf0\x9f\x98\x80"};
  std::string text;
  for (int i = randomNumber(random, 0, most); i > 0; --i) {
    text += kCharacters[static_cast<std::size_t>(randomNumber(random, 0, kCharacters.size() - 1))];
  }
  return text;
}

}  // namespace KELP::Test
