#pragma once

#include <CLI/App.hpp>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

/** Options and arguments as they were typed: the parser's own conversions take "010" for 8, "{}"
 * for no text, and the empty text for no value. */
namespace KELP::Tool {

/** Adds an option, or an argument, with one value. @p take gets what was given last, and may throw
 * a Failure of usage. */
CLI::Option* addValue(CLI::App& verb, const std::string& name,
                      std::function<void(const std::string&)> take, const std::string& help);

/** Adds an option, or an argument, that is a text; it may be empty. */
template <typename Text>
CLI::Option* addText(CLI::App& verb, const std::string& name, Text& text, const std::string& help) {
  return addValue(
             verb, name, [&text](const std::string& given) { text = given; }, help)
      ->type_name("TEXT");
}

/** Throws a Failure of usage when what was given to @p name is empty. */
void requireFilled(const std::string& name, const std::string& given);

/** The same for what cannot be empty, such as a path or a time: nothing would be known of a
 * variable that is not set in "--since $VARIABLE". */
template <typename Text>
CLI::Option* addWord(CLI::App& verb, const std::string& name, Text& text, const std::string& help) {
  return addValue(
      verb, name,
      [&text, name](const std::string& given) {
        requireFilled(name, given);
        text = given;
      },
      help);
}

/** Adds an option, or an argument, that is one of some words. */
CLI::Option* addChoice(CLI::App& verb, const std::string& name, std::string& word,
                       const std::vector<std::string>& choices, const std::string& help);

/** Adds an option that may be given several times, each with one text. */
CLI::Option* addTexts(CLI::App& verb, const std::string& name, std::vector<std::string>& texts,
                      const std::string& help);
/** Adds the last argument, which takes all that is left, at least one text. */
CLI::Option* addRest(CLI::App& verb, const std::string& name, std::vector<std::string>& texts,
                     const std::string& help);

/** Adds an option that is a number of 32 bits. */
CLI::Option* addInteger(CLI::App& verb, const std::string& name, std::optional<int>& number,
                        const std::string& help);
/** Adds an option that says how many. */
CLI::Option* addCount(CLI::App& verb, const std::string& name, std::optional<std::size_t>& count,
                      std::size_t least, const std::string& help);

/** A decimal number of 32 bits. Throws a Failure of usage. */
[[nodiscard]] int parseInteger(const std::string& text);
/** A decimal number from @p least to 4294967295. Throws a Failure of usage. */
[[nodiscard]] std::size_t parseCount(const std::string& text, std::size_t least);

}  // namespace KELP::Tool
