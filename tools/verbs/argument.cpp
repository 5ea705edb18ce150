#include "verbs/argument.h"

#include "base/failure.h"
#include "base/text.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <limits>
#include <utility>

namespace KELP::Tool {
namespace {

using CLI::results_t;

std::string joined(const std::vector<std::string>& words, const char* separator) {
  std::string text;
  for (const std::string& word : words) {
    text += (text.empty() ? "" : separator) + word;
  }
  return text;
}

CLI::Option* addManyTexts(CLI::App& verb, const std::string& name, std::vector<std::string>& texts,
                          const std::string& help) {
  return verb
      .add_option(
          name,
          [&texts](const results_t& given) {
            texts = given;
            return true;
          },
          help)
      ->type_name("TEXT")
      ->expected(CLI::detail::expected_max_vector_size)
      ->take_all();
}

/** All of @p text as a decimal number, in which no sign but "-" and no space may stand. */
std::int64_t parseDecimal(const std::string& text, std::int64_t least, std::int64_t most) {
  std::int64_t number = 0;
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || rest != end || number < least || number > most) {
    throw Failure(ExitStatus::Usage, inQuotes(text) + " is not an integer from " +
                                         std::to_string(least) + " to " + std::to_string(most));
  }
  return number;
}

}  // namespace

CLI::Option* addValue(CLI::App& verb, const std::string& name,
                      std::function<void(const std::string&)> take, const std::string& help) {
  return verb.add_option(
      name,
      [take = std::move(take)](const results_t& given) {
        take(given.back());
        return true;
      },
      help);
}

void requireFilled(const std::string& name, const std::string& given) {
  if (given.empty()) {
    throw Failure(ExitStatus::Usage, name.substr(name.rfind(',') + 1) + " must not be empty");
  }
}

CLI::Option* addChoice(CLI::App& verb, const std::string& name, std::string& word,
                       const std::vector<std::string>& choices, const std::string& help) {
  const auto take = [&word, choices](const std::string& given) {
    if (std::find(choices.begin(), choices.end(), given) == choices.end()) {
      throw Failure(ExitStatus::Usage, inQuotes(given) + " is not one of " + joined(choices, ", "));
    }
    word = given;
  };
  return addValue(verb, name, take, help + ": " + joined(choices, ", "));
}

CLI::Option* addTexts(CLI::App& verb, const std::string& name, std::vector<std::string>& texts,
                      const std::string& help) {
  return addManyTexts(verb, name, texts, help)->allow_extra_args(false);
}

CLI::Option* addRest(CLI::App& verb, const std::string& name, std::vector<std::string>& texts,
                     const std::string& help) {
  return addManyTexts(verb, name, texts, help)->required();
}

CLI::Option* addInteger(CLI::App& verb, const std::string& name, std::optional<int>& number,
                        const std::string& help) {
  return addValue(
             verb, name, [&number](const std::string& given) { number = parseInteger(given); },
             help)
      ->type_name("N");
}

CLI::Option* addCount(CLI::App& verb, const std::string& name, std::optional<std::size_t>& count,
                      std::size_t least, const std::string& help) {
  return addValue(
             verb, name,
             [&count, least](const std::string& given) { count = parseCount(given, least); }, help)
      ->type_name("COUNT");
}

int parseInteger(const std::string& text) {
  using Limits = std::numeric_limits<int>;
  return static_cast<int>(parseDecimal(text, Limits::min(), Limits::max()));
}

std::size_t parseCount(const std::string& text, std::size_t least) {
  constexpr std::int64_t kMost = std::numeric_limits<std::uint32_t>::max();
  return static_cast<std::size_t>(parseDecimal(text, static_cast<std::int64_t>(least), kMost));
}

}  // namespace KELP::Tool
