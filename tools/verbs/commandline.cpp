#include "verbs/commandline.h"

#include "base/text.h"

#include <algorithm>
#include <cstddef>
#include <numeric>

namespace KELP::Tool {
namespace {

/** In front of an argument that the parser would not take as it is. */
constexpr char kMark = '\x1f';

std::string marked(const std::string& argument) {
  const bool isListLike = !argument.empty() && argument.front() == '[' && argument.back() == ']';
  return isListLike || argument == "++" || argument.starts_with(kMark) ? kMark + argument
                                                                       : argument;
}

bool takesValue(const CLI::Option* option) {
  return option != nullptr && option->get_items_expected_max() > 0;
}

std::vector<const CLI::App*> verbsOf(const CLI::App& app) {
  return app.get_subcommands([](const CLI::App*) { return true; });
}

/** How many letters have to be added, left out or replaced to make one word of the other. */
std::size_t distanceOf(const std::string& from, const std::string& to) {
  std::vector<std::size_t> distances(to.size() + 1);
  std::iota(distances.begin(), distances.end(), 0);
  for (const char letter : from) {
    std::size_t diagonal = distances[0]++;
    for (std::size_t at = 0; at < to.size(); ++at) {
      const std::size_t replaced = diagonal + (to[at] == letter ? 0 : 1);
      diagonal = distances[at + 1];
      distances[at + 1] = std::min({replaced, diagonal + 1, distances[at] + 1});
    }
  }
  return distances.back();
}

/** The verb that was probably meant; empty when none is like @p word. */
std::string nearestVerb(const CLI::App& app, const std::string& word) {
  constexpr std::size_t kLongest = 64;  // What is longer is no mistyped verb.
  std::string nearest;
  std::size_t least = 3;
  for (const CLI::App* const verb : verbsOf(app)) {
    const std::string& name = verb->get_name();
    const std::size_t distance = word.size() > kLongest ? least : distanceOf(word, name);
    if (distance < least && 2 * distance <= name.size()) {
      least = distance;
      nearest = name;
    }
  }
  return nearest;
}

}  // namespace

CommandLine::CommandLine(const CLI::App& program, int argc, const char* const* argv)
    : app_(&program) {
  for (int at = 1; at < argc; ++at) {
    read(argv[at]);
  }
}

std::vector<std::string> CommandLine::argumentsForParser() const {
  return {arguments_.rbegin(), arguments_.rend()};
}

std::string CommandLine::complaintAboutVerb() const {
  if (unknownVerb_) {
    const std::string nearest = nearestVerb(*app_, *unknownVerb_);
    return "there is no verb " + inQuotes(verb_ + *unknownVerb_) +
           (nearest.empty() ? "" : "; did you mean \"" + verb_ + nearest + "\"?");
  }
  if (!hasUnknownOption_ && !expectsValue_ && !verbsOf(*app_).empty()) {
    return verb_.empty() ? "a verb is missing"
                         : "a verb is missing behind \"" + verb_.substr(0, verb_.size() - 1) + "\"";
  }
  return {};
}

void CommandLine::read(const std::string& word) {
  std::string name;
  std::string value;
  const bool mayBeOption = !isBehindMark_;
  if (expectsValue_) {
    expectsValue_ = false;
    arguments_.push_back(marked(word));
  } else if (mayBeOption && word == "--") {
    isBehindMark_ = true;
    arguments_.push_back(word);
  } else if (mayBeOption && CLI::detail::split_long(word, name, value)) {
    readLongOption(word);
  } else if (mayBeOption && CLI::detail::split_short(word, name, value)) {
    readLetters(word);
  } else {
    readWord(word);
  }
}

void CommandLine::readLongOption(const std::string& word) {
  const std::size_t end = word.find('=');
  const std::string name = word.substr(0, end);
  if (!takesValue(find(name))) {
    arguments_.push_back(word);
    return;
  }
  arguments_.push_back(name);
  expectsValue_ = end == std::string::npos;
  if (!expectsValue_) {
    arguments_.push_back(marked(word.substr(end + 1)));
  }
}

void CommandLine::readLetters(const std::string& word) {
  for (std::size_t at = 1; at < word.size(); ++at) {
    const CLI::Option* const option = find({'-', word[at]});
    if (takesValue(option) && at + 1 < word.size()) {
      arguments_.push_back(word.substr(0, at + 1));
      arguments_.push_back(marked(word.substr(at + 1)));
      return;
    }
    expectsValue_ = takesValue(option);
    if (option == nullptr) {
      break;
    }
  }
  arguments_.push_back(word);
}

void CommandLine::readWord(const std::string& word) {
  arguments_.push_back(marked(word));
  const std::vector<const CLI::App*> verbs = verbsOf(*app_);
  if (verbs.empty() || unknownVerb_ || hasUnknownOption_) {
    return;
  }
  const auto verb = std::find_if(verbs.begin(), verbs.end(),
                                 [&](const CLI::App* known) { return known->get_name() == word; });
  if (verb == verbs.end()) {
    unknownVerb_ = word;
    return;
  }
  app_ = *verb;
  verb_ += word + " ";
  isBehindMark_ = false;
}

const CLI::Option* CommandLine::find(const std::string& option) {
  const CLI::Option* const found = app_->get_option_no_throw(option);
  hasUnknownOption_ |= found == nullptr;
  return found;
}

void takeMarkOff(CLI::Option& option) {
  option.transform(CLI::Validator(
      [](std::string& argument) {
        argument.erase(0, argument.starts_with(kMark) ? 1 : 0);
        return std::string();
      },
      ""));
}

std::string withoutMarks(std::string text) {
  text.erase(std::remove(text.begin(), text.end(), kMark), text.end());
  return text;
}

}  // namespace KELP::Tool
